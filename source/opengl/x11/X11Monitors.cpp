// Monitors on X11: XRandR's active monitors, named by their name atoms.
#include "../WindowBackend.h"

#include "X11Connection.h"
#include "X11Monitors.h"

#include <X11/extensions/Xrandr.h>

#include <climits>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
struct MonitorArea
{
    Atom name = None;
    OpenGLWindow::Rect rect;
};

// The active monitors (XRandR 1.5); without them, the screen as one monitor named "screen".
std::vector<MonitorArea> queryMonitors(Display* display)
{
    std::vector<MonitorArea> areas;
    int eventBase = 0, errorBase = 0, major = 0, minor = 0;
    if (XRRQueryExtension(display, &eventBase, &errorBase) && XRRQueryVersion(display, &major, &minor) &&
        (major > 1 || (major == 1 && minor >= 5)))
    {
        int count = 0;
        XRRMonitorInfo* monitors = XRRGetMonitors(display, DefaultRootWindow(display), True, &count);
        for (int index = 0; monitors && index < count; ++index)
        {
            MonitorArea area;
            area.name = monitors[index].name;
            area.rect.left = monitors[index].x;
            area.rect.top = monitors[index].y;
            area.rect.right = monitors[index].x + monitors[index].width;
            area.rect.bottom = monitors[index].y + monitors[index].height;
            areas.push_back(area);
        }
        if (monitors)
            XRRFreeMonitors(monitors);
    }
    if (areas.empty())
    {
        MonitorArea area;
        area.name = XInternAtom(display, "screen", False);
        area.rect.right = DisplayWidth(display, DefaultScreen(display));
        area.rect.bottom = DisplayHeight(display, DefaultScreen(display));
        areas.push_back(area);
    }
    return areas;
}
} // namespace

namespace X11
{
MonitorHandle nearestMonitor(Display* display, const OpenGLWindow::Rect& rect)
{
    const long long centreX = (static_cast<long long>(rect.left) + rect.right) / 2;
    const long long centreY = (static_cast<long long>(rect.top) + rect.bottom) / 2;
    // The monitor that contains the window's centre, else the nearest one to it.
    MonitorHandle nearest = MonitorHandle();
    long long nearestDistance = LLONG_MAX;
    for (const MonitorArea& area : queryMonitors(display))
    {
        const long long dx = centreX < area.rect.left     ? area.rect.left - centreX
                             : centreX >= area.rect.right ? centreX - area.rect.right + 1
                                                          : 0;
        const long long dy = centreY < area.rect.top       ? area.rect.top - centreY
                             : centreY >= area.rect.bottom ? centreY - area.rect.bottom + 1
                                                           : 0;
        const long long distance = dx * dx + dy * dy;
        if (distance < nearestDistance)
        {
            nearest = area.name;
            nearestDistance = distance;
        }
    }
    return nearest;
}
} // namespace X11

namespace WindowBackend
{
bool monitorRect(MonitorHandle monitor, OpenGLWindow::Rect& rect)
{
    Display* display = monitor ? X11::acquireDisplay() : nullptr;
    if (!display)
        return false;
    bool found = false;
    for (const MonitorArea& area : queryMonitors(display))
        if (area.name == monitor)
        {
            rect = area.rect;
            found = true;
            break;
        }
    X11::releaseDisplay();
    return found;
}

std::vector<OpenGLWindow::Monitor> enumerateMonitors()
{
    std::vector<OpenGLWindow::Monitor> monitors;
    Display* display = X11::acquireDisplay();
    if (!display)
        return monitors;
    for (const MonitorArea& area : queryMonitors(display))
    {
        OpenGLWindow::Monitor monitor;
        monitor.handle = area.name;
        // The bottom edge, not the top: the stored position is (left, bottom).
        monitor.position = Eigen::Vector2i(area.rect.left, area.rect.bottom);
        monitor.size = Eigen::Vector2i(area.rect.right - area.rect.left, area.rect.bottom - area.rect.top);
        monitors.push_back(monitor);
    }
    X11::releaseDisplay();
    return monitors;
}
} // namespace WindowBackend
} // namespace OpenGL
} // namespace Tavrin
