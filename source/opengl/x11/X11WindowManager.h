#pragma once

// Internal: the window-manager side of the X11 windows on the shared connection: properties and
// hints, frame extents, EWMH states, and the one wait for the window manager to carry out a
// request. Every function works on the shared connection, which must be open.

// Eigen (through the window's header) must come before the X11 headers, which define Success.
#include <opengl/OpenGLWindow.h>

#include "X11Connection.h"

#include <functional>
#include <string>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
/// Where a new window goes: its frame's top-left corner and its client size.
const int initialLeft = 100, initialTop = 100, initialClientWidth = 400, initialClientHeight = 300;
/// How long one request waits for the window manager to carry it out, at most.
const int windowManagerTimeoutMilliseconds = 500;

/// The frame that the window manager puts around a window (_NET_FRAME_EXTENTS).
struct FrameExtents
{
    int left = 0, right = 0, top = 0, bottom = 0;
};

/// A 32-bit-format property; false when absent or of another type.
bool readProperty(Window window, Atom property, Atom type, std::vector<unsigned long>& values);
/// The window's frame; none when the window manager has not set one.
FrameExtents frameExtents(Window window);
/// Whether the window manager has set the window's frame (perhaps none).
bool frameExtentsKnown(Window window);
/// The frame last seen on a framed window (none before the first): "a framed window's" frame.
FrameExtents lastFrameExtents();

/// The client area in root coordinates; false when the window cannot be read.
bool clientGeometry(Window window, int& x, int& y, int& width, int& height);
/// The outer rectangle: the client area plus the frame.
OpenGLWindow::Rect outerRect(Window window);
bool sameRect(const OpenGLWindow::Rect& a, const OpenGLWindow::Rect& b);

/// Waits, windowManagerTimeoutMilliseconds at most in all, until `done()` holds and then until
/// the window's outer rectangle holds still. Returns at once (after a round trip) without a
/// window manager, when the server has already carried the request out.
void waitForWindowManager(Window window, const std::function<bool()>& done);

/// Whether _NET_WM_STATE holds `state`.
bool hasState(Window window, AtomName state);
/// Maximised both ways.
bool maximized(Window window);
/// Iconified (WM_STATE IconicState).
bool iconic(Window window);
/// Adds or removes _NET_WM_STATE entries (`second` may be AtomName::Count, none): asked of the
/// window manager when one handles them, written directly otherwise (only recorded then).
void changeStates(Window window, bool add, AtomName first, AtomName second);

/// Names a new window (WM_NAME; _NET_WM_NAME in UTF-8, a title that is not UTF-8 read as
/// Latin-1; WM_CLASS) and sets its hints: placement at the initial place and size, input,
/// WM_DELETE_WINDOW, and `owner` (when not None) as WM_TRANSIENT_FOR.
void describeWindow(Display* display, Window window, const std::string& title, Window owner);
/// Asks a window manager that offers it to set the frame extents of a window not yet mapped.
void requestFrameExtents(Window window);
/// Waits until the window manager has framed and placed a new window, and puts the frame's
/// top-left corner at the initial place if the manager chose another.
void waitUntilPlaced(Display* display, Window window);
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
