#include "support/TestSupport.h"

#include <GL/glew.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <stdexcept>

namespace TavrinTest
{
StreamCapture::StreamCapture(std::ostream& stream)
    : stream(stream), captured(), original(stream.rdbuf(captured.rdbuf()))
{
}

StreamCapture::~StreamCapture()
{
    stream.rdbuf(original);
}

std::string StreamCapture::text() const
{
    return captured.str();
}

TemporaryDirectory::TemporaryDirectory()
{
    static std::atomic<int> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    const auto path = std::filesystem::temp_directory_path() /
                      ("tavrin-test-" + std::to_string(stamp) + "-" + std::to_string(counter++));
    std::filesystem::create_directories(path);
    directory = path.generic_string();
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::string TemporaryDirectory::file(const std::string& name) const
{
    return directory + "/" + name;
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& content) const
{
    const std::string path = file(name);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream stream(path, std::ios::binary);
    stream << content;
    if (!stream)
        throw std::runtime_error("cannot write " + path);
    return path;
}

std::vector<std::string> liveGLObjects()
{
    struct Kind
    {
        const char* name;
        GLboolean (*exists)(GLuint);
    };
    // The GLEW entry points are variables: read them now, after OpenGLContext::init().
    const Kind kinds[] = {{"texture", [](GLuint n) { return glIsTexture(n); }},
                          {"framebuffer", [](GLuint n) { return glIsFramebuffer(n); }},
                          {"program", [](GLuint n) { return glIsProgram(n); }},
                          {"shader", [](GLuint n) { return glIsShader(n); }},
                          {"display list", [](GLuint n) { return glIsList(n); }}};
    std::vector<std::string> live;
    for (const Kind& kind : kinds)
        for (GLuint name = 1; name <= 4096; ++name)
            if (kind.exists(name))
                live.push_back(std::string(kind.name) + " " + std::to_string(name));
    std::sort(live.begin(), live.end());
    return live;
}

namespace
{
bool growthAllowed = false;
}

void allowGLObjectGrowth()
{
    growthAllowed = true;
}

bool glObjectGrowthAllowed()
{
    return growthAllowed;
}

void resetGLObjectGrowthAllowance()
{
    growthAllowed = false;
}

void drainGLErrors()
{
    for (int i = 0; i < 64 && glGetError() != GL_NO_ERROR; ++i)
    {
    }
}
} // namespace TavrinTest
