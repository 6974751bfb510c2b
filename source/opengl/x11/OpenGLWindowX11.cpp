// Placeholder X11 back end of OpenGLWindow until the real one exists: window creation fails
// (the front end then reports "Failed to create window." and leaves null handles), so no other
// operation is reached with a window; the rest answer as for no window at all.
#include "../WindowBackend.h"

namespace Tavrin
{
namespace OpenGL
{
namespace WindowBackend
{
WindowHandle createWindow(OpenGLWindow*, const std::string&, WindowHandle)
{
    return WindowHandle();
}

DeviceContextHandle getDeviceContext(WindowHandle)
{
    return DeviceContextHandle();
}

bool setPixelFormat(DeviceContextHandle)
{
    return false;
}

void releaseDeviceContext(WindowHandle, DeviceContextHandle) {}
void destroyWindow(WindowHandle) {}
void makeCurrent(DeviceContextHandle, RenderContextHandle) {}
void swapBuffers(DeviceContextHandle) {}
void processMessages() {}

OpenGLWindow::Rect windowRect(WindowHandle)
{
    return OpenGLWindow::Rect();
}

OpenGLWindow::Rect clientRect(WindowHandle)
{
    return OpenGLWindow::Rect();
}

void moveWindow(WindowHandle, int, int) {}
void resizeWindow(WindowHandle, int, int) {}

Eigen::Vector2i outerSizeForClient(int width, int height)
{
    return Eigen::Vector2i(width, height);
}

bool isMaximized(WindowHandle)
{
    return false;
}

void restoreFromMaximized(WindowHandle) {}
void maximize(WindowHandle) {}

void readStyles(WindowHandle, int& style, int& exStyle)
{
    style = 0;
    exStyle = 0;
}

void writeStyles(WindowHandle, int, int) {}
void writeBorderlessStyles(WindowHandle, int, int) {}

MonitorHandle monitorFromWindow(WindowHandle)
{
    return MonitorHandle();
}

bool monitorRect(MonitorHandle, OpenGLWindow::Rect&)
{
    return false;
}

void placeWindow(WindowHandle, const OpenGLWindow::Rect&) {}

std::vector<OpenGLWindow::Monitor> enumerateMonitors()
{
    return std::vector<OpenGLWindow::Monitor>();
}
} // namespace WindowBackend
} // namespace OpenGL
} // namespace Tavrin
