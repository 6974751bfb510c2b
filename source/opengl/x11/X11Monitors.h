#pragma once

// Internal: the monitor of an X11 window (the rest of the monitor operations are back-end
// operations, defined in X11Monitors.cpp).

#include <opengl/OpenGLWindow.h>

#include <X11/Xlib.h>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
/// The monitor that contains the centre of `rect`, else the one nearest to it.
MonitorHandle nearestMonitor(Display* display, const OpenGLWindow::Rect& rect);
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
