#include <opengl/HeadlessContext.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace Tavrin
{
namespace OpenGL
{
struct HeadlessContext::Native
{
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
};

namespace
{
// Throws naming the failed step and its EGL error, read before `initialized` (if any) is
// terminated: eglTerminate resets the error.
[[noreturn]] void fail(const char* step, EGLDisplay initialized = EGL_NO_DISPLAY)
{
    char code[16];
    std::snprintf(code, sizeof code, "%04X", eglGetError());
    if (initialized != EGL_NO_DISPLAY)
        eglTerminate(initialized);
    throw std::runtime_error(std::string("HeadlessContext: ") + step + " failed (EGL error 0x" + code + ")");
}
} // namespace

HeadlessContext::HeadlessContext() : native(new Native)
{
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getPlatformDisplay)
        fail("eglGetPlatformDisplayEXT lookup");
    native->display = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (native->display == EGL_NO_DISPLAY)
        fail("eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA)");
    if (!eglInitialize(native->display, nullptr, nullptr))
        fail("eglInitialize");
    if (!eglBindAPI(EGL_OPENGL_API))
        fail("eglBindAPI(EGL_OPENGL_API)", native->display);
    const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                 4,
                                 EGL_CONTEXT_MINOR_VERSION,
                                 5,
                                 EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                 EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT,
                                 EGL_NONE};
    native->context = eglCreateContext(native->display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
    if (native->context == EGL_NO_CONTEXT)
        fail("eglCreateContext (OpenGL 4.5 compatibility)", native->display);
    makeCurrent();
}

HeadlessContext::~HeadlessContext()
{
    eglMakeCurrent(native->display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(native->display, native->context);
    eglTerminate(native->display);
}

void HeadlessContext::makeCurrent() const
{
    if (!eglMakeCurrent(native->display, EGL_NO_SURFACE, EGL_NO_SURFACE, native->context))
        fail("eglMakeCurrent");
}
} // namespace OpenGL
} // namespace Tavrin
