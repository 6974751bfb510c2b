// Placement of X11 windows: geometry, maximise and full screen, carried out by the window
// manager before each call returns.
#include "../WindowBackend.h"

#include "X11Monitors.h"
#include "X11WindowManager.h"
#include "X11Windows.h"

#include <algorithm>
#include <functional>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
using X11::AtomName;

// A placement request, carried out before it returns: Win32 sends WM_MOVE and WM_SIZE from
// inside SetWindowPos, so the result is reported now, and the ConfigureNotify events still
// queued find nothing new to tell.
void carryOut(Window window, const std::function<bool()>& done)
{
    X11::waitForWindowManager(window, done);
    X11::reportPlacement(window);
}

void setMaximized(Window window, bool on)
{
    if (!X11::isLiveWindow(window) || X11::maximized(window) == on)
        return;
    X11::changeStates(window, on, AtomName::NetWmStateMaximizedVert, AtomName::NetWmStateMaximizedHorz);
    carryOut(window, [&] { return X11::maximized(window) == on; });
}

void setFullscreenState(Window window, bool on)
{
    if (!X11::isLiveWindow(window) || X11::hasState(window, AtomName::NetWmStateFullscreen) == on)
        return;
    X11::changeStates(window, on, AtomName::NetWmStateFullscreen, AtomName::Count);
    carryOut(window, [&] { return X11::hasState(window, AtomName::NetWmStateFullscreen) == on; });
}
} // namespace

namespace WindowBackend
{
OpenGLWindow::Rect windowRect(WindowHandle window)
{
    return X11::isLiveWindow(window) ? X11::outerRect(window) : OpenGLWindow::Rect();
}

OpenGLWindow::Rect clientRect(WindowHandle window)
{
    OpenGLWindow::Rect rect;
    int x = 0, y = 0;
    if (X11::isLiveWindow(window))
        X11::clientGeometry(window, x, y, rect.right, rect.bottom);
    return rect;
}

void moveWindow(WindowHandle window, int x, int y)
{
    if (!X11::isLiveWindow(window))
        return;
    XMoveWindow(X11::display(), window, x, y);
    carryOut(window, [&] {
        const OpenGLWindow::Rect rect = X11::outerRect(window);
        return rect.left == x && rect.top == y;
    });
}

void resizeWindow(WindowHandle window, int width, int height)
{
    if (!X11::isLiveWindow(window))
        return;
    const X11::FrameExtents extents = X11::frameExtents(window);
    XResizeWindow(X11::display(), window, static_cast<unsigned int>(std::max(1, width - extents.left - extents.right)),
                  static_cast<unsigned int>(std::max(1, height - extents.top - extents.bottom)));
    carryOut(window, [&] {
        const OpenGLWindow::Rect rect = X11::outerRect(window);
        return rect.right - rect.left == width && rect.bottom - rect.top == height;
    });
}

Eigen::Vector2i outerSizeForClient(int width, int height)
{
    const X11::FrameExtents framed = X11::lastFrameExtents();
    return Eigen::Vector2i(width + framed.left + framed.right, height + framed.top + framed.bottom);
}

bool isMaximized(WindowHandle window)
{
    return X11::isLiveWindow(window) && X11::maximized(window);
}

void restoreFromMaximized(WindowHandle window)
{
    setMaximized(window, false);
}

void maximize(WindowHandle window)
{
    setMaximized(window, true);
}

SavedWindowState saveState(WindowHandle window)
{
    SavedWindowState saved;
    saved.fullscreen = X11::isLiveWindow(window) && X11::hasState(window, AtomName::NetWmStateFullscreen);
    return saved;
}

void restoreState(WindowHandle window, const SavedWindowState& saved)
{
    setFullscreenState(window, saved.fullscreen);
}

// The window manager removes the frame of a full-screen window.
void makeBorderless(WindowHandle window, const SavedWindowState&)
{
    setFullscreenState(window, true);
}

MonitorHandle monitorFromWindow(WindowHandle window)
{
    if (!X11::isLiveWindow(window))
        return MonitorHandle();
    return X11::nearestMonitor(X11::display(), X11::outerRect(window));
}

void placeWindow(WindowHandle window, const OpenGLWindow::Rect& rect)
{
    if (!X11::isLiveWindow(window))
        return;
    const X11::FrameExtents extents = X11::frameExtents(window);
    const int width = rect.right - rect.left, height = rect.bottom - rect.top;
    XMoveResizeWindow(X11::display(), window, rect.left, rect.top,
                      static_cast<unsigned int>(std::max(1, width - extents.left - extents.right)),
                      static_cast<unsigned int>(std::max(1, height - extents.top - extents.bottom)));
    carryOut(window, [&] { return X11::sameRect(X11::outerRect(window), rect); });
}

} // namespace WindowBackend
} // namespace OpenGL
} // namespace Tavrin
