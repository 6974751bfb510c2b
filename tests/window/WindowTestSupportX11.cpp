// The X11 side of the window suite's native helpers. They use a display connection of their own,
// as another program on the display would, and post Win32 messages as the native events that
// the back end turns into them.
#if !defined(_WIN32)
#include "WindowTestSupport.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <cstdlib>
#include <utility>
#include <vector>

namespace TavrinWindowTest
{
namespace
{
class HelperConnection
{
public:
    ~HelperConnection()
    {
        if (display)
            XCloseDisplay(display);
    }
    Display* get()
    {
        if (!display)
            display = XOpenDisplay(nullptr);
        return display;
    }

private:
    Display* display = nullptr;
};

HelperConnection helper;
int trappedErrors = 0;

int countError(Display*, XErrorEvent*)
{
    ++trappedErrors;
    return 0;
}

Atom atom(const char* name)
{
    return XInternAtom(helper.get(), name, False);
}

std::vector<unsigned long> states(Tavrin::OpenGL::WindowHandle window)
{
    std::vector<unsigned long> values;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, remaining = 0;
    unsigned char* data = nullptr;
    const int previousErrors = trappedErrors;
    XErrorHandler previous = XSetErrorHandler(countError);
    if (XGetWindowProperty(helper.get(), window, atom("_NET_WM_STATE"), 0, 64, False, XA_ATOM, &type, &format, &count,
                           &remaining, &data) == Success &&
        data && format == 32)
        values.assign(reinterpret_cast<unsigned long*>(data), reinterpret_cast<unsigned long*>(data) + count);
    if (data)
        XFree(data);
    XSync(helper.get(), False);
    XSetErrorHandler(previous);
    trappedErrors = previousErrors;
    return values;
}

void sendToRoot(Tavrin::OpenGL::WindowHandle window, const char* type, long first, long second, long third)
{
    Display* display = helper.get();
    XEvent event = {};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = atom(type);
    event.xclient.format = 32;
    event.xclient.data.l[0] = first;
    event.xclient.data.l[1] = second;
    event.xclient.data.l[2] = third;
    event.xclient.data.l[3] = 2; // a pager: the window manager obeys without second thoughts
    XSendEvent(display, DefaultRootWindow(display), False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
    XFlush(display);
}

template <typename Done> void waitFor(Done done)
{
    for (int waited = 0; waited < 2000 && !done(); waited += 5)
        sleepMilliseconds(5);
}

void setMaximized(Tavrin::OpenGL::WindowHandle window, bool on)
{
    sendToRoot(window, "_NET_WM_STATE", on ? 1 : 0, static_cast<long>(atom("_NET_WM_STATE_MAXIMIZED_VERT")),
               static_cast<long>(atom("_NET_WM_STATE_MAXIMIZED_HORZ")));
    waitFor([&] { return isMaximized(window) == on; });
    // The frame changes before the window moves: wait until the client area holds still.
    Display* display = helper.get();
    auto clientCorner = [&] {
        int x = 0, y = 0;
        Window child = None;
        XTranslateCoordinates(display, window, DefaultRootWindow(display), 0, 0, &x, &y, &child);
        return std::make_pair(x, y);
    };
    auto last = clientCorner();
    for (int still = 0, waited = 0; still < 50 && waited < 2000; waited += 10)
    {
        sleepMilliseconds(10);
        const auto now = clientCorner();
        still = now == last ? still + 10 : 0;
        last = now;
    }
}

KeySym symbolOfKey(unsigned long long key)
{
    if (key >= 'A' && key <= 'Z')
        return XK_a + (key - 'A');
    if (key >= '0' && key <= '9')
        return XK_0 + (key - '0');
    if (key >= 0x70 && key <= 0x7B)
        return XK_F1 + (key - 0x70);
    return NoSymbol;
}
} // namespace

bool windowExists(Tavrin::OpenGL::WindowHandle window)
{
    Display* display = helper.get();
    XSync(display, False);
    const int previousErrors = trappedErrors;
    XErrorHandler previous = XSetErrorHandler(countError);
    XWindowAttributes attributes = {};
    const bool found = XGetWindowAttributes(display, window, &attributes) != 0;
    XSync(display, False);
    XSetErrorHandler(previous);
    const bool failed = trappedErrors != previousErrors;
    trappedErrors = previousErrors;
    return found && !failed;
}

void postMessage(Tavrin::OpenGL::WindowHandle window, unsigned int message, unsigned long long wParam, long long lParam)
{
    Display* display = helper.get();
    XEvent event = {};
    if (message == 0x0010)
    {
        // What a window manager sends when the user closes the window.
        event.xclient.type = ClientMessage;
        event.xclient.window = window;
        event.xclient.message_type = atom("WM_PROTOCOLS");
        event.xclient.format = 32;
        event.xclient.data.l[0] = static_cast<long>(atom("WM_DELETE_WINDOW"));
        event.xclient.data.l[1] = CurrentTime;
        XSendEvent(display, window, False, NoEventMask, &event);
    }
    else if (message == 0x0100 || message == 0x0101 || message == 0x0104 || message == 0x0105)
    {
        const KeySym symbol = symbolOfKey(wParam);
        ASSERT_NE(symbol, static_cast<KeySym>(NoSymbol)) << "no key symbol for virtual key " << wParam;
        const bool pressed = message == 0x0100 || message == 0x0104;
        event.xkey.type = pressed ? KeyPress : KeyRelease;
        event.xkey.display = display;
        event.xkey.window = window;
        event.xkey.root = DefaultRootWindow(display);
        event.xkey.time = CurrentTime;
        event.xkey.x = event.xkey.y = 1;
        event.xkey.same_screen = True;
        event.xkey.keycode = XKeysymToKeycode(display, symbol);
        event.xkey.state = (lParam & (1ll << 29)) ? Mod1Mask : 0; // the context bit: Alt held
        XSendEvent(display, window, False, pressed ? KeyPressMask : KeyReleaseMask, &event);
    }
    else
    {
        ADD_FAILURE() << "no native event stands for message " << message;
    }
    XSync(display, False);
}

void maximize(Tavrin::OpenGL::WindowHandle window)
{
    setMaximized(window, true);
}

void restore(Tavrin::OpenGL::WindowHandle window)
{
    setMaximized(window, false);
}

void activate(Tavrin::OpenGL::WindowHandle window)
{
    Display* display = helper.get();
    sendToRoot(window, "_NET_ACTIVE_WINDOW", 2, CurrentTime, 0);
    waitFor([&] {
        Window focus = None;
        int revert = 0;
        XGetInputFocus(display, &focus, &revert);
        return focus == window;
    });
}

bool isMaximized(Tavrin::OpenGL::WindowHandle window)
{
    const std::vector<unsigned long> values = states(window);
    auto has = [&](const char* name) {
        for (const unsigned long value : values)
            if (value == atom(name))
                return true;
        return false;
    };
    return has("_NET_WM_STATE_MAXIMIZED_VERT") && has("_NET_WM_STATE_MAXIMIZED_HORZ");
}

Eigen::Vector2i screenSize()
{
    Display* display = helper.get();
    return Eigen::Vector2i(DisplayWidth(display, DefaultScreen(display)),
                           DisplayHeight(display, DefaultScreen(display)));
}

std::uint32_t readClientPixel(Tavrin::OpenGL::WindowHandle window, int x, int y)
{
    Display* display = helper.get();
    XWindowAttributes attributes = {};
    if (!XGetWindowAttributes(display, window, &attributes))
        return 0;
    XImage* image = XGetImage(display, window, x, attributes.height - 1 - y, 1, 1, AllPlanes, ZPixmap);
    if (!image)
        return 0;
    const unsigned long pixel = XGetPixel(image, 0, 0);
    auto channel = [&](unsigned long mask) {
        if (!mask)
            return 0u;
        unsigned long value = pixel & mask;
        while (!(mask & 1))
        {
            mask >>= 1;
            value >>= 1;
        }
        return static_cast<unsigned int>(value * 255 / mask);
    };
    const std::uint32_t colour =
        (channel(image->red_mask) << 16) | (channel(image->green_mask) << 8) | channel(image->blue_mask);
    XDestroyImage(image);
    return colour;
}

bool runHostProgram(const std::string& commandLine)
{
    return std::system(commandLine.c_str()) == 0;
}
} // namespace TavrinWindowTest
#endif
