#pragma once

// Internal: the operations that a window-system back end supplies to OpenGLWindow. The portable
// front end (OpenGLWindow.cpp) holds the logic: creation order and diagnostics, the shared
// rendering context, dispatch to callbacks and handlers, presenting, the full-screen state
// machine and the monitor arithmetic. A back end (win32/OpenGLWindowWin32.cpp; x11/: the windows
// in OpenGLWindowX11.cpp, placement in X11Placement.cpp, monitors in X11Monitors.cpp) only talks
// to its platform. Every operation is called on the thread
// that created the window and must accept handles of a window that the platform has already
// destroyed (after a default-processed close) without crashing; none is called with a null
// window or device context except where said.

#include <opengl/OpenGLWindow.h>

#include <string>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace WindowBackend
{
/// Creates the native window for `owner` and shows it: client area 400 x 300 for the framed
/// style, outer top-left corner at (100, 100), titled `title`, child of `parent` when that is
/// not null. The back end arranges for every native message of the window to reach
/// `owner->systemWindowProcInternal` (from creation on) followed by the platform's default
/// processing. Returns null when the window cannot be created (a `parent` that is not a window
/// must fail); the front end reports that.
WindowHandle createWindow(OpenGLWindow* owner, const std::string& title, WindowHandle parent);

/// The window's device context, kept for the window's life; null on failure.
DeviceContextHandle getDeviceContext(WindowHandle window);

/// Chooses and sets the pixel format: double buffer, stereo requested, RGBA 24 colour and 8
/// alpha bits, no depth, stencil, accumulation or auxiliary buffers. False when it could not be
/// set (no rendering context is created then).
bool setPixelFormat(DeviceContextHandle deviceContext);

/// Releases what getDeviceContext returned. `window` may be null when only the device context
/// remains.
void releaseDeviceContext(WindowHandle window, DeviceContextHandle deviceContext);

/// Destroys the native window.
void destroyWindow(WindowHandle window);

/// Binds `context` to `deviceContext` on the calling thread. Neither is null.
void makeCurrent(DeviceContextHandle deviceContext, RenderContextHandle context);

/// Presents the back buffer of `deviceContext`.
void swapBuffers(DeviceContextHandle deviceContext);

/// Dispatches every message waiting for any window of the calling thread, without waiting.
void processMessages();

/// The outer window rectangle in screen pixels.
OpenGLWindow::Rect windowRect(WindowHandle window);

/// The client rectangle in client coordinates (left and top 0).
OpenGLWindow::Rect clientRect(WindowHandle window);

/// Moves the outer top-left corner; size, z-order and activation kept.
void moveWindow(WindowHandle window, int x, int y);

/// Sets the outer size; position, z-order and activation kept.
void resizeWindow(WindowHandle window, int width, int height);

/// The outer size of a framed overlapped window with this client size.
Eigen::Vector2i outerSizeForClient(int width, int height);

/// Whether the window is maximised.
bool isMaximized(WindowHandle window);

/// Restores a maximised window.
void restoreFromMaximized(WindowHandle window);

/// Maximises the window.
void maximize(WindowHandle window);

/// What leaving full screen restores of the window, in the back end's own SavedWindowState
/// (<opengl/Platform.h>).
SavedWindowState saveState(WindowHandle window);

/// Puts back a state that saveState read.
void restoreState(WindowHandle window, const SavedWindowState& saved);

/// Makes the window borderless for full screen, from the state saved just before (Win32:
/// caption, sizing frame and edges removed from the saved styles).
void makeBorderless(WindowHandle window, const SavedWindowState& saved);

/// The monitor nearest to the window.
MonitorHandle monitorFromWindow(WindowHandle window);

/// The whole rectangle of `monitor` in virtual-screen coordinates; false when it is not known
/// (`monitor` may be null when monitorFromWindow found none).
bool monitorRect(MonitorHandle monitor, OpenGLWindow::Rect& rect);

/// Moves and sizes the outer window to `rect`, z-order and activation kept, frame recomputed.
void placeWindow(WindowHandle window, const OpenGLWindow::Rect& rect);

/// Every monitor, in the platform's order: handle, null device context, position = (left,
/// bottom) and size of the whole monitor rectangle. Monitors whose rectangle cannot be read are
/// left out.
std::vector<OpenGLWindow::Monitor> enumerateMonitors();
} // namespace WindowBackend
} // namespace OpenGL
} // namespace Tavrin
