#pragma once

#include <opengl/Platform.h>

#include <memory>

namespace Tavrin
{
namespace OpenGL
{
/// A rendering context without a visible window, for tests, tools and offscreen hosts.
/// Linux: an EGL surfaceless context (Mesa's EGL_MESA_platform_surfaceless), OpenGL 4.5
/// compatibility profile. Windows: a hidden window with a WGL context from
/// OpenGLContext::getContext. It has no default framebuffer to draw into: render into
/// framebuffer objects. After OpenGLContext::requestDebugContexts(true) it is a debug context.
///
/// The context is current on the constructing thread while the object lives; the destructor
/// releases it (and makes no context current). Call OpenGLContext::init() after construction.
/// Several may live at once, one per thread for example: on Linux they share one EGL display,
/// which the last of them terminates.
class TAVRIN_OPENGL_EXPORT HeadlessContext
{
public:
    /// Creates the context and makes it current. Throws std::runtime_error naming the step
    /// that failed (Linux: "HeadlessContext: <step> failed (EGL error 0x<code>)", the code that
    /// step left, read before the display is terminated again).
    HeadlessContext();
    ~HeadlessContext();
    HeadlessContext(const HeadlessContext&) = delete;
    HeadlessContext& operator=(const HeadlessContext&) = delete;

    /// Makes this context current again on the calling thread.
    void makeCurrent() const;

    struct Native;

private:
    std::unique_ptr<Native> native;
};
} // namespace OpenGL
} // namespace Tavrin
