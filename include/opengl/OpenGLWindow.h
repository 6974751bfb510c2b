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
        int left = 0;   ///< Left edge.
        int top = 0;    ///< Top edge.
        int right = 0;  ///< Right edge.
        int bottom = 0; ///< Bottom edge.
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
    /// rendering context (a debug context after OpenGLContext::requestDebugContexts(true)) is created, made current,
    /// given 1-byte pack and unpack alignment, and becomes the context of every window. The window is swapped once and
    /// the GL error check runs (it may throw std::runtime_error).
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

    ///@{
    /// Member-wise: a copy names the same native window and contexts.
    OpenGLWindow(const OpenGLWindow&) = default;
    OpenGLWindow& operator=(const OpenGLWindow&) = default;
    ///@}

    /// Makes the shared rendering context current on this window's device context.
    /// Guard: does nothing when this window has no device context or no rendering context exists
    /// (on Win32 a null context would release the caller's current context; on X11 it is an
    /// error). On a window whose native window is gone, the thread's context is released, as a
    /// failed wglMakeCurrent does: nothing meant for this window is drawn into another one. Since every constructor
    /// resets the shared context, a window whose creation failed before its context was made leaves none: until the
    /// next successful construction, makeCurrent, swap and presentTexture of every window do nothing.
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
    /// The callbacks are called as stored, so a mutable lambda or functor keeps its state from
    /// one message to the next. Guard: a callback may replace or clear itself (or the other one)
    /// while it runs; it finishes with its captures alive and the replacement takes the next
    /// message. A message sent while it runs reaches the callback set at that moment (itself,
    /// until replaced).
    /// Messages are observed, never consumed. Always returns 0. Exceptions of callbacks and
    /// handlers (std::bad_function_call for an empty handler) propagate.
    long long systemWindowProcInternal(unsigned int message, unsigned long long wParam, long long lParam);

    /// Dispatches every message waiting in the calling thread's queue (all its windows), without
    /// waiting for more. After dispatch the platform's default processing always runs; a WM_CLOSE
    /// therefore reaches onWindowClosed and then destroys the native window.
    void processMessages() const;

    // X11 (Linux) binding, where Win32 has no counterpart to follow:
    //
    // - Connection: all windows of the process share one display connection ($DISPLAY), opened
    //   by the first window and closed when the last window object is destroyed. The GLX
    //   contexts made on it are destroyed with it (a context cannot outlive its connection), so
    //   no context is current afterwards; the next window makes a fresh one, as it would anyway.
    //   X errors on that connection (requests on a window someone else destroyed) are ignored,
    //   as Win32 calls on stale handles fail quietly; errors on other connections reach the
    //   handler installed before.
    // - Window: a top-level window mapped at creation; `parent` becomes its owner
    //   (WM_TRANSIENT_FOR), as Win32 makes an overlapped window with a parent an owned window;
    //   a `parent` that is not a window fails with "Failed to create window.". Destroying a window
    //   destroys the windows it owns first, as DestroyWindow does: each reports WM_DESTROY and
    //   WM_NCDESTROY, and their objects are inert afterwards. The title goes to
    //   WM_NAME, to _NET_WM_NAME (as UTF-8; a title that is not UTF-8 is read as Latin-1) and,
    //   as the class name, to WM_CLASS. The display that cannot be opened also fails with
    //   "Failed to create window.".
    // - Pixel format: every window gets the same GLX frame-buffer configuration, so the one
    //   context fits them all: window-drawable, RGBA, double-buffered, at least 8 bits per colour
    //   channel; preferring stereo, then no caveat, 8 alpha bits, no depth, stencil,
    //   accumulation, auxiliary or multisample buffers, 8-bit channels, the root window's depth.
    //   Without one, the window is made with the default visual and "Failed to set pixel
    //   format." follows. The device context is an X11DeviceContext {display, window, that
    //   configuration}.
    // - Messages: processMessages dispatches the events waiting on the connection (an XPending
    //   loop, no waiting). lParam words are packed as MAKELPARAM (low | high << 16, zero-extended);
    //   MK_* flags: MK_LBUTTON 0x1, MK_RBUTTON 0x2, MK_SHIFT 0x4, MK_CONTROL 0x8, MK_MBUTTON 0x10,
    //   MK_XBUTTON1 0x20, MK_XBUTTON2 0x40, as held after the event.
    //     WM_DELETE_WINDOW (close request: the close button, the window manager's Alt+F4) ->
    //       WM_SYSCOMMAND 0x0112 (SC_CLOSE 0xF060, 0), as the system menu's Close, whose default
    //       processing sends WM_CLOSE 0x0010 (0, 0); default processing then destroys the window:
    //       WM_KILLFOCUS 0x0008 (when it has the focus), WM_DESTROY 0x0002 and WM_NCDESTROY 0x0082
    //       (0, 0) reach the object first, as they do when the destructor (or another client)
    //       destroys the window.
    //     KeyPress -> WM_KEYDOWN 0x0100, or WM_SYSKEYDOWN 0x0104 while Alt is held without Control
    //       (Alt itself included) and for F10; wParam the virtual-key code; lParam repeat count 1,
    //       scan code (PC set 1) in bits 16-23, bit 24 extended key, bit 29 Alt held (system keys
    //       only), bit 30 key already down (auto-repeat). Then WM_CHAR 0x0102 (WM_SYSCHAR 0x0106
    //       for system keys) per UTF-16 unit typed, same lParam. Default processing of a
    //       WM_SYSCHAR with Alt held (not Tab or Escape): WM_SYSCOMMAND (SC_KEYMENU 0xF100, the
    //       unit); of Alt+F4: WM_SYSCOMMAND (SC_CLOSE 0xF060, 0), then as the close request.
    //     KeyRelease -> WM_KEYUP 0x0101 / WM_SYSKEYUP 0x0105, bits 30 and 31 set; the Alt key's
    //       own release is a WM_KEYUP.
    //     ButtonPress/Release 1, 2, 3 -> WM_LBUTTONDOWN 0x0201/UP 0x0202, WM_MBUTTONDOWN 0x0207/
    //       UP 0x0208, WM_RBUTTONDOWN 0x0204/UP 0x0205 (MK_*, client x and y); 8, 9 ->
    //       WM_XBUTTONDOWN 0x020B/UP 0x020C (MK_* | XBUTTON1 1 or XBUTTON2 2 << 16, client x, y);
    //       4, 5 -> WM_MOUSEWHEEL 0x020A and 6, 7 -> WM_MOUSEHWHEEL 0x020E (MK_* | delta << 16,
    //       +120 up or right, -120 down or left; screen x, y).
    //     MotionNotify -> WM_MOUSEMOVE 0x0200 (MK_*, client x, y).
    //     FocusIn/FocusOut (not those of keyboard grabs) -> WM_SETFOCUS 0x0007/WM_KILLFOCUS 0x0008;
    //       WM_KILLFOCUS only to a window told WM_SETFOCUS last.
    //     ConfigureNotify (and a placement call, before it returns) -> WM_SYSCOMMAND (SC_MAXIMIZE
    //       0xF030 or SC_RESTORE 0xF120, 0) first when the window manager changed the maximised
    //       state on its own (the user did; a request of the program that it carries out only
    //       after the wait counts as such), then WM_MOVE 0x0003 (0, client top-left in screen
    //       coordinates) when the client area moved, then WM_SIZE 0x0005 (SIZE_RESTORED 0 or
    //       SIZE_MAXIMIZED 2, client width and height) when it changed size.
    //     Iconified (UnmapNotify with WM_STATE Iconic; only the user minimises) -> WM_KILLFOCUS
    //       when focused, WM_SYSCOMMAND (SC_MINIMIZE 0xF020, 0), WM_SIZE (SIZE_MINIMIZED 1, 0), as
    //       the caption's button; mapped again -> WM_SYSCOMMAND (SC_RESTORE 0xF120, 0), then
    //       WM_SIZE with the restored or maximised size. The position is kept (Win32 parks a
    //       minimised window at -32000, -32000 and reports that move).
    //     Expose (the last of a series) -> WM_PAINT 0x000F (0, 0), once per window when the queue
    //       is drained (after the other messages, as Win32 makes WM_PAINT only when none waits).
    //   Virtual keys come from the key's unshifted symbol: 'A'..'Z', '0'..'9', F1..F24
    //   0x70..0x87, arrows 0x25..0x28, Escape 0x1B, Return (keypad Enter too) 0x0D, Space 0x20,
    //   Tab 0x09, Backspace 0x08, Shift 0x10, Control 0x11, Alt 0x12, editing and navigation
    //   keys, the keypad (digits while Num Lock is on), the Windows and menu keys, and the US
    //   punctuation keys (VK_OEM_*); 0 for keys without a Win32 counterpart. Creation's own
    //   placement is not reported (on Win32 it happens before a host can listen).
    // - Placement: the outer rectangle is the client area plus the window manager's
    //   _NET_FRAME_EXTENTS (none without a window manager); setClientSize adds the frame last
    //   seen on a framed window. Move, size, maximise (_NET_WM_STATE_MAXIMIZED_VERT and _HORZ)
    //   and full screen (_NET_WM_STATE_FULLSCREEN, the window manager removing the frame; the
    //   full-screen flag is what the saved state keeps) are requests that the window manager
    //   carries out: each request waits for it, at most 0.5 s in all (full screen makes up to
    //   three requests: restore, the state, the placement), so that a getter called next sees the
    //   result, and reports the resulting WM_MOVE and WM_SIZE before it returns, as SetWindowPos
    //   sends them (a later processMessages does not report them again). Without an EWMH window
    //   manager the state hints are only recorded. A request that the window manager refuses (a
    //   size for a full-screen window, which it may keep over its monitor) takes the whole 0.5 s;
    //   the window stays as the window manager keeps it, and the getters and messages say so.
    // - Monitors: XRandR's active monitors (XRRGetMonitors), handle = the monitor's name atom;
    //   without XRandR 1.5, the whole screen as one monitor named "screen". The window's monitor
    //   is the one containing its outer rectangle's centre, else the nearest to it.

    /// Moves the outer window's top-left corner to `position` (size, z-order and activation kept).
    void setPosition(const Eigen::Vector2i& position) const;
    /// Sets the outer size, frame included (position, z-order and activation kept).
    void setSize(const Eigen::Vector2i& size) const;
    /// Sets the outer size for which a framed overlapped window would have this client size;
    /// the framed style is assumed even in full screen, where, without a frame, the client area
    /// then ends up larger than asked (by the frame's size), or as the window manager keeps it.
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
    /// Whether the window is in full screen.
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
    SavedWindowState savedState;
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
