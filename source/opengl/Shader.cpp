#include <opengl/GLCheck.h>
#include <opengl/GLSLException.h>
#include <opengl/Shader.h>
#include <opengl/ShaderSource.h>

#include <core/FileLoader.h>
#include <core/FileTools.h>
#include <core/StringTools.h>

#include <GL/glew.h>

#include <algorithm>
#include <climits>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
std::string untilNul(const std::vector<char>& buffer)
{
    return std::string(buffer.begin(), std::find(buffer.begin(), buffer.end(), '\0'));
}

// Driver line n names entry n - 1; lines 0 and 1 (and anything below) name the first. Written
// without n - 1 so that a clamped INT_MIN from the log cannot overflow.
std::size_t entryIndex(int n)
{
    return n > 1 ? static_cast<std::size_t>(n - 1) : 0;
}

std::string mapNvidiaLine(const std::string& line, const std::vector<int>& lines, const std::vector<std::string>& files)
{
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos)
        return line;
    // No test that "(" and ")" exist: without them the number is read from the start of the
    // line (usually 0, the first entry). The unsigned arithmetic stays inside the string.
    const std::size_t open = line.find('(');
    const std::size_t close = line.find(')');
    const std::size_t start = open == std::string::npos ? 0 : open + 1;
    const std::size_t length = close == std::string::npos || close < start ? std::string::npos : close - start;
    const std::size_t i = entryIndex(StringTools::stringToInt(line.substr(start, length)));
    if (i >= lines.size() || i >= files.size())
        return line;
    // Widened so that INT_MAX + 1 stays defined.
    return files[i] + " (" + std::to_string(static_cast<long long>(lines[i]) + 1) + ") " + line.substr(colon);
}

std::string mapAtiLine(const std::string& line, const std::vector<int>& lines, const std::vector<std::string>& files)
{
    const std::size_t p1 = line.find(':');
    if (p1 == std::string::npos)
        return line;
    const std::size_t p2 = line.find(':', p1 + 1);
    if (p2 == std::string::npos)
        return line;
    const std::size_t p3 = line.find(':', p2 + 1);
    if (p3 == std::string::npos)
        return line;
    const std::size_t i = entryIndex(StringTools::stringToInt(line.substr(p2 + 1, p3 - p2 - 1)));
    if (i >= lines.size() || i >= files.size())
        return line;
    const std::string message = p3 + 2 <= line.size() ? line.substr(p3 + 2) : std::string();
    return files[i] + "(" + StringTools::intToString(lines[i]) + ") : " + message;
}

// Mesa's form, "0:12(5): error: message": source string, ':', line, '(', column, "):". Returns
// the position of the '(' before the column, or npos when the line is not in that form.
std::size_t mesaColumnStart(const std::string& line)
{
    const auto digitsFrom = [&](std::size_t at) {
        std::size_t end = at;
        while (end < line.size() && line[end] >= '0' && line[end] <= '9')
            ++end;
        return end > at ? end : std::string::npos;
    };
    const std::size_t source = digitsFrom(0);
    if (source == std::string::npos || line[source] != ':')
        return std::string::npos;
    const std::size_t open = digitsFrom(source + 1);
    if (open == std::string::npos || line[open] != '(')
        return std::string::npos;
    const std::size_t close = digitsFrom(open + 1);
    if (close == std::string::npos || line.compare(close, 2, "):") != 0)
        return std::string::npos;
    return open;
}

// Mesa's lines count from 1 like the others. The stored number is read by the vendor's own
// convention (NVIDIA's form prints it plus one, ATI's as it is), so that entries made for the
// vendor in effect name the same line whichever form the driver writes.
std::string mapMesaLine(const std::string& line, std::size_t open, const std::vector<int>& lines,
                        const std::vector<std::string>& files, Program::Vendor vendor)
{
    const std::size_t colon = line.find(':');
    const std::size_t i = entryIndex(StringTools::stringToInt(line.substr(colon + 1, open - colon - 1)));
    if (i >= lines.size() || i >= files.size())
        return line;
    const long long number = static_cast<long long>(lines[i]) + (vendor == Program::NVIDIA ? 1 : 0);
    return files[i] + ":" + std::to_string(number) + line.substr(open);
}
} // namespace

