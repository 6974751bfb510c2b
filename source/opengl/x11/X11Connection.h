#pragma once

// Internal: the one X display connection that all windows of the process share, its atoms, the
// window manager's (EWMH) abilities, and the GLX contexts made on it.
//
// Every window and every device-context record holds one reference; the connection is opened
// on the first reference (XOpenDisplay with $DISPLAY) and closed when the last one is dropped.
// Before it closes, the GLX contexts that OpenGLContext::getContext made on it are released
// from the calling thread and destroyed: a context cannot outlive its connection.
//
// Errors of requests on this connection (a window that the host or the window manager has
// already destroyed, a parent that is not a window) are counted instead of ending the process,
// the way Win32 calls on stale handles fail quietly. Errors on other connections go to the
// handler that was installed before.

#include <X11/Xlib.h>

struct __GLXFBConfigRec;

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
/// The atoms that the back end uses, interned once per connection.
enum class AtomName
{
    WmProtocols,
    WmDeleteWindow,
    WmState,
    NetSupported,
    NetSupportingWmCheck,
    NetWmName,
    NetWmPid,
    NetWmState,
    NetWmStateFullscreen,
    NetWmStateMaximizedVert,
    NetWmStateMaximizedHorz,
    NetFrameExtents,
    NetRequestFrameExtents,
    NetActiveWindow,
    Utf8String,
    Count
};

/// Counts one user of the shared connection and returns it, opening it first when needed;
/// null (nothing counted) when the display cannot be opened.
Display* acquireDisplay();

/// Drops one user; the last one closes the connection (contexts made on it are destroyed).
void releaseDisplay();

/// The open connection, or null.
Display* display();

/// An atom of the open connection.
Atom atom(AtomName name);

/// Re-reads which EWMH hints the running window manager handles (_NET_SUPPORTED of a window
/// manager that announces itself through _NET_SUPPORTING_WM_CHECK).
void refreshWindowManager();

/// Whether a window manager handles the EWMH hint `hint` (as of the last refresh).
bool windowManagerSupports(AtomName hint);

/// Whether an EWMH window manager runs (as of the last refresh).
bool windowManagerRunning();

/// Counts the errors of the shared connection from its construction on.
class ErrorTrap
{
public:
    ErrorTrap();
    /// Waits for the server to have handled every request so far; true when one of them failed.
    bool failed() const;

private:
    unsigned long errorsBefore;
};

/// The GLX frame-buffer configuration of every window (defined beside getContext): the same
/// choice each time, so the one shared context fits them all. Required: window drawable, RGBA,
/// double buffer, at least 8 bits per colour channel, a visual. Preferred, in this order: stereo,
/// no caveat, 8 alpha bits, no depth, stencil, accumulation, auxiliary or multisample buffers,
/// exactly 8 bits per colour channel, the root window's depth; then the lowest configuration id.
/// Null when none fits.
__GLXFBConfigRec* chooseFrameBufferConfig(Display* display, int screen);

/// Releases the current context when it is one of `display`, and destroys every context that
/// OpenGLContext::getContext made on `display` (defined beside getContext).
void destroyContexts(Display* display);
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
