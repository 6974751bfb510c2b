// The X11 back end of OpenGLWindow: top-level windows with a GLX frame-buffer configuration on
// the process's shared display connection, native events turned into Win32 messages, placement
// through the window manager (EWMH), and monitors from XRandR.
#include "../WindowBackend.h"

#include "X11Connection.h"
#include "X11Keyboard.h"
#include "X11Monitors.h"
#include "X11WindowManager.h"

#include <GL/glx.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
using X11::AtomName;

// Win32 message numbers and the values they carry.
const unsigned int messageDestroy = 0x0002, messageMove = 0x0003, messageSize = 0x0005, messageSetFocus = 0x0007,
                   messageKillFocus = 0x0008, messagePaint = 0x000F, messageClose = 0x0010, messageNcDestroy = 0x0082,
                   messageKeyDown = 0x0100, messageKeyUp = 0x0101, messageChar = 0x0102, messageSysKeyDown = 0x0104,
                   messageSysKeyUp = 0x0105, messageSysChar = 0x0106, messageSysCommand = 0x0112,
                   messageMouseMove = 0x0200, messageLeftButtonDown = 0x0201, messageLeftButtonUp = 0x0202,
                   messageRightButtonDown = 0x0204, messageRightButtonUp = 0x0205, messageMiddleButtonDown = 0x0207,
                   messageMiddleButtonUp = 0x0208, messageMouseWheel = 0x020A, messageExtraButtonDown = 0x020B,
                   messageExtraButtonUp = 0x020C, messageMouseHorizontalWheel = 0x020E;
const unsigned long long systemCommandClose = 0xF060;
const unsigned long long sizeRestored = 0, sizeMinimized = 1, sizeMaximized = 2;
const unsigned long long mouseLeft = 0x01, mouseRight = 0x02, mouseShift = 0x04, mouseControl = 0x08,
                         mouseMiddle = 0x10, mouseExtra1 = 0x20, mouseExtra2 = 0x40;
const unsigned int keyF4 = 0x73, keyF10 = 0x79;
const int wheelDelta = 120;

struct WindowState
{
    OpenGLWindow* owner = nullptr;
    // The window that owns this one (WM_TRANSIENT_FOR), destroyed with it.
    Window ownedBy = None;
    Colormap colormap = None;
    GLXFBConfig frameBufferConfig = nullptr;
    // The client area last reported through WM_MOVE and WM_SIZE.
    int clientX = 0, clientY = 0, clientWidth = 0, clientHeight = 0;
    bool minimized = false;
    bool destroying = false;
};

// The live native windows made here; handles not in it are stale (or not ours) and ignored.
std::unordered_map<Window, WindowState> windows;
// The live device-context records.
std::unordered_set<X11DeviceContext*> deviceContexts;
// Which keys are down, for the previous-state bit of key messages.
bool keysDown[256] = {};
// Buttons 8 and 9 held: the core event state has no masks for them.
unsigned long long extraButtonsDown = 0;
Display* connection()
{
    return X11::display();
}

WindowState* findWindow(Window window)
{
    const auto entry = windows.find(window);
    return entry == windows.end() ? nullptr : &entry->second;
}

// MAKELPARAM: two 16-bit words, zero-extended as Win32 packs them.
long long packWords(int low, int high)
{
    return static_cast<long long>((static_cast<unsigned long long>(static_cast<unsigned int>(high) & 0xFFFF) << 16) |
                                  (static_cast<unsigned int>(low) & 0xFFFF));
}

// Hands a message to the window's object, as the Win32 window procedure does. Returns false when
// the window is no longer ours (destroyed meanwhile, perhaps by an earlier handler).
bool send(Window window, unsigned int message, unsigned long long wParam, long long lParam)
{
    WindowState* state = findWindow(window);
    if (!state || !state->owner)
        return false;
    state->owner->systemWindowProcInternal(message, wParam, lParam);
    return true;
}

void handleConfigure(Window window);

// A placement request, carried out before it returns: Win32 sends WM_MOVE and WM_SIZE from
// inside SetWindowPos, so the result is reported now, and the ConfigureNotify events still
// queued find nothing new to tell.
void carryOut(Window window, const std::function<bool()>& done)
{
    X11::waitForWindowManager(window, done);
    handleConfigure(window);
}

void setMaximized(Window window, bool on)
{
    if (!findWindow(window) || X11::maximized(window) == on)
        return;
    X11::changeStates(window, on, AtomName::NetWmStateMaximizedVert, AtomName::NetWmStateMaximizedHorz);
    carryOut(window, [&] { return X11::maximized(window) == on; });
}

