// The window-manager side of X11 windows: properties and hints, frame extents, EWMH states,
// and the one wait for the window manager to carry out a request.
#include "X11WindowManager.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
namespace
{
// The frame that the window manager last put around a window (none before the first one).
FrameExtents lastFramed;

Display* connection()
{
    return display();
}

bool validUtf8(const std::string& text)
{
    for (std::size_t index = 0; index < text.size();)
    {
        const unsigned char lead = static_cast<unsigned char>(text[index]);
        const std::size_t length = lead < 0x80           ? 1
                                   : (lead >> 5) == 0x6  ? 2
                                   : (lead >> 4) == 0xE  ? 3
                                   : (lead >> 3) == 0x1E ? 4
                                                         : 0;
        if (length == 0 || index + length > text.size())
            return false;
        for (std::size_t next = 1; next < length; ++next)
            if ((static_cast<unsigned char>(text[index + next]) >> 6) != 0x2)
                return false;
        index += length;
    }
    return true;
}

// The title for _NET_WM_NAME: as given when it is UTF-8, else its bytes read as Latin-1.
std::string utf8Title(const std::string& title)
{
    if (validUtf8(title))
        return title;
    std::string converted;
    for (const char byte : title)
    {
        const unsigned char code = static_cast<unsigned char>(byte);
        if (code < 0x80)
            converted.push_back(byte);
        else
        {
            converted.push_back(static_cast<char>(0xC0 | (code >> 6)));
            converted.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        }
    }
    return converted;
}

} // namespace

// A 32-bit-format property; false when absent or of another type.
bool readProperty(Window window, Atom property, Atom type, std::vector<unsigned long>& values)
{
    values.clear();
    Atom actualType = None;
    int format = 0;
    unsigned long count = 0, remaining = 0;
    unsigned char* data = nullptr;
    const bool read = XGetWindowProperty(connection(), window, property, 0, 1024, False, type, &actualType, &format,
                                         &count, &remaining, &data) == Success &&
                      data && actualType == type && format == 32;
    if (read)
        values.assign(reinterpret_cast<unsigned long*>(data), reinterpret_cast<unsigned long*>(data) + count);
    if (data)
        XFree(data);
    return read;
}

FrameExtents frameExtents(Window window)
{
    FrameExtents extents;
    std::vector<unsigned long> values;
    if (readProperty(window, atom(AtomName::NetFrameExtents), XA_CARDINAL, values) && values.size() == 4)
    {
        extents.left = static_cast<int>(values[0]);
        extents.right = static_cast<int>(values[1]);
        extents.top = static_cast<int>(values[2]);
        extents.bottom = static_cast<int>(values[3]);
        if (extents.left || extents.right || extents.top || extents.bottom)
            lastFramed = extents;
    }
    return extents;
}

bool frameExtentsKnown(Window window)
{
    std::vector<unsigned long> values;
    return readProperty(window, atom(AtomName::NetFrameExtents), XA_CARDINAL, values);
}

// The client area in root coordinates.
bool clientGeometry(Window window, int& x, int& y, int& width, int& height)
{
    Window root = None, child = None;
    int relativeX = 0, relativeY = 0;
    unsigned int unsignedWidth = 0, unsignedHeight = 0, border = 0, depth = 0;
    if (!XGetGeometry(connection(), window, &root, &relativeX, &relativeY, &unsignedWidth, &unsignedHeight, &border,
                      &depth))
        return false;
    if (!XTranslateCoordinates(connection(), window, root, 0, 0, &x, &y, &child))
        return false;
    width = static_cast<int>(unsignedWidth);
    height = static_cast<int>(unsignedHeight);
    return true;
}

OpenGLWindow::Rect outerRect(Window window)
{
    OpenGLWindow::Rect rect;
    int x = 0, y = 0, width = 0, height = 0;
    if (!clientGeometry(window, x, y, width, height))
        return rect;
    const FrameExtents extents = frameExtents(window);
    rect.left = x - extents.left;
    rect.top = y - extents.top;
    rect.right = x + width + extents.right;
    rect.bottom = y + height + extents.bottom;
    return rect;
}

bool sameRect(const OpenGLWindow::Rect& a, const OpenGLWindow::Rect& b)
{
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

// Requests to a managed window are carried out by the window manager, later; a Win32 caller
// expects them done on return. Without a window manager the server applies them at once.
void waitForWindowManager(Window window, const std::function<bool()>& done)
{
    XSync(connection(), False);
    if (!windowManagerRunning())
        return;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(windowManagerTimeoutMilliseconds);
    const auto before = [&] { return std::chrono::steady_clock::now() < deadline; };
    while (!done() && before())
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    // A state change may be followed by the matching move or resize: wait, within the same
    // bound, until the rectangle holds still.
    OpenGLWindow::Rect last = outerRect(window);
    while (before())
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(8));
        const OpenGLWindow::Rect now = outerRect(window);
        if (sameRect(now, last))
            break;
        last = now;
    }
}

