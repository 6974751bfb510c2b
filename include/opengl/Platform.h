#pragma once

// The export macro and the native handle types, the one place where the platforms differ in
// the public interface.

#if defined(_WIN32)
#if defined(TAVRIN_OPENGL_BUILDING)
#define TAVRIN_OPENGL_EXPORT __declspec(dllexport)
#else
#define TAVRIN_OPENGL_EXPORT __declspec(dllimport)
#endif
#else
#define TAVRIN_OPENGL_EXPORT __attribute__((visibility("default")))
#endif

#if defined(_WIN32)
// The same incomplete types that <windows.h> declares for its handles, so hosts can mix both.
struct HWND__;
struct HDC__;
struct HGLRC__;
struct HMONITOR__;
#else
struct _XDisplay;
struct __GLXcontextRec;
struct __GLXFBConfigRec;
#endif

namespace Tavrin
{
namespace OpenGL
{
#if defined(_WIN32)
/// A native window (HWND).
using WindowHandle = HWND__*;
/// A window's device context (HDC).
using DeviceContextHandle = HDC__*;
/// A rendering context (HGLRC).
using RenderContextHandle = HGLRC__*;
/// A display monitor (HMONITOR).
using MonitorHandle = HMONITOR__*;
/// What entering full screen saves of a window for leaving it: its style words (GWL_STYLE,
/// GWL_EXSTYLE).
struct SavedWindowState
{
    int style = 0;   ///< GWL_STYLE as it was.
    int exStyle = 0; ///< GWL_EXSTYLE as it was.
};
#else
/// A native X11 window (XID). 0 means none.
using WindowHandle = unsigned long;

/// What a Win32 device context is to GL on X11: the display connection, the drawable, and the
/// GLX frame-buffer configuration the drawable was created with. A window owns its record.
struct X11DeviceContext
{
    _XDisplay* display = nullptr;                  ///< The display connection.
    unsigned long drawable = 0;                    ///< The window's XID.
    __GLXFBConfigRec* frameBufferConfig = nullptr; ///< The configuration the drawable was made with.
};

/// A device context: a pointer to the window's X11DeviceContext record.
using DeviceContextHandle = X11DeviceContext*;
/// A GLX rendering context (GLXContext).
using RenderContextHandle = __GLXcontextRec*;
/// A display monitor: its XRandR monitor name atom.
using MonitorHandle = unsigned long;
/// What entering full screen saves of a window for leaving it: whether the window manager
/// showed it full screen already.
struct SavedWindowState
{
    bool fullscreen = false; ///< _NET_WM_STATE_FULLSCREEN was set.
};
#endif
} // namespace OpenGL
} // namespace Tavrin