void setFullscreenState(Window window, bool on)
{
    if (!findWindow(window) || X11::hasState(window, AtomName::NetWmStateFullscreen) == on)
        return;
    X11::changeStates(window, on, AtomName::NetWmStateFullscreen, AtomName::Count);
    carryOut(window, [&] { return X11::hasState(window, AtomName::NetWmStateFullscreen) == on; });
}

// What default processing does after the object has seen a message: destroy the native window.
// As DestroyWindow, the windows it owns go first, each completely; then WM_DESTROY and
// WM_NCDESTROY reach the object.
void destroyNativeWindow(Window window)
{
    WindowState* state = findWindow(window);
    if (!state || state->destroying)
        return;
    state->destroying = true;
    std::vector<Window> owned;
    for (const auto& entry : windows)
        if (entry.second.ownedBy == window)
            owned.push_back(entry.first);
    for (const Window each : owned)
        destroyNativeWindow(each);
    send(window, messageDestroy, 0, 0);
    send(window, messageNcDestroy, 0, 0);
    state = findWindow(window);
    if (!state)
        return;
    const Colormap colormap = state->colormap;
    windows.erase(window);
    Display* display = connection();
    XDestroyWindow(display, window);
    XFreeColormap(display, colormap);
    XSync(display, False);
    X11::releaseDisplay();
}

void closeRequest(Window window)
{
    send(window, messageClose, 0, 0);
    destroyNativeWindow(window); // default processing of WM_CLOSE
}

// The MK_* flags of the mouse buttons and modifiers in an event's state (the state before it).
unsigned long long mouseKeys(unsigned int state)
{
    unsigned long long keys = extraButtonsDown;
    if (state & Button1Mask)
        keys |= mouseLeft;
    if (state & Button2Mask)
        keys |= mouseMiddle;
    if (state & Button3Mask)
        keys |= mouseRight;
    if (state & ShiftMask)
        keys |= mouseShift;
    if (state & ControlMask)
        keys |= mouseControl;
    return keys;
}

void handleKey(XKeyEvent& event, bool pressed)
{
    const Window window = event.window;
    if (!findWindow(window))
        return;
    KeySym symbol = XLookupKeysym(&event, 0);
    // With Num Lock (Mod2) the keypad gives digits, as VK_NUMPAD0.. on Win32.
    if (event.state & Mod2Mask)
    {
        const KeySym shifted = XLookupKeysym(&event, 1);
        if ((shifted >= XK_KP_0 && shifted <= XK_KP_9) || shifted == XK_KP_Decimal || shifted == XK_KP_Separator)
            symbol = shifted;
    }
    const unsigned int key = X11::virtualKey(symbol);
    bool extended = false;
    const unsigned int scan = X11::scanCode(event.keycode, extended);
    const bool altKey = symbol == XK_Alt_L || symbol == XK_Alt_R || symbol == XK_Meta_L || symbol == XK_Meta_R;
    // The state is the one before the event: Alt is held while it goes down, not after it is up.
    const bool altHeld = pressed ? ((event.state & Mod1Mask) || altKey) : ((event.state & Mod1Mask) && !altKey);
    const bool system = (altHeld && !(event.state & ControlMask)) || key == keyF10;

    unsigned long long bits = 1 | (static_cast<unsigned long long>(scan & 0xFF) << 16);
    if (extended)
        bits |= 1ull << 24;
    if (system && altHeld)
        bits |= 1ull << 29;
    const unsigned int code = event.keycode & 0xFF;
    if (pressed)
    {
        if (keysDown[code])
            bits |= 1ull << 30; // a repeat
        keysDown[code] = true;
    }
    else
    {
        bits |= (1ull << 30) | (1ull << 31);
        keysDown[code] = false;
    }
    const long long lParam = static_cast<long long>(bits);

    if (!pressed)
    {
        send(window, system ? messageSysKeyUp : messageKeyUp, key, lParam);
        return;
    }
    if (!send(window, system ? messageSysKeyDown : messageKeyDown, key, lParam))
        return;

    // The characters that TranslateMessage would post: Latin-1 from the key's string, or the
    // code point of a Unicode key symbol (two UTF-16 units beyond the basic plane).
    char buffer[32] = {};
    KeySym looked = NoSymbol;
    const int count = XLookupString(&event, buffer, sizeof buffer, &looked, nullptr);
    std::vector<unsigned int> units;
    const bool typesNothing = looked == XK_Delete || looked == XK_KP_Delete; // as on Win32
    if (!typesNothing && count > 0)
        for (int index = 0; index < count && index < static_cast<int>(sizeof buffer); ++index)
            units.push_back(static_cast<unsigned char>(buffer[index]));
    else if (!typesNothing && looked >= 0x01000100 && looked <= 0x0110FFFF)
    {
        const unsigned int point = static_cast<unsigned int>(looked - 0x01000000);
        if (point < 0x10000)
            units.push_back(point);
        else
        {
            units.push_back(0xD800 + ((point - 0x10000) >> 10));
            units.push_back(0xDC00 + ((point - 0x10000) & 0x3FF));
        }
    }
    for (const unsigned int unit : units)
        if (!send(window, system ? messageSysChar : messageChar, unit, lParam))
            return;

    // Default processing of Alt+F4: the system menu's Close command, which asks to close.
    if (system && altHeld && key == keyF4 && send(window, messageSysCommand, systemCommandClose, 0))
        closeRequest(window);
}

