#pragma once

#include <opengl/Platform.h>

#include <Eigen/Core>

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
class Texture2D;

/// A native window with a double-buffered OpenGL pixel format, on which the host shows results.
///
/// All windows share one process-wide rendering context: every constructor drops the current
/// one and creates a fresh context for its own window, and from then on every window (older
/// ones included) makes that newest context current in makeCurrent, swap and presentTexture.
/// Contexts are never deleted.
///
/// Message numbers, wParam and lParam are those of Win32 on every platform (WM_CLOSE 0x0010,
/// WM_QUIT 0x0012, WM_KEYDOWN 0x0100, WM_SYSKEYDOWN 0x0104, ...); other platforms map their
/// native events onto them.
///
/// Platform state lives behind the handle types of <opengl/Platform.h> (HWND/HDC on Win32; on
/// X11 the window's XID and the X11DeviceContext record that the window owns); the class holds
/// no further pointer to back-end data.
///
/// Guard: a window whose creation failed (no native window) makes no platform call in the
/// geometry, full-screen and monitor operations: setters and setFullscreen do nothing, the size
/// and position getters return (0, 0), getMonitorIndex returns 0. Message dispatch still works
/// (systemWindowProcInternal), and processMessages still pumps the thread's queue.
///
/// Copying is member-wise: a copy holds the same native window and device context as its
/// source, and both release them on destruction. Do not copy windows that are still alive.
class TAVRIN_OPENGL_EXPORT OpenGLWindow
{
public:
    /// A window rectangle in screen pixels (Win32's RECT): left, top, right, bottom.
    struct Rect
    {
        int left = 0;
        int top = 0;
        int right = 0;
        int bottom = 0;
    };

    /// One display monitor.
    struct Monitor
    {
        /// The monitor's handle, as enumerated.
        MonitorHandle handle = MonitorHandle();
        /// The device context handed to the enumeration; always null (enumerated without one).
        DeviceContextHandle deviceContext = DeviceContextHandle();
        /// x = LEFT edge, y = BOTTOM edge of the whole monitor rectangle (not its top, and not
        /// the work area), in virtual-screen coordinates. setMonitorIndex uses it as stored.
        Eigen::Vector2i position = Eigen::Vector2i::Zero();
        /// (right - left, bottom - top) of the monitor rectangle.
        Eigen::Vector2i size = Eigen::Vector2i::Zero();
    };

    /// Creates and shows a window titled `title` whose client area is 400 x 300, with its outer
    /// top-left corner at (100, 100); `parent` null makes a top-level window. On Win32 the
    /// window class is named after the title, widened byte by byte with sign extension (bytes
    /// 0x80-0xFF become 0xFF80-0xFFFF), while the window is created with the narrow title: a
    /// title with such bytes names two different classes, and creation then fails. A second
    /// window of the same title reuses the class registered first (the second registration fails
    /// silently). The pixel format asks
    /// for double buffering, stereo, 24 colour and 8 alpha bits and no depth buffer. A fresh
    /// rendering context is created, made current, given 1-byte pack and unpack alignment, and
    /// becomes the context of every window. The window is swapped once and the GL error check
    /// runs (it may throw std::runtime_error).
    ///
    /// Failures throw nothing; they write one diagnostic to std::cerr and leave the object inert:
    /// "ERROR: Failed to create window." (null window and device context),
    /// "ERROR: Failed to create device context." (window, no device context),
    /// "ERROR: Failed to set pixel format." (no rendering context; the process-wide one stays
    /// null, since the constructor reset it).
    OpenGLWindow(const std::string& title, WindowHandle parent = WindowHandle());

    /// Releases the device context and destroys the native window (each only when not null).
    /// The rendering context is kept, and the window class stays registered.
    ~OpenGLWindow();

    OpenGLWindow(const OpenGLWindow&) = default;
    OpenGLWindow& operator=(const OpenGLWindow&) = default;

    /// Makes the shared rendering context current on this window's device context.
    /// Guard: does nothing when this window has no device context or no rendering context exists
    /// (on Win32 a null context would release the caller's current context; on X11 it is an
    /// error). Since every constructor resets the shared context, a window whose creation failed
    /// before its context was made leaves none: until the next successful construction,
    /// makeCurrent, swap and presentTexture of every window do nothing.
    void makeCurrent() const;

    /// makeCurrent(), then presents the back buffer. Guard: does nothing in the cases where
    /// makeCurrent does nothing.
    void swap() const;

    /// Draws `texture` over the window as a full-viewport quad and swaps. With `stretch` the
    /// viewport is the client area (the image fills it); without, it is the texture's own size
    /// from the lower-left corner (drawn 1:1). No clear is issued.
    ///
    /// GL state left behind: the shared context current on this window; GL_CULL_FACE, GL_BLEND
    /// and GL_DEPTH_TEST disabled, GL_TEXTURE_2D enabled; projection and model-view matrices
    /// identity, GL_MODELVIEW the matrix mode; clear colour (0, 0, 0, 0); the viewport as above;
    /// program 0; the default framebuffer bound; texture 2D binding 0. The texture keeps
    /// GL_CLAMP_TO_EDGE wrapping and GL_NEAREST filtering. Throws std::runtime_error from the GL
    /// error check of the framebuffer unbinding (Framebuffer::unbind).
    /// Guard: does nothing (no GL call) when `texture` is null or makeCurrent would do nothing.
    void presentTexture(std::shared_ptr<const Texture2D> texture, bool stretch);

