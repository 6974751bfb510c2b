#pragma once

// Internal: what the X11 back end proper (OpenGLWindowX11.cpp) offers to its placement code.

#include <X11/Xlib.h>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
/// Whether `window` is a live window made by this back end (a stale or foreign one is not).
bool isLiveWindow(Window window);

/// Reports the client area's move and resize since last reported to the window's object
/// (WM_MOVE, WM_SIZE); nothing when it has not changed or the window is not live.
void reportPlacement(Window window);
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
