// The compile-log rewriting reads line numbers out of driver text and indexes the assembled
// source's tables with them: any log, with tables of any size (empty included), must be safe.
#include <opengl/Shader.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The first two bytes size the tables (0..15 entries each, independently so that they can
    // disagree); the rest is the log.
    const std::size_t lineCount = size > 0 ? data[0] % 16 : 0;
    const std::size_t fileCount = size > 1 ? data[1] % 16 : lineCount;
    const std::size_t skip = size < 2 ? size : 2;
    const std::string log(reinterpret_cast<const char*>(data) + skip, size - skip);

    std::vector<int> lines;
    for (std::size_t i = 0; i < lineCount; ++i)
        lines.push_back(i % 3 == 2 ? -1 - static_cast<int>(i) : static_cast<int>(i * 7)); // negatives too
    std::vector<std::string> files;
    for (std::size_t i = 0; i < fileCount; ++i)
        files.push_back(i % 4 == 3 ? std::string() : "file" + std::to_string(i) + ".glsl");

    for (const auto vendor : {Tavrin::OpenGL::Program::NVIDIA, Tavrin::OpenGL::Program::ATI})
    {
        const std::string mapped = Tavrin::OpenGL::Shader::mapInfoLog(log, lines, files, vendor);
        // Joined with single line feeds: never a leading, trailing or doubled one.
        if (!mapped.empty() && (mapped.front() == '\n' || mapped.back() == '\n'))
            std::abort();
        if (mapped.find("\n\n") != std::string::npos)
            std::abort();
    }
    return 0;
}