void handleButton(const XButtonEvent& event, bool pressed)
{
    const Window window = event.window;
    if (!findWindow(window))
        return;
    const unsigned long long keys = mouseKeys(event.state);
    if (event.button >= 4 && event.button <= 7)
    {
        // Wheel steps come as presses (and releases, ignored); their position is the screen's.
        if (!pressed)
            return;
        const bool vertical = event.button <= 5;
        const int delta = (event.button == 4 || event.button == 7) ? wheelDelta : -wheelDelta;
        const unsigned long long wParam =
            (static_cast<unsigned long long>(static_cast<unsigned short>(delta)) << 16) | keys;
        send(window, vertical ? messageMouseWheel : messageMouseHorizontalWheel, wParam,
             packWords(event.x_root, event.y_root));
        return;
    }
    unsigned int message = 0;
    unsigned long long button = 0, extra = 0;
    switch (event.button)
    {
    case Button1:
        message = pressed ? messageLeftButtonDown : messageLeftButtonUp;
        button = mouseLeft;
        break;
    case Button2:
        message = pressed ? messageMiddleButtonDown : messageMiddleButtonUp;
        button = mouseMiddle;
        break;
    case Button3:
        message = pressed ? messageRightButtonDown : messageRightButtonUp;
        button = mouseRight;
        break;
    case 8:
    case 9:
        message = pressed ? messageExtraButtonDown : messageExtraButtonUp;
        button = event.button == 8 ? mouseExtra1 : mouseExtra2;
        extra = event.button == 8 ? 1 : 2;
        if (pressed)
            extraButtonsDown |= button;
        else
            extraButtonsDown &= ~button;
        break;
    default:
        return;
    }
    // The flags tell the state after the event, as Win32's do.
    const unsigned long long flags = pressed ? (keys | button) : (keys & ~button);
    send(window, message, (extra << 16) | flags, packWords(event.x, event.y));
}

void handleConfigure(Window window)
{
    WindowState* state = findWindow(window);
    if (!state)
        return;
    int x = 0, y = 0, width = 0, height = 0;
    if (!X11::clientGeometry(window, x, y, width, height))
        return;
    const bool moved = x != state->clientX || y != state->clientY;
    const bool resized = width != state->clientWidth || height != state->clientHeight;
    state->clientX = x;
    state->clientY = y;
    state->clientWidth = width;
    state->clientHeight = height;
    if (moved && !send(window, messageMove, 0, packWords(x, y)))
        return;
    if (resized)
        send(window, messageSize, X11::maximized(window) ? sizeMaximized : sizeRestored, packWords(width, height));
}

