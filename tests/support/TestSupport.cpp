#include "support/TestSupport.h"

#include <GL/glew.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>

namespace TavrinTest
{
std::string withoutLineNumbers(std::string text)
{
    for (std::size_t at = text.find(" (line "); at != std::string::npos; at = text.find(" (line ", at + 1))
    {
        const std::size_t digits = at + 7, end = text.find_first_not_of("0123456789", digits);
        if (end != std::string::npos && end > digits && text.compare(end, 2, ") ") == 0)
            text.replace(digits, end - digits, "N");
    }
    return text;
}

TemporaryDirectory::TemporaryDirectory()
{
    static std::atomic<int> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    directory = (std::filesystem::temp_directory_path() /
                 ("tavrin-test-" + std::to_string(stamp) + "-" + std::to_string(counter++)))
                    .generic_string();
    std::filesystem::create_directories(directory);
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& content) const
{
    const std::string path = file(name);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    if (!(std::ofstream(path, std::ios::binary) << content))
        throw std::runtime_error("cannot write " + path);
    return path;
}

void drainGLErrors()
{
    for (int i = 0; i < 64 && glGetError() != GL_NO_ERROR;)
        ++i;
}

std::vector<std::string> liveGLObjects()
{
    // Live names lie below a fresh one (the margin covers a driver that reuses freed names).
    GLuint fresh[5] = {};
    glGenTextures(1, &fresh[0]);
    glDeleteTextures(1, &fresh[0]);
    glGenFramebuffers(1, &fresh[1]);
    glDeleteFramebuffers(1, &fresh[1]);
    glDeleteProgram(fresh[2] = glCreateProgram());
    glDeleteShader(fresh[3] = glCreateShader(GL_VERTEX_SHADER));
    glDeleteLists(fresh[4] = glGenLists(1), 1);
    // GLEW's entry points are variables: read them now, after OpenGLContext::init().
    const std::pair<const char*, GLboolean (*)(GLuint)> kinds[] = {
        {"texture", [](GLuint n) { return glIsTexture(n); }},
        {"framebuffer", [](GLuint n) { return glIsFramebuffer(n); }},
        {"program", [](GLuint n) { return glIsProgram(n); }},
        {"shader", [](GLuint n) { return glIsShader(n); }},
        {"display list", [](GLuint n) { return glIsList(n); }}};
    std::vector<std::string> live;
    for (int kind = 0; kind < 5; ++kind)
        for (GLuint name = 1; name <= fresh[kind] + 4096; ++name)
            if (kinds[kind].second(name))
                live.push_back(std::string(kinds[kind].first) + " " + std::to_string(name));
    std::sort(live.begin(), live.end());
    return live;
}
} // namespace TavrinTest
