// The Win32 back end of OpenGLWindow: window class, window, pixel format, WGL, message pump,
// placement and monitors.
#include "../WindowBackend.h"

#include <windows.h>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
const DWORD overlappedWindow = WS_OVERLAPPEDWINDOW;

// The object pointer lives in the window's extra memory, slot 0 (the class reserves 8 bytes);
// the user-data slot stays free for the host.
LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    OpenGLWindow* owner = nullptr;
    if (message == WM_NCCREATE)
    {
        owner = static_cast<OpenGLWindow*>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams);
        if (!owner)
            return DefWindowProcW(window, message, wParam, lParam);
        SetWindowLongPtrW(window, 0, reinterpret_cast<LONG_PTR>(owner));
    }
    else
    {
        owner = reinterpret_cast<OpenGLWindow*>(GetWindowLongPtrW(window, 0));
    }
    if (owner)
        owner->systemWindowProcInternal(message, wParam, lParam);
    // Messages are observed, never consumed: default processing always follows.
    return DefWindowProcW(window, message, wParam, lParam);
}

// Each byte becomes one UTF-16 code unit by sign extension (0x80-0xFF turn into 0xFF80-0xFFFF):
// the window class is named by this widening while the window is created with the narrow title.
std::wstring widenBytes(const std::string& text)
{
    std::wstring wide;
    wide.reserve(text.size());
    for (const char byte : text)
        wide.push_back(static_cast<wchar_t>(static_cast<short>(static_cast<signed char>(byte))));
    return wide;
}

OpenGLWindow::Rect toRect(const RECT& rect)
{
    OpenGLWindow::Rect result;
    result.left = rect.left;
    result.top = rect.top;
    result.right = rect.right;
    result.bottom = rect.bottom;
    return result;
}

BOOL CALLBACK enumerateMonitor(HMONITOR monitor, HDC deviceContext, LPRECT, LPARAM data)
{
    MONITORINFO info = {};
    info.cbSize = sizeof info;
    if (!GetMonitorInfoW(monitor, &info))
        return TRUE;
    OpenGLWindow::Monitor entry;
    entry.handle = monitor;
    entry.deviceContext = deviceContext;
    // The bottom edge, not the top: the stored position is (left, bottom).
    entry.position = Eigen::Vector2i(info.rcMonitor.left, info.rcMonitor.bottom);
    entry.size =
        Eigen::Vector2i(info.rcMonitor.right - info.rcMonitor.left, info.rcMonitor.bottom - info.rcMonitor.top);
    reinterpret_cast<std::vector<OpenGLWindow::Monitor>*>(data)->push_back(entry);
    return TRUE;
}
} // namespace

