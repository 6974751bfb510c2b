#include "X11Connection.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>

#include <cstddef>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
namespace
{
Display* connection = nullptr;
unsigned long users = 0;
unsigned long errorCount = 0;
XErrorHandler previousErrorHandler = nullptr;

const char* const atomNames[] = {"WM_PROTOCOLS",
                                 "WM_DELETE_WINDOW",
                                 "WM_STATE",
                                 "_NET_SUPPORTED",
                                 "_NET_SUPPORTING_WM_CHECK",
                                 "_NET_WM_NAME",
                                 "_NET_WM_PID",
                                 "_NET_WM_STATE",
                                 "_NET_WM_STATE_FULLSCREEN",
                                 "_NET_WM_STATE_MAXIMIZED_VERT",
                                 "_NET_WM_STATE_MAXIMIZED_HORZ",
                                 "_NET_FRAME_EXTENTS",
                                 "_NET_REQUEST_FRAME_EXTENTS",
                                 "_NET_ACTIVE_WINDOW",
                                 "UTF8_STRING"};
const std::size_t atomCount = static_cast<std::size_t>(AtomName::Count);
static_assert(sizeof atomNames / sizeof atomNames[0] == atomCount, "one name per atom");

Atom atoms[atomCount] = {};
bool supported[atomCount] = {};
bool managerRunning = false;

int handleError(Display* source, XErrorEvent* error)
{
    if (source == connection && connection)
    {
        ++errorCount;
        return 0;
    }
    return previousErrorHandler ? previousErrorHandler(source, error) : 0;
}

// The window that a window manager names as its own in `owner`'s _NET_SUPPORTING_WM_CHECK.
Window supportingWindow(Window owner)
{
    Atom type = None;
    int format = 0;
    unsigned long count = 0, remaining = 0;
    unsigned char* data = nullptr;
    Window result = None;
    if (XGetWindowProperty(connection, owner, atoms[static_cast<int>(AtomName::NetSupportingWmCheck)], 0, 1, False,
                           XA_WINDOW, &type, &format, &count, &remaining, &data) == Success &&
        data && type == XA_WINDOW && format == 32 && count == 1)
        result = static_cast<Window>(reinterpret_cast<unsigned long*>(data)[0]);
    if (data)
        XFree(data);
    return result;
}
} // namespace

Display* acquireDisplay()
{
    if (!connection)
    {
        connection = XOpenDisplay(nullptr);
        if (!connection)
            return nullptr;
        previousErrorHandler = XSetErrorHandler(handleError);
        XInternAtoms(connection, const_cast<char**>(atomNames), static_cast<int>(atomCount), False, atoms);
        // Held keys then repeat as presses without releases in between, as on Win32.
        Bool detectable = False;
        XkbSetDetectableAutoRepeat(connection, True, &detectable);
        refreshWindowManager();
    }
    ++users;
    return connection;
}

void releaseDisplay()
{
    if (!connection || users == 0 || --users > 0)
        return;
    destroyContexts(connection);
    XCloseDisplay(connection);
    connection = nullptr;
    // Someone may have installed a handler after ours: theirs stays.
    const XErrorHandler current = XSetErrorHandler(previousErrorHandler);
    if (current != handleError)
        XSetErrorHandler(current); // kept: a handler chained to ours still forwards through it
}

Display* display()
{
    return connection;
}

Atom atom(AtomName name)
{
    return atoms[static_cast<int>(name)];
}

void refreshWindowManager()
{
    for (bool& flag : supported)
        flag = false;
    managerRunning = false;
    if (!connection)
        return;
    // A window manager proves that it runs by naming a window that names itself.
    ErrorTrap trap;
    const Window root = DefaultRootWindow(connection);
    const Window check = supportingWindow(root);
    managerRunning = check != None && supportingWindow(check) == check && !trap.failed();
    if (!managerRunning)
        return;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, remaining = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(connection, root, atom(AtomName::NetSupported), 0, 4096, False, XA_ATOM, &type, &format,
                           &count, &remaining, &data) == Success &&
        data && type == XA_ATOM && format == 32)
    {
        const unsigned long* hints = reinterpret_cast<unsigned long*>(data);
        for (unsigned long index = 0; index < count; ++index)
            for (std::size_t name = 0; name < atomCount; ++name)
                if (hints[index] == atoms[name])
                    supported[name] = true;
    }
    if (data)
        XFree(data);
}

bool windowManagerSupports(AtomName hint)
{
    return supported[static_cast<int>(hint)];
}

bool windowManagerRunning()
{
    return managerRunning;
}

ErrorTrap::ErrorTrap() : errorsBefore(errorCount) {}

bool ErrorTrap::failed() const
{
    if (connection)
        XSync(connection, False);
    return errorCount != errorsBefore;
}
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