void handleEvent(XEvent& event)
{
    switch (event.type)
    {
    case KeyPress:
    case KeyRelease:
        handleKey(event.xkey, event.type == KeyPress);
        break;
    case ButtonPress:
    case ButtonRelease:
        handleButton(event.xbutton, event.type == ButtonPress);
        break;
    case MotionNotify:
        send(event.xmotion.window, messageMouseMove, mouseKeys(event.xmotion.state),
             packWords(event.xmotion.x, event.xmotion.y));
        break;
    case FocusIn:
    case FocusOut:
        // Focus moved for a keyboard grab (a window manager's key binding) is not a focus change.
        if (event.xfocus.mode == NotifyGrab || event.xfocus.mode == NotifyUngrab ||
            event.xfocus.detail == NotifyPointer || event.xfocus.detail == NotifyInferior)
            break;
        // Keys released while another window has the focus are not seen: none counts as down.
        if (event.type == FocusOut)
            std::fill(std::begin(keysDown), std::end(keysDown), false);
        send(event.xfocus.window, event.type == FocusIn ? messageSetFocus : messageKillFocus, 0, 0);
        break;
    case Expose:
        if (event.xexpose.count == 0)
            send(event.xexpose.window, messagePaint, 0, 0);
        break;
    case ConfigureNotify:
        handleConfigure(event.xconfigure.window);
        break;
    case UnmapNotify:
        if (WindowState* state = findWindow(event.xunmap.window))
            if (!state->destroying && !state->minimized && X11::iconic(event.xunmap.window))
            {
                state->minimized = true;
                send(event.xunmap.window, messageSize, sizeMinimized, 0);
            }
        break;
    case MapNotify:
        if (WindowState* state = findWindow(event.xmap.window))
            if (state->minimized)
            {
                state->minimized = false;
                send(event.xmap.window, messageSize, X11::maximized(event.xmap.window) ? sizeMaximized : sizeRestored,
                     packWords(state->clientWidth, state->clientHeight));
            }
        break;
    case DestroyNotify:
        // Destroyed by someone else (the host through its own connection): as DestroyWindow.
        if (event.xdestroywindow.window == event.xdestroywindow.event)
            destroyNativeWindow(event.xdestroywindow.window);
        break;
    case ClientMessage:
        if (event.xclient.message_type == X11::atom(AtomName::WmProtocols) && event.xclient.format == 32 &&
            static_cast<Atom>(event.xclient.data.l[0]) == X11::atom(AtomName::WmDeleteWindow))
            closeRequest(event.xclient.window);
        break;
    default:
        break;
    }
}

} // namespace