Shader::Shader(ShaderType type) : handle(glCreateShader(static_cast<GLenum>(type)))
{
    TAVRIN_GL_CHECK();
}

Shader::Shader(ShaderType type, const std::string& fileName, const FileLoader* loader)
    : handle(glCreateShader(static_cast<GLenum>(type)))
{
    compileOrRelease(
        [&] { return loader ? loader->loadFileAsString(fileName) : FileTools::loadFileAsString(fileName); });
}

Shader::Shader(ShaderType type, const std::string& source) : handle(glCreateShader(static_cast<GLenum>(type)))
{
    compileOrRelease([&] { return source; });
}

Shader::Shader(ShaderType type, const ShaderSource& source) : handle(glCreateShader(static_cast<GLenum>(type)))
{
    compileOrRelease([&] { return source.text; }, &source);
}

void Shader::compileOrRelease(const std::function<std::string()>& loadSource, const ShaderSource* assembled)
{
    // A throwing constructor runs no destructor: release the GL shader here.
    try
    {
        TAVRIN_GL_CHECK();
        const std::string source = loadSource();
        const GLchar* text = source.c_str();
        glShaderSource(handle, 1, &text, nullptr);
        TAVRIN_GL_CHECK();
        glCompileShader(handle);
        TAVRIN_GL_CHECK();
        if (assembled)
        {
            std::string unused;
            std::vector<int> lines = assembled->linesFor(Program::getVendor());
            std::vector<std::string> files = assembled->files;
            checkStatus(unused, lines, files);
        }
        else
            checkStatus();
    }
    catch (...)
    {
        glDeleteShader(handle);
        throw;
    }
}

Shader::~Shader()
{
    glDeleteShader(handle);
}

unsigned int Shader::getHandle() const
{
    return handle;
}

std::string Shader::getSource() const
{
    GLint length = 0;
    glGetShaderiv(handle, GL_SHADER_SOURCE_LENGTH, &length);
    if (length <= 0)
        return std::string();
    // GL is told eight times the source length, as always; the buffer really is that large,
    // so even a driver that took the size at its word stays inside it.
    const GLsizei size = length > INT_MAX / 8 ? INT_MAX : 8 * length;
    std::vector<char> buffer(static_cast<std::size_t>(size), '\0');
    GLsizei written = 0;
    glGetShaderSource(handle, size, &written, buffer.data());
    return untilNul(buffer);
}

bool Shader::getStatus(GLuint shader, GLenum pname)
{
    GLint value = 0;
    glGetShaderiv(shader, pname, &value);
    TAVRIN_GL_CHECK();
    return value == GL_TRUE;
}

void Shader::getText(GLuint shader, std::string& text)
{
    text.clear();
    GLint length = 0;
    glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
    if (length <= 0)
        return;
    std::vector<char> buffer(static_cast<std::size_t>(length), '\0');
    GLsizei written = 0;
    glGetShaderInfoLog(shader, length, &written, buffer.data());
    text = untilNul(buffer);
}

void Shader::checkStatus()
{
    if (getStatus(handle, GL_COMPILE_STATUS))
        return;
    std::string log;
    getText(handle, log);
    throw GLSLException(log);
}

void Shader::checkStatus(std::string& /*text*/, std::vector<int>& lines, std::vector<std::string>& files)
{
    if (getStatus(handle, GL_COMPILE_STATUS))
        return;
    std::string log;
    getText(handle, log);
    throw GLSLException(mapInfoLog(log, lines, files, Program::getVendor()));
}

std::string Shader::mapInfoLog(const std::string& log, const std::vector<int>& lines,
                               const std::vector<std::string>& files, Program::Vendor vendor)
{
    std::string mapped;
    bool first = true;
    for (const std::string& line : StringTools::tokenize(log, "\n"))
    {
        if (!first)
            mapped += '\n';
        first = false;
        const std::size_t mesaColumn = mesaColumnStart(line);
        if (mesaColumn != std::string::npos)
            mapped += mapMesaLine(line, mesaColumn, lines, files, vendor);
        else
            mapped += vendor == Program::NVIDIA ? mapNvidiaLine(line, lines, files) : mapAtiLine(line, lines, files);
    }
    return mapped;
}
} // namespace OpenGL
} // namespace Tavrin