namespace WindowBackend
{
WindowHandle createWindow(OpenGLWindow* owner, const std::string& title, WindowHandle parent)
{
    const std::wstring className = widenBytes(title);
    WNDCLASSW windowClass = {};
    windowClass.style = CS_OWNDC;
    windowClass.lpfnWndProc = windowProcedure;
    windowClass.cbClsExtra = 0;
    windowClass.cbWndExtra = sizeof(OpenGLWindow*);
    windowClass.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
    windowClass.lpszClassName = className.c_str();
    RegisterClassW(&windowClass); // fails for a title seen before: that class is used

    RECT outer = {0, 0, 400, 300};
    AdjustWindowRect(&outer, overlappedWindow, FALSE);
    HWND window = CreateWindowExA(0, title.c_str(), title.c_str(), overlappedWindow, CW_USEDEFAULT, CW_USEDEFAULT,
                                  outer.right - outer.left, outer.bottom - outer.top, parent, nullptr,
                                  GetModuleHandleW(nullptr), owner);
    if (!window)
        return nullptr;
    SetWindowPos(window, nullptr, 100, 100, 0, 0, SWP_NOSIZE | SWP_FRAMECHANGED);
    ShowWindow(window, SW_SHOW);
    return window;
}

DeviceContextHandle getDeviceContext(WindowHandle window)
{
    return GetDC(window);
}

bool setPixelFormat(DeviceContextHandle deviceContext)
{
    PIXELFORMATDESCRIPTOR descriptor = {};
    descriptor.nSize = sizeof descriptor;
    descriptor.nVersion = 1;
    // Stereo is asked for and depth is not, on purpose; drivers without stereo pick a mono format.
    descriptor.dwFlags = PFD_DOUBLEBUFFER | PFD_STEREO | PFD_DRAW_TO_WINDOW | PFD_SUPPORT_OPENGL;
    descriptor.iPixelType = PFD_TYPE_RGBA;
    descriptor.cColorBits = 24;
    descriptor.cAlphaBits = 8;
    descriptor.iLayerType = PFD_MAIN_PLANE;
    const int index = ChoosePixelFormat(deviceContext, &descriptor);
    if (!SetPixelFormat(deviceContext, index, &descriptor))
        return false;
    DescribePixelFormat(deviceContext, index, sizeof descriptor, &descriptor);
    return true;
}

void releaseDeviceContext(WindowHandle window, DeviceContextHandle deviceContext)
{
    ReleaseDC(window, deviceContext);
}

void destroyWindow(WindowHandle window)
{
    DestroyWindow(window);
}

void makeCurrent(DeviceContextHandle deviceContext, RenderContextHandle context)
{
    // A failed wglMakeCurrent releases the thread's context; the device context of a destroyed
    // window may still be accepted (Wine), so that case is released explicitly: nothing meant for
    // a closed window is drawn into another one.
    if (!WindowFromDC(deviceContext) || !wglMakeCurrent(deviceContext, context))
        wglMakeCurrent(nullptr, nullptr);
}

void swapBuffers(DeviceContextHandle deviceContext)
{
    SwapBuffers(deviceContext);
}

void processMessages()
{
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

OpenGLWindow::Rect windowRect(WindowHandle window)
{
    RECT rect = {};
    GetWindowRect(window, &rect);
    return toRect(rect);
}

OpenGLWindow::Rect clientRect(WindowHandle window)
{
    RECT rect = {};
    GetClientRect(window, &rect);
    return toRect(rect);
}

void moveWindow(WindowHandle window, int x, int y)
{
    SetWindowPos(window, HWND_NOTOPMOST, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

void resizeWindow(WindowHandle window, int width, int height)
{
    SetWindowPos(window, HWND_NOTOPMOST, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

Eigen::Vector2i outerSizeForClient(int width, int height)
{
    RECT rect = {0, 0, width, height};
    AdjustWindowRect(&rect, overlappedWindow, FALSE);
    return Eigen::Vector2i(rect.right - rect.left, rect.bottom - rect.top);
}

bool isMaximized(WindowHandle window)
{
    return IsZoomed(window) != 0;
}

void restoreFromMaximized(WindowHandle window)
{
    SendMessageW(window, WM_SYSCOMMAND, SC_RESTORE, 0);
}

void maximize(WindowHandle window)
{
    SendMessageW(window, WM_SYSCOMMAND, SC_MAXIMIZE, 0);
}

SavedWindowState saveState(WindowHandle window)
{
    SavedWindowState saved;
    saved.style = GetWindowLongW(window, GWL_STYLE);
    saved.exStyle = GetWindowLongW(window, GWL_EXSTYLE);
    return saved;
}

void restoreState(WindowHandle window, const SavedWindowState& saved)
{
    SetWindowLongW(window, GWL_STYLE, saved.style);
    SetWindowLongW(window, GWL_EXSTYLE, saved.exStyle);
}

void makeBorderless(WindowHandle window, const SavedWindowState& saved)
{
    const unsigned int frame = WS_CAPTION | WS_THICKFRAME;
    const unsigned int edges = WS_EX_DLGMODALFRAME | WS_EX_WINDOWEDGE | WS_EX_CLIENTEDGE | WS_EX_STATICEDGE;
    SavedWindowState borderless;
    borderless.style = static_cast<int>(static_cast<unsigned int>(saved.style) & ~frame);
    borderless.exStyle = static_cast<int>(static_cast<unsigned int>(saved.exStyle) & ~edges);
    restoreState(window, borderless);
}

MonitorHandle monitorFromWindow(WindowHandle window)
{
    return MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST);
}

bool monitorRect(MonitorHandle monitor, OpenGLWindow::Rect& rect)
{
    MONITORINFO info = {};
    info.cbSize = sizeof info;
    if (!GetMonitorInfoW(monitor, &info))
        return false;
    rect = toRect(info.rcMonitor);
    return true;
}

void placeWindow(WindowHandle window, const OpenGLWindow::Rect& rect)
{
    SetWindowPos(window, nullptr, rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top,
                 SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED);
}

std::vector<OpenGLWindow::Monitor> enumerateMonitors()
{
    std::vector<OpenGLWindow::Monitor> monitors;
    EnumDisplayMonitors(nullptr, nullptr, enumerateMonitor, reinterpret_cast<LPARAM>(&monitors));
    return monitors;
}
} // namespace WindowBackend
} // namespace OpenGL
} // namespace Tavrin
