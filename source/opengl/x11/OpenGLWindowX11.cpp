// The X11 back end of OpenGLWindow: top-level windows with a GLX frame-buffer configuration on
// the process's shared display connection, native events turned into Win32 messages, placement
// through the window manager (EWMH), and monitors from XRandR.
#include "../WindowBackend.h"

#include "X11Connection.h"
#include "X11Events.h"
#include "X11WindowManager.h"
#include "X11Windows.h"

#include <GL/glx.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <algorithm>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
using namespace X11::WindowsMessages;

namespace
{
using X11::AtomName;

struct WindowState
{
    OpenGLWindow* owner = nullptr;
    // The window that owns this one (WM_TRANSIENT_FOR), destroyed with it.
    Window ownedBy = None;
    Colormap colormap = None;
    GLXFBConfig frameBufferConfig = nullptr;
    // The client area last reported through WM_MOVE and WM_SIZE.
    int clientX = 0, clientY = 0, clientWidth = 0, clientHeight = 0;
    bool minimized = false, maximized = false; // as last reported
    // Told WM_SETFOCUS last: the one window that WM_KILLFOCUS is sent to.
    bool focused = false;
    // Exposed since the last WM_PAINT.
    bool paintPending = false;
    bool destroying = false;
};

// The live native windows made here; handles not in it are stale (or not ours) and ignored.
std::unordered_map<Window, WindowState> windows;
// The live device-context records.
std::unordered_set<X11DeviceContext*> deviceContexts;
// What event translation keeps from one event to the next.
X11::InputState input;

Display* connection()
{
    return X11::display();
}

WindowState* findWindow(Window window)
{
    const auto entry = windows.find(window);
    return entry == windows.end() ? nullptr : &entry->second;
}

// Hands a message to the window's object, as the Win32 window procedure does. Returns false when
// the window is no longer ours (destroyed meanwhile, perhaps by an earlier handler).
bool send(Window window, unsigned int message, unsigned long long wParam, long long lParam)
{
    WindowState* state = findWindow(window);
    if (!state || !state->owner)
        return false;
    // Only a window that has the focus loses it (minimising may already have told it).
    if (message == messageKillFocus && !state->focused)
        return true;
    if (message == messageSetFocus || message == messageKillFocus)
        state->focused = message == messageSetFocus;
    state->owner->systemWindowProcInternal(message, wParam, lParam);
    return true;
}

// What default processing does after the object has seen a message: destroy the native window.
// As DestroyWindow, the windows it owns go first, each completely; then WM_KILLFOCUS (when it
// has the focus), WM_DESTROY and WM_NCDESTROY reach the object.
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
    send(window, messageKillFocus, 0, 0); // told only when it has the focus
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

} // namespace

namespace X11
{
bool isLiveWindow(Window window)
{
    return findWindow(window) != nullptr;
}

void reportPlacement(Window window)
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
    if (moved && !send(window, messageMove, 0, X11::packWords(x, y)))
        return;
    if (!resized)
        return;
    state->maximized = X11::maximized(window);
    send(window, messageSize, state->maximized ? sizeMaximized : sizeRestored, X11::packWords(width, height));
}
} // namespace X11

namespace
{

// Hands translated messages to the window's object in order, each followed by its default
// processing; stops when the window is gone.
void dispatch(Window window, const std::vector<X11::Message>& messages)
{
    for (const X11::Message& message : messages)
    {
        if (message.message == messagePaint)
        {
            if (WindowState* state = findWindow(window))
                state->paintPending = true;
            continue;
        }
        if (!send(window, message.message, message.wParam, message.lParam))
            return;
        // The system menu's Close command (Alt+F4) asks to close.
        if (message.message == messageSysCommand && message.wParam == systemCommandClose)
            closeRequest(window);
    }
}

// As Win32 makes WM_PAINT only when no other message waits, exposures are told once the queue is
// drained, after the input and focus messages that came with them.
void paintExposed()
{
    std::vector<Window> exposed;
    for (auto& entry : windows)
        if (std::exchange(entry.second.paintPending, false))
            exposed.push_back(entry.first);
    for (const Window window : exposed)
        send(window, messagePaint, 0, 0);
}

X11::KeyInput lookUpKey(XKeyEvent& event)
{
    X11::KeyInput key;
    key.pressed = event.type == KeyPress;
    key.keyCode = event.keycode;
    key.state = event.state;
    key.symbol = XLookupKeysym(&event, 0);
    // With Num Lock (Mod2) the keypad gives digits, as VK_NUMPAD0.. on Win32.
    if (event.state & Mod2Mask)
    {
        const KeySym shifted = XLookupKeysym(&event, 1);
        if ((shifted >= XK_KP_0 && shifted <= XK_KP_9) || shifted == XK_KP_Decimal || shifted == XK_KP_Separator)
            key.symbol = shifted;
    }
    if (key.pressed)
    {
        char buffer[32] = {};
        const int count = XLookupString(&event, buffer, sizeof buffer, &key.typedSymbol, nullptr);
        key.typed.assign(buffer, static_cast<std::size_t>(std::min(std::max(count, 0), int(sizeof buffer))));
    }
    return key;
}

void handleEvent(XEvent& event)
{
    const Window window = event.xany.window;
    WindowState* state = findWindow(window);
    if (!state)
        return;
    switch (event.type)
    {
    case KeyPress:
    case KeyRelease:
        dispatch(window, X11::translateKey(lookUpKey(event.xkey), input));
        break;
    case ConfigureNotify: {
        // Maximised or restored by the window manager on its own: the user did, as with the
        // caption's buttons (the program's own requests were reported before they returned).
        const bool maximized = X11::maximized(window);
        if (maximized != state->maximized)
        {
            state->maximized = maximized;
            if (!send(window, messageSysCommand, maximized ? systemCommandMaximize : systemCommandRestore, 0))
                break;
        }
        X11::reportPlacement(window);
        break;
    }
    case UnmapNotify:
        // The program cannot minimise: the user did, as with the caption's button, which takes
        // the focus away first (X tells the focus after the unmap).
        if (!state->destroying && !state->minimized && X11::iconic(window))
        {
            state->minimized = true;
            if (!send(window, messageKillFocus, 0, 0))
                break;
            if (send(window, messageSysCommand, systemCommandMinimize, 0))
                send(window, messageSize, sizeMinimized, 0);
        }
        break;
    case MapNotify:
        if (state->minimized)
        {
            state->minimized = false;
            if (send(window, messageSysCommand, systemCommandRestore, 0))
                send(window, messageSize, X11::maximized(window) ? sizeMaximized : sizeRestored,
                     X11::packWords(state->clientWidth, state->clientHeight));
        }
        break;
    case DestroyNotify:
        // Destroyed by someone else (the host through its own connection): as DestroyWindow.
        if (event.xdestroywindow.window == window)
            destroyNativeWindow(window);
        break;
    case ClientMessage:
        if (event.xclient.message_type == X11::atom(AtomName::WmProtocols) && event.xclient.format == 32 &&
            static_cast<Atom>(event.xclient.data.l[0]) == X11::atom(AtomName::WmDeleteWindow))
            dispatch(window, {{messageSysCommand, systemCommandClose, 0}}); // the system menu's Close
        break;
    default:
        dispatch(window, X11::translateEvent(event, input));
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
        {
            paintExposed();
            return;
        }
        XEvent event;
        XNextEvent(display, &event);
        handleEvent(event);
    }
}

} // namespace WindowBackend
} // namespace OpenGL
} // namespace Tavrin
