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
    static RenderContextHandle getContext(DeviceContextHandle const deviceContext);

    OpenGLContext& operator=(const OpenGLContext&) { return *this; }

private:
    OpenGLContext() {}
    ~OpenGLContext() {}
};
} // namespace OpenGL
} // namespace Tavrin
