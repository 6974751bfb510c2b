#pragma once

#include <opengl/Platform.h>

namespace Tavrin
{
namespace OpenGL
{
/// Starts the GL function loader and creates rendering contexts. Never instantiated.
class TAVRIN_OPENGL_EXPORT OpenGLContext
{
public:
    /// Starts GLEW for the current context; call once a context is current, before any GL 2.0+
    /// entry point is used. glewInit's result is ignored (under a headless EGL context Debian's
    /// GLX-built GLEW reports GLEW_ERROR_NO_GLX_DISPLAY, yet every GL entry point is loaded).
    ///
    /// Addition: GLEW loads glTextureStorage2DEXT only when the driver advertises
    /// GL_EXT_texture_storage, which Mesa does not although it has the entry point. When the
    /// pointer is still null and the driver has GL_EXT_direct_state_access and
    /// GL_ARB_texture_storage, init() loads it by name. GLEW's experimental mode is not used: it
    /// would report extensions the driver lacks (GL_NV_transform_feedback on Mesa).
    static void init();

    /// Creates a new rendering context for `deviceContext` and makes it current on it.
    /// Returns null, doing nothing else, when the context cannot be created. Every call creates
    /// a further context; the caller keeps the one it got (contexts are never deleted here).
    /// Win32: wglCreateContext + wglMakeCurrent. X11: glXCreateNewContext with the record's
    /// frame-buffer configuration + glXMakeContextCurrent on its drawable.
    /// With debug contexts requested (see below) the context is made through the create-context
    /// extension with the debug flag instead: Win32, a wglCreateContext context made current to
    /// reach wglCreateContextAttribsARB, which then makes the debug context that replaces (and
    /// deletes) it; X11, glXCreateContextAttribsARB with the same configuration. No version or
    /// profile is asked for, so the driver gives its highest compatible version, as without. Where
    /// the extension is missing or refuses, the ordinary context is kept (GL_CONTEXT_FLAGS tells).
    static RenderContextHandle getContext(DeviceContextHandle const deviceContext);

    /// Process-wide, initially false: when true, the contexts made from then on (getContext, so
    /// every new window's, and HeadlessContext's) are debug contexts (GL_CONTEXT_FLAG_DEBUG_BIT),
    /// in which drivers report fully through DebugOutput and GL_DEBUG_OUTPUT starts enabled.
    /// Contexts made before keep what they are. Headless on Linux: EGL_CONTEXT_OPENGL_DEBUG.
    static void requestDebugContexts(bool request);
    /// What requestDebugContexts last set (false before any call).
    static bool debugContextsRequested();

    /// Assigning copies nothing: the class holds no data.
    OpenGLContext& operator=(const OpenGLContext&) { return *this; }

private:
    OpenGLContext() {}
    ~OpenGLContext() {}
};
} // namespace OpenGL
} // namespace Tavrin