    /// Replaces the callback run for WM_CLOSE and WM_QUIT reaching this window (empty clears it).
    void setOnWindowClosed(std::function<void(OpenGLWindow*)> callback);

    /// Replaces the callback run for WM_KEYDOWN and WM_SYSKEYDOWN (key repeats included) with the
    /// virtual-key code (the message's wParam). Empty clears it.
    void setOnKeyDown(std::function<void(OpenGLWindow*, unsigned long long)> callback);

    /// Adds a handler under `name` (exact, case-sensitive) or replaces the one of that name.
    /// Every handler sees every message of this window, after the callbacks, in the map's own
    /// order (not the order of addition). An empty handler makes dispatch throw
    /// std::bad_function_call.
    /// Guard: callbacks and handlers may add, replace or remove handlers (and callbacks) while
    /// they run: the handler stage walks the names present when it started, skips names removed
    /// meanwhile and calls a replaced handler's new function; names added meanwhile first see the
    /// next message.
    void addMesageHandler(const std::string& name,
                          std::function<void(OpenGLWindow*, unsigned int, unsigned long long, long long)> handler);

    /// Removes the handler of that name; an absent name is ignored.
    void removeMesageHandler(const std::string& name);

    /// Processes one message for this window (the window procedure calls it; a host may too):
    /// first at most one callback (WM_CLOSE/WM_QUIT: onWindowClosed; WM_KEYDOWN/WM_SYSKEYDOWN:
    /// onKeyDown), then every named handler, each called through a copy of its name and handler.
    /// Messages are observed, never consumed. Always returns 0. Exceptions of callbacks and
    /// handlers (std::bad_function_call for an empty handler) propagate.
    long long systemWindowProcInternal(unsigned int message, unsigned long long wParam, long long lParam);

    /// Dispatches every message waiting in the calling thread's queue (all its windows), without
    /// waiting for more. After dispatch the platform's default processing always runs; a WM_CLOSE
    /// therefore reaches onWindowClosed and then destroys the native window.
    void processMessages() const;

    /// Moves the outer window's top-left corner to `position` (size, z-order and activation kept).
    void setPosition(const Eigen::Vector2i& position) const;
    /// Sets the outer size, frame included (position, z-order and activation kept).
    void setSize(const Eigen::Vector2i& size) const;
    /// Sets the outer size for which a framed overlapped window would have this client size;
    /// the framed style is assumed even in full screen (the client area is then smaller).
    void setClientSize(const Eigen::Vector2i& size) const;
    /// The outer window's top-left corner in screen pixels.
    Eigen::Vector2i getPosition() const;
    /// The outer size, frame included.
    Eigen::Vector2i getSize() const;
    /// The client rectangle's top-left corner in client coordinates: always (0, 0).
    Eigen::Vector2i getClientPosition() const;
    /// The client area's size.
    Eigen::Vector2i getClientSize() const;

    /// Enters or leaves borderless full screen over the window's nearest monitor (the whole
    /// monitor rectangle; the display mode is not changed). Entering saves the maximised state,
    /// the styles and the restored window rectangle, removing caption and sizing frame; leaving
    /// restores them and maximises again a window that was maximised. A request for the current
    /// state does nothing (and saves nothing).
    void setFullscreen(bool on);
    bool getFullscreen() const;

    /// The process-wide monitor list, filled by one enumeration when first found empty and never
    /// refreshed; indices follow the platform's enumeration order.
    static const std::vector<Monitor>& getMonitors();
    /// The index of the monitor nearest to the window in getMonitors(); 0 when that monitor is
    /// not in the list.
    int getMonitorIndex() const;
    /// getMonitors()[getMonitorIndex()].
    /// Guard: with an empty monitor list, a record with a null handle and zero position and size.
    const Monitor& getMonitor() const;
    /// Moves the window to the monitor `index`, clamped to [0, count - 1], keeping its offset from
    /// the current monitor's stored position (left, bottom) and its size; a full-screen window
    /// leaves and re-enters full screen around the move. Nothing happens when the clamped index
    /// is the current one. Guard: with an empty monitor list, nothing happens.
    void setMonitorIndex(int index);

    /// Addition: the native window (null when creation failed). Not closed by the platform's
    /// destruction of the window: after a default-processed WM_CLOSE it is stale.
    WindowHandle getWindowHandle() const { return windowHandle; }
    /// Addition: the window's device context (null when creation failed).
    DeviceContextHandle getDeviceContext() const { return deviceContext; }

private:
    // The creation steps, called only by the constructor.
    void init(const std::string& title, WindowHandle parent);
    // Releases the device context and destroys the native window.
    void dispose();

    WindowHandle windowHandle;
    DeviceContextHandle deviceContext;
    bool fullscreen;
    bool savedMaximized;
    int savedStyle;
    int savedExStyle;
    Rect savedRect;
    std::function<void(OpenGLWindow*)> onWindowClosed;
    std::function<void(OpenGLWindow*, unsigned long long)> onKeyDown;
    std::unordered_map<std::string, std::function<void(OpenGLWindow*, unsigned int, unsigned long long, long long)>>
        messageHandlers;

    static RenderContextHandle renderContext;
    static std::vector<Monitor> monitors;
};
} // namespace OpenGL
} // namespace Tavrin
