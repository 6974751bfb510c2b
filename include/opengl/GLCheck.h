#pragma once

#include <opengl/Platform.h>

namespace Tavrin
{
namespace OpenGL
{
/// The GL error check that follows most GL calls of the library.
///
/// A pending GL error is written to std::cout as one warning, "WARNING: <file> (line <n>)
/// <message>", with no line break and no flush, and then thrown as std::runtime_error(<message>).
/// Messages: "GLCheck: Invalid enum", "GLCheck: Invalid value", "GLCheck: Invalid operation",
/// "GLCheck: Stack overflow", "GLCheck: Stack underflow", "GLCheck: Out of memory",
/// "GLCheck: Invalid framebuffer operation" and, for any other code, "GLCheck: Unknown error".
/// A stack overflow writes three warnings instead of one, with the projection, model-view and
/// texture matrix stack depths, and throws "GLCheck: Stack overflow".
class TAVRIN_OPENGL_EXPORT GLCheck
{
public:
    /// Process-wide switch, initially true. When false, check() returns at once and leaves any
    /// pending GL error pending (no glGetError call at all), unless DebugOutput's throwOnError
    /// recorded an error: check() then throws it (DebugOutput::throwPendingError).
    static bool enableGLCheck;

    /// Consumes at most one pending GL error (one glGetError call); reports and throws it as
    /// described above. `file` is the caller's bare source file name, `line` its line number.
    static void check(const char* file, int line);

    /// The message for a GL error code (the table above); "GLCheck: Unknown error" for codes
    /// outside it. Added so that codes GL cannot be made to raise can be looked up directly.
    static const char* errorMessage(unsigned int error);

    ///@{
    /// Assigning copies nothing: the check keeps its settings process-wide.
    GLCheck& operator=(const GLCheck&) { return *this; }
    GLCheck& operator=(GLCheck&&) { return *this; }
    ///@}
};

namespace Detail
{
/// Set while DebugOutput turns errors into exceptions: the check macro then runs with the
/// check switched off too, so that what the debug callback recorded is thrown at the check.
TAVRIN_OPENGL_EXPORT extern bool debugErrorsThrow;

// The part of a path after its last separator, evaluated at compile time by TAVRIN_GL_CHECK.
constexpr const char* bareFileName(const char* path)
{
    const char* name = path;
    for (const char* p = path; *p; ++p)
        if (*p == '/' || *p == '\\')
            name = p + 1;
    return name;
}
} // namespace Detail
} // namespace OpenGL
} // namespace Tavrin

/// Runs the GL error check with the bare name of the current source file and the current line.
#define TAVRIN_GL_CHECK()                                                                                              \
    do                                                                                                                 \
    {                                                                                                                  \
        if (::Tavrin::OpenGL::GLCheck::enableGLCheck || ::Tavrin::OpenGL::Detail::debugErrorsThrow)                    \
        {                                                                                                              \
            constexpr const char* tavrinCheckedFile = ::Tavrin::OpenGL::Detail::bareFileName(__FILE__);                \
            ::Tavrin::OpenGL::GLCheck::check(tavrinCheckedFile, __LINE__);                                             \
        }                                                                                                              \
    } while (false)
