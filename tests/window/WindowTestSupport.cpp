// The window suite's environment and its native helpers.
#include "WindowTestSupport.h"

#include "support/TestSupport.h"

#include <opengl/OpenGLContext.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <thread>
#include <tuple>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace TavrinWindowTest
{
namespace
{
std::unique_ptr<Tavrin::OpenGL::OpenGLWindow> window;
std::string reason;

// One window for the whole run (window creation and destruction are slow on a virtual display);
// its context starts GLEW for every later context of the run.
class WindowTestEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        TavrinTest::StreamCapture err(std::cerr);
        auto created = std::make_unique<Tavrin::OpenGL::OpenGLWindow>("Tavrin window tests");
        if (!created->getWindowHandle() || !created->getDeviceContext())
        {
            reason = "this platform's window back end cannot create windows here (" + err.text() + ")";
            return;
        }
        window = std::move(created);
        Tavrin::OpenGL::OpenGLContext::init();
    }
    void TearDown() override { window.reset(); }
};

::testing::Environment* const environment = ::testing::AddGlobalTestEnvironment(new WindowTestEnvironment);
} // namespace

Tavrin::OpenGL::OpenGLWindow* sharedWindow()
{
    return window.get();
}

const std::string& unavailableReason()
{
    return reason;
}

void sleepMilliseconds(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void settle(const Tavrin::OpenGL::OpenGLWindow& window)
{
    auto placement = [&] {
        return std::make_tuple(window.getPosition().x(), window.getPosition().y(), window.getSize().x(),
                               window.getSize().y(), isMaximized(window.getWindowHandle()));
    };
    auto last = placement();
    int unchanged = 0;
    for (int waited = 0; waited < 3000 && unchanged < 200; waited += 10)
    {
        window.processMessages();
        sleepMilliseconds(10);
        window.processMessages();
        const auto now = placement();
        unchanged = now == last ? unchanged + 10 : 0;
        last = now;
    }
}

#if defined(_WIN32)
bool windowExists(Tavrin::OpenGL::WindowHandle window)
{
    return IsWindow(window) != 0;
}

void postMessage(Tavrin::OpenGL::WindowHandle window, unsigned int message, unsigned long long wParam, long long lParam)
{
    PostMessageW(window, message, wParam, lParam);
}

void maximize(Tavrin::OpenGL::WindowHandle window)
{
    ShowWindow(window, SW_MAXIMIZE);
}

void restore(Tavrin::OpenGL::WindowHandle window)
{
    ShowWindow(window, SW_RESTORE);
}

void activate(Tavrin::OpenGL::WindowHandle window)
{
    SetForegroundWindow(window);
}

bool isMaximized(Tavrin::OpenGL::WindowHandle window)
{
    return IsZoomed(window) != 0;
}

Eigen::Vector2i screenSize()
{
    return Eigen::Vector2i(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
}

std::uint32_t readClientPixel(Tavrin::OpenGL::WindowHandle window, int x, int y)
{
    RECT client = {};
    GetClientRect(window, &client);
    HDC deviceContext = GetDC(window);
    const COLORREF colour = GetPixel(deviceContext, x, client.bottom - 1 - y);
    ReleaseDC(window, deviceContext);
    return (GetRValue(colour) << 16) | (GetGValue(colour) << 8) | GetBValue(colour);
}

bool runHostProgram(const std::string& commandLine)
{
    // Wine starts a Unix executable named by its Unix path like any other program.
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    std::string command = commandLine;
    if (!CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return false;
    WaitForSingleObject(process.hProcess, 10000);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return true;
}
#endif
} // namespace TavrinWindowTest