namespace WindowBackend
{
WindowHandle createWindow(OpenGLWindow* owner, const std::string& title, WindowHandle parent)
{
    Display* display = X11::acquireDisplay();
    if (!display)
        return WindowHandle();
    X11::refreshWindowManager();
    const int screen = DefaultScreen(display);
    const Window root = RootWindow(display, screen);
    if (parent)
    {
        // The parent owns the new window, as Win32 makes an overlapped window with a parent an
        // owned top-level window; it must be a window.
        X11::ErrorTrap trap;
        XWindowAttributes attributes = {};
        if (!XGetWindowAttributes(display, parent, &attributes) || trap.failed())
        {
            X11::releaseDisplay();
            return WindowHandle();
        }
    }

    // Without a fitting configuration the window is made with the default visual, and
    // setPixelFormat then fails, as SetPixelFormat would.
    const GLXFBConfig config = X11::chooseFrameBufferConfig(display, screen);
    XVisualInfo* visualInfo = config ? glXGetVisualFromFBConfig(display, config) : nullptr;
    Visual* visual = visualInfo ? visualInfo->visual : DefaultVisual(display, screen);
    const int depth = visualInfo ? visualInfo->depth : DefaultDepth(display, screen);
    if (visualInfo)
        XFree(visualInfo);

    X11::ErrorTrap trap;
    XSetWindowAttributes attributes = {};
    attributes.colormap = XCreateColormap(display, root, visual, AllocNone);
    attributes.background_pixel = 0; // black, as the Win32 class's brush
    attributes.border_pixel = 0;
    attributes.event_mask = KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask | PointerMotionMask |
                            FocusChangeMask | StructureNotifyMask | ExposureMask;
    const Window window = XCreateWindow(display, root, X11::initialLeft, X11::initialTop, X11::initialClientWidth,
                                        X11::initialClientHeight, 0, depth, InputOutput, visual,
                                        CWColormap | CWBackPixel | CWBorderPixel | CWEventMask, &attributes);
    if (trap.failed())
    {
        XFreeColormap(display, attributes.colormap);
        X11::releaseDisplay();
        return WindowHandle();
    }
    X11::describeWindow(display, window, title, parent);

    WindowState& state = windows[window];
    state.owner = owner;
    state.ownedBy = parent;
    state.colormap = attributes.colormap;
    state.frameBufferConfig = config;

    X11::requestFrameExtents(window);
    XMapWindow(display, window);
    X11::waitUntilPlaced(display, window);

    // The placement made during creation is not reported: on Win32 it happens before the host
    // can listen.
    WindowState& placed = windows[window];
    X11::clientGeometry(window, placed.clientX, placed.clientY, placed.clientWidth, placed.clientHeight);
    return window;
}

DeviceContextHandle getDeviceContext(WindowHandle window)
{
    if (!findWindow(window) || !X11::acquireDisplay())
        return DeviceContextHandle();
    X11DeviceContext* deviceContext = new X11DeviceContext;
    deviceContext->display = connection();
    deviceContext->drawable = window;
    deviceContexts.insert(deviceContext);
    return deviceContext;
}

bool setPixelFormat(DeviceContextHandle deviceContext)
{
    if (!deviceContexts.count(deviceContext))
        return false;
    const WindowState* state = findWindow(deviceContext->drawable);
    if (!state || !state->frameBufferConfig)
        return false;
    deviceContext->frameBufferConfig = state->frameBufferConfig;
    return true;
}

void releaseDeviceContext(WindowHandle, DeviceContextHandle deviceContext)
{
    if (!deviceContexts.erase(deviceContext))
        return; // a copy of the window released it already
    delete deviceContext;
    X11::releaseDisplay();
}

void destroyWindow(WindowHandle window)
{
    destroyNativeWindow(window);
}

void makeCurrent(DeviceContextHandle deviceContext, RenderContextHandle context)
{
    if (deviceContexts.count(deviceContext) && findWindow(deviceContext->drawable))
        glXMakeContextCurrent(deviceContext->display, deviceContext->drawable, deviceContext->drawable, context);
    else if (Display* display = connection())
        // A drawable that is gone cannot be made current; as a failed wglMakeCurrent, release the
        // thread's context so that drawing meant for this window lands in no other one.
        glXMakeContextCurrent(display, None, None, nullptr);
}

void swapBuffers(DeviceContextHandle deviceContext)
{
    if (deviceContexts.count(deviceContext) && findWindow(deviceContext->drawable))
        glXSwapBuffers(deviceContext->display, deviceContext->drawable);
}

void processMessages()
{
    // A handler may close the connection (by destroying the last window): look again each time.
    while (Display* display = connection())
    {
        if (!XPending(display))
            return;
        XEvent event;
        XNextEvent(display, &event);
        handleEvent(event);
    }
}

OpenGLWindow::Rect windowRect(WindowHandle window)
{
    return findWindow(window) ? X11::outerRect(window) : OpenGLWindow::Rect();
}

OpenGLWindow::Rect clientRect(WindowHandle window)
{
    OpenGLWindow::Rect rect;
    int x = 0, y = 0;
    if (findWindow(window))
        X11::clientGeometry(window, x, y, rect.right, rect.bottom);
    return rect;
}

void moveWindow(WindowHandle window, int x, int y)
{
    if (!findWindow(window))
        return;
    XMoveWindow(connection(), window, x, y);
    carryOut(window, [&] {
        const OpenGLWindow::Rect rect = X11::outerRect(window);
        return rect.left == x && rect.top == y;
    });
}

void resizeWindow(WindowHandle window, int width, int height)
{
    if (!findWindow(window))
        return;
    const X11::FrameExtents extents = X11::frameExtents(window);
    XResizeWindow(connection(), window, static_cast<unsigned int>(std::max(1, width - extents.left - extents.right)),
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
    return findWindow(window) && X11::maximized(window);
}

void restoreFromMaximized(WindowHandle window)
{
    setMaximized(window, false);
}

void maximize(WindowHandle window)
{
    setMaximized(window, true);
}

void readStyles(WindowHandle window, int& style, int& exStyle)
{
    // Bit 0: the window manager shows the window full screen. Nothing else is kept.
    style = findWindow(window) && X11::hasState(window, AtomName::NetWmStateFullscreen) ? 1 : 0;
    exStyle = 0;
}

void writeStyles(WindowHandle window, int style, int)
{
    setFullscreenState(window, (style & 1) != 0);
}

void writeBorderlessStyles(WindowHandle window, int, int)
{
    setFullscreenState(window, true);
}

MonitorHandle monitorFromWindow(WindowHandle window)
{
    if (!findWindow(window))
        return MonitorHandle();
    return X11::nearestMonitor(connection(), X11::outerRect(window));
}

void placeWindow(WindowHandle window, const OpenGLWindow::Rect& rect)
{
    if (!findWindow(window))
        return;
    const X11::FrameExtents extents = X11::frameExtents(window);
    const int width = rect.right - rect.left, height = rect.bottom - rect.top;
    XMoveResizeWindow(connection(), window, rect.left, rect.top,
                      static_cast<unsigned int>(std::max(1, width - extents.left - extents.right)),
                      static_cast<unsigned int>(std::max(1, height - extents.top - extents.bottom)));
    carryOut(window, [&] { return X11::sameRect(X11::outerRect(window), rect); });
}

} // namespace WindowBackend
} // namespace OpenGL
} // namespace Tavrin