bool hasState(Window window, AtomName state)
{
    std::vector<unsigned long> values;
    readProperty(window, atom(AtomName::NetWmState), XA_ATOM, values);
    return std::find(values.begin(), values.end(), atom(state)) != values.end();
}

bool maximized(Window window)
{
    return hasState(window, AtomName::NetWmStateMaximizedVert) && hasState(window, AtomName::NetWmStateMaximizedHorz);
}

namespace
{
// A request about `window` to the window manager: a client message to the root window.
void askWindowManager(Window window, AtomName message, long data0 = 0, long data1 = 0, long data2 = 0, long data3 = 0)
{
    Display* display = connection();
    XEvent event = {};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = atom(message);
    event.xclient.format = 32;
    event.xclient.data.l[0] = data0;
    event.xclient.data.l[1] = data1;
    event.xclient.data.l[2] = data2;
    event.xclient.data.l[3] = data3;
    XSendEvent(display, DefaultRootWindow(display), False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
}
} // namespace

// Adds or removes _NET_WM_STATE entries: asked of the window manager when one handles them,
// written directly otherwise (then only the recorded state changes).
void changeStates(Window window, bool add, AtomName first, AtomName second)
{
    if (windowManagerSupports(AtomName::NetWmState))
    {
        // The last 1: a normal application asks.
        askWindowManager(window, AtomName::NetWmState, add ? 1 : 0, static_cast<long>(atom(first)),
                         second == AtomName::Count ? 0 : static_cast<long>(atom(second)), 1);
        return;
    }
    Display* display = connection();
    std::vector<unsigned long> values;
    readProperty(window, atom(AtomName::NetWmState), XA_ATOM, values);
    for (const AtomName name : {first, second})
    {
        if (name == AtomName::Count)
            continue;
        const unsigned long value = atom(name);
        values.erase(std::remove(values.begin(), values.end(), value), values.end());
        if (add)
            values.push_back(value);
    }
    XChangeProperty(display, window, atom(AtomName::NetWmState), XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(values.data()), static_cast<int>(values.size()));
}

bool iconic(Window window)
{
    std::vector<unsigned long> values;
    return readProperty(window, atom(AtomName::WmState), atom(AtomName::WmState), values) && !values.empty() &&
           values[0] == IconicState;
}

FrameExtents lastFrameExtents()
{
    return lastFramed;
}

void describeWindow(Display* display, Window window, const std::string& title, Window owner)
{
    XStoreName(display, window, title.c_str());
    const std::string name = utf8Title(title);
    XChangeProperty(display, window, atom(AtomName::NetWmName), atom(AtomName::Utf8String), 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(name.data()), static_cast<int>(name.size()));
    // The title names the class, as the Win32 window class is named after it.
    std::string className = title;
    XClassHint classHint = {&className[0], &className[0]};
    XSetClassHint(display, window, &classHint);

    XSizeHints sizeHints = {};
    sizeHints.flags = USPosition | PPosition | PSize | PWinGravity;
    sizeHints.x = initialLeft;
    sizeHints.y = initialTop;
    sizeHints.width = initialClientWidth;
    sizeHints.height = initialClientHeight;
    sizeHints.win_gravity = NorthWestGravity; // a requested position is the frame's top-left corner
    XSetWMNormalHints(display, window, &sizeHints);

    XWMHints wmHints = {};
    wmHints.flags = InputHint | StateHint;
    wmHints.input = True;
    wmHints.initial_state = NormalState;
    XSetWMHints(display, window, &wmHints);

    Atom protocols[] = {atom(AtomName::WmDeleteWindow)};
    XSetWMProtocols(display, window, protocols, 1);
    if (owner)
        XSetTransientForHint(display, window, owner);
}

void requestFrameExtents(Window window)
{
    if (windowManagerSupports(AtomName::NetRequestFrameExtents))
        askWindowManager(window, AtomName::NetRequestFrameExtents);
}

// Waits until the window manager has framed and placed a new window, and puts the frame's
// top-left corner at (100, 100) if the manager chose another place.
void waitUntilPlaced(Display* display, Window window)
{
    waitForWindowManager(window, [&] {
        XWindowAttributes attributes = {};
        return XGetWindowAttributes(display, window, &attributes) && attributes.map_state == IsViewable &&
               (!windowManagerSupports(AtomName::NetFrameExtents) || frameExtentsKnown(window));
    });
    const OpenGLWindow::Rect rect = outerRect(window);
    if (rect.left != initialLeft || rect.top != initialTop)
    {
        XMoveWindow(display, window, initialLeft, initialTop);
        waitForWindowManager(window, [&] {
            const OpenGLWindow::Rect now = outerRect(window);
            return now.left == initialLeft && now.top == initialTop;
        });
    }
}
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
