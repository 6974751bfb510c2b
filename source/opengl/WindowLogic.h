#pragma once

// Internal: the platform-independent parts of OpenGLWindow's placement logic, the monitor
// arithmetic and the full-screen state machine. Header-only, so that the unit tests compile it
// directly and drive it without a window system.

#include <opengl/OpenGLWindow.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace WindowLogic
{
/// The first index whose monitor has `handle`; 0 when none has (including an empty list).
inline int findMonitorIndex(const std::vector<OpenGLWindow::Monitor>& monitors, MonitorHandle handle)
{
    for (std::size_t index = 0; index < monitors.size(); ++index)
        if (monitors[index].handle == handle)
            return static_cast<int>(index);
    return 0;
}

/// min(count - 1, max(index, 0)); -1 for an empty list, which is no index.
inline int clampMonitorIndex(int index, std::size_t count)
{
    return std::min(static_cast<int>(count) - 1, std::max(index, 0));
}

/// Where a window whose outer rectangle is `windowRect` goes on `target` so that its top-left
/// corner keeps its offset from the monitor's stored position. The stored position's y is the
/// monitor's bottom edge, so the vertical offset runs from one bottom edge to the other.
inline Eigen::Vector2i positionOnMonitor(const OpenGLWindow::Rect& windowRect, const OpenGLWindow::Monitor& current,
                                         const OpenGLWindow::Monitor& target)
{
    const int dx = windowRect.left - current.position.x();
    const int dy = windowRect.top - current.position.y();
    return Eigen::Vector2i(target.position.x() + dx, target.position.y() + dy);
}

/// The state that full screen keeps: the flag and what entering saved.
struct FullscreenState
{
    bool fullscreen = false;
    bool savedMaximized = false;
    SavedWindowState savedState;
    OpenGLWindow::Rect savedRect;
};

/// The platform steps of full screen, for one window.
class FullscreenOperations
{
public:
    virtual ~FullscreenOperations() = default;
    virtual bool isMaximized() = 0;
    /// Restores a maximised window (Win32: WM_SYSCOMMAND SC_RESTORE).
    virtual void restore() = 0;
    /// Maximises the window (Win32: WM_SYSCOMMAND SC_MAXIMIZE).
    virtual void maximize() = 0;
    virtual SavedWindowState saveState() = 0;
    virtual void restoreState(const SavedWindowState& saved) = 0;
    /// Removes caption and frames, from the state saved before.
    virtual void makeBorderless(const SavedWindowState& saved) = 0;
    virtual OpenGLWindow::Rect windowRect() = 0;
    /// The whole rectangle of the monitor nearest to the window; false when it is not known.
    virtual bool nearestMonitorRect(OpenGLWindow::Rect& rect) = 0;
    /// Moves and sizes the outer window, z-order and activation kept, frame recomputed.
    virtual void place(const OpenGLWindow::Rect& rect) = 0;
};

/// The two-state machine of borderless full screen. A request for the current state does
/// nothing; the saved values are written only when entering.
inline void switchFullscreen(bool on, FullscreenState& state, FullscreenOperations& operations)
{
    if (on == state.fullscreen)
        return;
    if (on)
    {
        state.savedMaximized = operations.isMaximized();
        if (state.savedMaximized)
            operations.restore(); // so the saved rectangle is the restored one
        state.savedState = operations.saveState();
        state.savedRect = operations.windowRect();
        state.fullscreen = true;
        operations.makeBorderless(state.savedState);
        OpenGLWindow::Rect monitor;
        if (operations.nearestMonitorRect(monitor))
            operations.place(monitor);
    }
    else
    {
        state.fullscreen = false;
        operations.restoreState(state.savedState);
        operations.place(state.savedRect);
        if (state.savedMaximized)
            operations.maximize();
    }
}
} // namespace WindowLogic
} // namespace OpenGL
} // namespace Tavrin
