#pragma once

#include <opengl/Platform.h>

#include <string>

namespace Tavrin
{
namespace OpenGL
{
class Framebuffer;
class Program;
class Texture2D;

/// The driver's own debug output (GL_KHR_debug, core since GL 4.3) as the library's diagnostics:
/// every GL error, and the driver's performance and undefined-behaviour warnings, reported when
/// they happen with the driver's words, while costing nothing as long as nothing goes wrong. Off
/// until the host calls enable(); nothing else in the library changes while it is off.
///
/// Each message becomes one diagnostic, no line break, no flush:
///   "<prefix>GLDebug: <source>, <type>, id <id>: <driver's text>"
/// with line breaks at the end of the driver's text dropped and those inside turned into blanks.
/// Severity to prefix: GL_DEBUG_SEVERITY_HIGH -> "ERROR: " on std::cerr; MEDIUM -> "WARNING: " on
/// std::cout; LOW and NOTIFICATION -> "INFO: " on std::cout. Sources: "API", "Window system",
/// "Shader compiler", "Third party", "Application", "Other"; types: "Error", "Deprecated
/// behaviour", "Undefined behaviour", "Portability", "Performance", "Marker", "Push group", "Pop
/// group", "Other". Mesa, for glEnable(0xFFFF):
///   "ERROR: GLDebug: API, Error, id 1: GL_INVALID_ENUM in glEnable(0xffff)"
/// (the id is the driver's; Mesa numbers its messages in the order they first occur).
///
/// Errors as exceptions (Options::throwOnError, for hosts that switch GLCheck::enableGLCheck
/// off): GL calls the debug callback inside the failing call, and throwing through the driver's
/// frames is undefined, so the callback only records the error (per thread) and the library
/// throws it at the next check point on that thread: std::runtime_error with the text the GL
/// check throws ("GLCheck: Invalid enum", ...; the code is read with one glGetError there). Check
/// points are the places where the library runs its GL check (the members whose headers say they
/// throw from the GL check) and throwPendingError(). So:
///  - a library call whose failing GL call is followed by its check throws from that call;
///  - a failing GL call with no check after it (the host's own GL calls, library getters such as
///    Texture2D::getSize) surfaces at the next checked library call on that thread, or at the
///    host's throwPendingError();
///  - destructors that run the check (Texture2D, Framebuffer) swallow what they find, as before;
///  - errors are recorded only while GLCheck::enableGLCheck is false (with the check on, the
///    check finds and throws them itself), and only those of source API and type Error that set
///    GL's error flag: shader compile failures reported this way still end in GLSLException.
///
/// State: one set of options for the process, like GLCheck::enableGLCheck; the callback is
/// installed on the context current when enable() runs (call it again for another context).
class TAVRIN_OPENGL_EXPORT DebugOutput
{
public:
    /// GL's four severities, least severe first.
    enum class Severity
    {
        Notification,
        Low,
        Medium,
        High
    };

    /// How enable() reports: the lowest severity written, and whether API errors are thrown.
    struct Options
    {
        /// Messages below this severity are not written: the driver is told to drop them
        /// (glDebugMessageControl), except API errors when they are to be thrown.
        Severity minimumSeverity = Severity::Low;
        /// GL_DEBUG_OUTPUT_SYNCHRONOUS: each message arrives inside the call that caused it, on
        /// the calling thread (a driver may otherwise report later, from a thread of its own).
        bool synchronous = true;
        /// Turns API errors into the GL check's std::runtime_error at the next check point (see
        /// above). Implies synchronous.
        bool throwOnError = false;
    };

    /// True when the current context has debug output (GL 4.3 or GL_KHR_debug, entry points
    /// loaded by OpenGLContext::init()).
    static bool isAvailable();

    /// Installs the library's debug callback on the current context and enables GL_DEBUG_OUTPUT
    /// (and GL_DEBUG_OUTPUT_SYNCHRONOUS when asked). Returns false, changing nothing, when
    /// debug output is not available. Messages the driver logged before are not replayed.
    static bool enable(const Options& options);
    /// enable() with the default options: severity Low and up, synchronous, no throwing.
    static bool enable();

    /// Removes the callback, restores GL_DEBUG_OUTPUT and GL_DEBUG_OUTPUT_SYNCHRONOUS as enable()
    /// found them (a debug context has GL_DEBUG_OUTPUT on from the start), and puts GL's message
    /// control back to its initial state (every message on but those of severity LOW; a host's
    /// own glDebugMessageControl settings are not kept). Forgets a recorded error of this thread.
    /// Does nothing when not enabled.
    static void disable();

    /// True between enable() and disable().
    static bool isEnabled();

    /// The explicit check point: when the callback recorded an error on this thread since the
    /// last check point, forgets it and reads GL's error with glGetError; if one is set, throws
    /// std::runtime_error(GLCheck::errorMessage(code)) (no further diagnostic: the callback has
    /// written it). Otherwise does nothing and makes no GL call.
    static void throwPendingError();

    /// Give a library object a debug label (glObjectLabel), shown by capture and debugging
    /// tools. The label is cut to what GL_MAX_LABEL_LENGTH allows. Do nothing when debug output
    /// is not available or the GL object does not exist yet (a texture never given storage or
    /// bound, a framebuffer never bound or attached to): GL refuses labels on bare names.
    /// Texture2D::reserveStorage makes a new GL texture, which starts unlabelled. Throws
    /// std::runtime_error from the GL check.
    /// While debug output is enabled the library labels what it names itself: a program from
    /// Program::loadFromFile / loadFromFileWithIncludes gets its base name, an output texture that
    /// FramebufferTexture2DDevice::update allocates gets getOutputTextureName(slot) (asked once
    /// more per allocation).
    ///@{
    static void setLabel(const Texture2D& texture, const std::string& label);
    static void setLabel(const Program& program, const std::string& label);
    static void setLabel(const Framebuffer& framebuffer, const std::string& label);
    ///@}
};
} // namespace OpenGL
} // namespace Tavrin
