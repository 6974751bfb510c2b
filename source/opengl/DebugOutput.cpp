#include <opengl/DebugOutput.h>

#include <opengl/Framebuffer.h>
#include <opengl/GLCheck.h>
#include <opengl/Program.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
bool Detail::debugErrorsThrow = false;

namespace
{
DebugOutput::Options options;
bool enabled = false;
bool outputWasOn = false;
bool synchronousWasOn = false;

// Set by the callback, read at the next check point; per thread because the callback runs on
// the thread whose call failed (synchronous mode).
thread_local bool errorRecorded = false;

const char* sourceName(GLenum source)
{
    switch (source)
    {
    case GL_DEBUG_SOURCE_API:
        return "API";
    case GL_DEBUG_SOURCE_WINDOW_SYSTEM:
        return "Window system";
    case GL_DEBUG_SOURCE_SHADER_COMPILER:
        return "Shader compiler";
    case GL_DEBUG_SOURCE_THIRD_PARTY:
        return "Third party";
    case GL_DEBUG_SOURCE_APPLICATION:
        return "Application";
    default:
        return "Other";
    }
}

const char* typeName(GLenum type)
{
    switch (type)
    {
    case GL_DEBUG_TYPE_ERROR:
        return "Error";
    case GL_DEBUG_TYPE_DEPRECATED_BEHAVIOR:
        return "Deprecated behaviour";
    case GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR:
        return "Undefined behaviour";
    case GL_DEBUG_TYPE_PORTABILITY:
        return "Portability";
    case GL_DEBUG_TYPE_PERFORMANCE:
        return "Performance";
    case GL_DEBUG_TYPE_MARKER:
        return "Marker";
    case GL_DEBUG_TYPE_PUSH_GROUP:
        return "Push group";
    case GL_DEBUG_TYPE_POP_GROUP:
        return "Pop group";
    default:
        return "Other";
    }
}

DebugOutput::Severity severityOf(GLenum severity)
{
    switch (severity)
    {
    case GL_DEBUG_SEVERITY_HIGH:
        return DebugOutput::Severity::High;
    case GL_DEBUG_SEVERITY_MEDIUM:
        return DebugOutput::Severity::Medium;
    case GL_DEBUG_SEVERITY_LOW:
        return DebugOutput::Severity::Low;
    default:
        return DebugOutput::Severity::Notification;
    }
}

// One line: trailing line breaks go, inner ones become blanks.
std::string oneLine(const GLchar* message, GLsizei length)
{
    std::string text = length >= 0 ? std::string(message, std::size_t(length)) : std::string(message);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::replace(text.begin(), text.end(), '\r', ' ');
    return text;
}

// No GL call and no throw in here: GL may be inside one of its own calls.
void GLAPIENTRY writeMessage(GLenum source, GLenum type, GLuint id, GLenum severity, GLsizei length,
                             const GLchar* message, const void*)
{
    if (options.throwOnError && !GLCheck::enableGLCheck && source == GL_DEBUG_SOURCE_API && type == GL_DEBUG_TYPE_ERROR)
        errorRecorded = true;
    const DebugOutput::Severity level = severityOf(severity);
    if (level < options.minimumSeverity)
        return;
    std::ostream& stream = level == DebugOutput::Severity::High ? std::cerr : std::cout;
    const char* prefix = level == DebugOutput::Severity::High     ? "ERROR: "
                         : level == DebugOutput::Severity::Medium ? "WARNING: "
                                                                  : "INFO: ";
    stream << prefix << "GLDebug: " << sourceName(source) << ", " << typeName(type) << ", id " << id << ": "
           << oneLine(message, length);
}

void label(GLenum identifier, GLuint name, GLboolean exists, const std::string& text)
{
    if (!exists || !DebugOutput::isAvailable())
        return;
    GLint maximum = 0;
    glGetIntegerv(GL_MAX_LABEL_LENGTH, &maximum);
    const std::size_t length = std::min(text.size(), std::size_t(std::max(maximum - 1, 0)));
    glObjectLabel(identifier, name, GLsizei(length), text.data());
    TAVRIN_GL_CHECK();
}
} // namespace

bool DebugOutput::isAvailable()
{
    return (GLEW_VERSION_4_3 || GLEW_KHR_debug) && glDebugMessageCallback && glObjectLabel;
}

bool DebugOutput::enable(const Options& wanted)
{
    if (!isAvailable())
        return false;
    if (!enabled)
    {
        outputWasOn = glIsEnabled(GL_DEBUG_OUTPUT);
        synchronousWasOn = glIsEnabled(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    }
    options = wanted;
    options.synchronous = wanted.synchronous || wanted.throwOnError;
    enabled = true;
    Detail::debugErrorsThrow = options.throwOnError;
    // GL starts with LOW messages off; the driver drops what is below the minimum before it
    // formats it. API errors stay on when they are to be thrown.
    const GLenum severities[] = {GL_DEBUG_SEVERITY_NOTIFICATION, GL_DEBUG_SEVERITY_LOW, GL_DEBUG_SEVERITY_MEDIUM,
                                 GL_DEBUG_SEVERITY_HIGH};
    for (int level = 0; level < 4; ++level)
        glDebugMessageControl(GL_DONT_CARE, GL_DONT_CARE, severities[level], 0, nullptr,
                              level >= int(options.minimumSeverity));
    if (options.throwOnError)
        glDebugMessageControl(GL_DEBUG_SOURCE_API, GL_DEBUG_TYPE_ERROR, GL_DONT_CARE, 0, nullptr, GL_TRUE);
    glDebugMessageCallback(writeMessage, nullptr);
    glEnable(GL_DEBUG_OUTPUT);
    if (options.synchronous)
        glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    else if (!synchronousWasOn)
        glDisable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    return true;
}

bool DebugOutput::enable()
{
    return enable(Options());
}

void DebugOutput::disable()
{
    if (!enabled)
        return;
    glDebugMessageCallback(nullptr, nullptr);
    glDebugMessageControl(GL_DONT_CARE, GL_DONT_CARE, GL_DONT_CARE, 0, nullptr, GL_TRUE);
    glDebugMessageControl(GL_DONT_CARE, GL_DONT_CARE, GL_DEBUG_SEVERITY_LOW, 0, nullptr, GL_FALSE);
    if (!outputWasOn)
        glDisable(GL_DEBUG_OUTPUT);
    if (!synchronousWasOn)
        glDisable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    enabled = false;
    Detail::debugErrorsThrow = false;
    errorRecorded = false;
}

bool DebugOutput::isEnabled()
{
    return enabled;
}

void DebugOutput::throwPendingError()
{
    if (!errorRecorded)
        return;
    errorRecorded = false;
    const GLenum error = glGetError();
    if (error != GL_NO_ERROR)
        throw std::runtime_error(GLCheck::errorMessage(error));
}

void DebugOutput::setLabel(const Texture2D& texture, const std::string& text)
{
    label(GL_TEXTURE, texture.getHandle(), glIsTexture(texture.getHandle()), text);
}

void DebugOutput::setLabel(const Program& program, const std::string& text)
{
    label(GL_PROGRAM, program.getHandle(), glIsProgram(program.getHandle()), text);
}

void DebugOutput::setLabel(const Framebuffer& framebuffer, const std::string& text)
{
    label(GL_FRAMEBUFFER, framebuffer.getHandle(), glIsFramebuffer(framebuffer.getHandle()), text);
}
} // namespace OpenGL
} // namespace Tavrin
