#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <cstdio>
#include <mutex>
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
// Every surfaceless context lives on the one display, and EGL does not count eglInitialize: the
// first eglTerminate would end the contexts of every other thread. The contexts count themselves.
std::mutex displayUsersMutex;
int displayUsers = 0;

// Initializes the display and counts the caller as one of its users, under the same lock as the
// last user's eglTerminate (so a display being terminated is never counted as initialized).
bool useDisplay(EGLDisplay display)
{
    const std::lock_guard<std::mutex> lock(displayUsersMutex);
    if (!eglInitialize(display, nullptr, nullptr))
        return false;
    ++displayUsers;
    return true;
}

void releaseDisplay(EGLDisplay display)
{
    const std::lock_guard<std::mutex> lock(displayUsersMutex);
    if (--displayUsers == 0)
        eglTerminate(display);
}

// Throws naming the failed step and its EGL error, read before `used` (if any) is released:
// eglTerminate resets the error.
[[noreturn]] void fail(const char* step, EGLDisplay used = EGL_NO_DISPLAY)
{
    char code[16];
    std::snprintf(code, sizeof code, "%04X", eglGetError());
    if (used != EGL_NO_DISPLAY)
        releaseDisplay(used);
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
    if (!useDisplay(native->display))
        fail("eglInitialize");
    if (!eglBindAPI(EGL_OPENGL_API))
        fail("eglBindAPI(EGL_OPENGL_API)", native->display);
    // Without the debug request the attributes stop before the debug flag (an EGL 1.5 name).
    const EGLint debug = OpenGLContext::debugContextsRequested() ? EGL_CONTEXT_OPENGL_DEBUG : EGL_NONE;
    const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                 4,
                                 EGL_CONTEXT_MINOR_VERSION,
                                 5,
                                 EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                 EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT,
                                 debug,
                                 EGL_TRUE,
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
    releaseDisplay(native->display);
}

void HeadlessContext::makeCurrent() const
{
    if (!eglMakeCurrent(native->display, EGL_NO_SURFACE, EGL_NO_SURFACE, native->context))
        fail("eglMakeCurrent");
}
} // namespace OpenGL
} // namespace Tavrin
