#pragma once

// The window suite's shared window, a log of a window's messages, the window system as others see it.

#include "support/TestSupport.h"

#include <opengl/OpenGLContext.h>
#include <opengl/OpenGLWindow.h>

#include <gtest/gtest.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <GL/glew.h>

#include <GL/glx.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <set>
#include <thread>
#include <tuple>

namespace TavrinWindowTest
{
using Eigen::Vector2i;
using Tavrin::OpenGL::OpenGLWindow;
using Tavrin::OpenGL::WindowHandle;

const unsigned int wmDestroy = 0x0002, wmMove = 0x0003, wmSize = 0x0005, wmSetFocus = 0x0007, wmKillFocus = 0x0008,
                   wmClose = 0x0010, wmNcDestroy = 0x0082, wmKeyDown = 0x0100, wmKeyUp = 0x0101, wmChar = 0x0102,
                   wmSysKeyDown = 0x0104, wmSysKeyUp = 0x0105, wmSysChar = 0x0106;

using Message = std::tuple<unsigned int, unsigned long long, long long>; // message, wParam, lParam
using Messages = std::vector<Message>;
inline long long words(int x, int y) // MAKELPARAM
{
    return static_cast<long long>(y & 0xFFFF) << 16 | (x & 0xFFFF);
}
/// A key message: `scan` (0x100: extended) and `flags` (0x2000 Alt, 0x4000 repeat, 0xC000 up) at bit 16.
inline Message key(unsigned int message, unsigned long long code, long long scan, long long flags)
{
    return {message, code, 1 | (scan | flags) << 16};
}

/// Records the messages of the given numbers that reach `window` while it lives (one at a time a window).
struct MessageLog
{
    MessageLog(OpenGLWindow& window, std::set<unsigned int> wanted) : window(window)
    {
        window.addMesageHandler("log",
                                [this, wanted](OpenGLWindow*, unsigned int message, unsigned long long w, long long l) {
                                    if (wanted.count(message))
                                        messages.emplace_back(message, w, l);
                                });
    }
    ~MessageLog() { window.removeMesageHandler("log"); }
    Message last(unsigned int message) const
    {
        const auto found = std::find_if(messages.rbegin(), messages.rend(),
                                        [&](const Message& m) { return std::get<0>(m) == message; });
        return found == messages.rend() ? Message{} : *found;
    }

    OpenGLWindow& window;
    Messages messages;
};

/// Pumps the queue until `done()` holds (true) or `milliseconds` have passed (false).
template <typename Done> bool pumpUntil(const OpenGLWindow& window, int milliseconds, Done done)
{
    for (int waited = 0; waited <= milliseconds; waited += 10)
    {
        window.processMessages();
        if (done())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

/// Pumps until the window's rectangle has held still for 200 ms (at most 3 s).
inline void settle(const OpenGLWindow& window)
{
    auto last = std::make_pair(window.getPosition(), window.getSize());
    int still = 0;
    pumpUntil(window, 3000, [&] {
        const auto now = std::make_pair(window.getPosition(), window.getSize());
        still = now == last ? still + 10 : 0;
        last = now;
        return still >= 200;
    });
}

// readClientPixel gives 0xRRGGBB, y from the bottom row as in GL; run starts a program of the host.
#if defined(_WIN32)
struct Host
{
    static bool windowExists(WindowHandle window) { return IsWindow(window); }
    static void requestClose(WindowHandle window) { PostMessageW(window, WM_SYSCOMMAND, SC_CLOSE, 0); } // close button
    static Vector2i screenSize() { return Vector2i(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)); }
    static Vector2i clientOrigin(WindowHandle window)
    {
        POINT origin = {};
        ClientToScreen(window, &origin);
        return Vector2i(origin.x, origin.y);
    }
    static std::uint32_t readClientPixel(WindowHandle window, int x, int y)
    {
        RECT client = {};
        GetClientRect(window, &client);
        const COLORREF colour = GetPixel(GetDC(window), x, client.bottom - 1 - y); // the class's own DC
        return GetRValue(colour) << 16 | GetGValue(colour) << 8 | GetBValue(colour);
    }
    static const void* currentContext() { return wglGetCurrentContext(); }
    static void activate(const OpenGLWindow& window)
    {
        SetForegroundWindow(window.getWindowHandle());
        pumpUntil(window, 2000, [&] { return GetForegroundWindow() == window.getWindowHandle(); });
    }
    // Wine starts a Unix program named by its Unix path, but cannot wait for it.
    static bool run(const std::string& commandLine) { return WinExec(commandLine.c_str(), SW_HIDE) > 31; }
};
#else
struct Host
{
    static bool run(const std::string& commandLine) { return std::system(commandLine.c_str()) == 0; }
    static std::string id(WindowHandle window) { return " " + std::to_string(window); }
    static bool windowExists(WindowHandle window) { return run("xwininfo -id" + id(window) + " >/dev/null 2>&1"); }
    // What the window manager sends when the user closes a window.
    static void requestClose(WindowHandle window)
    {
        XEvent event = {};
        event.xclient = {ClientMessage, 0, False, connection(), window, atom("WM_PROTOCOLS"), 32, {}};
        event.xclient.data.l[0] = static_cast<long>(atom("WM_DELETE_WINDOW"));
        XSendEvent(connection(), window, False, NoEventMask, &event);
        XFlush(connection());
    }
    static Vector2i screenSize() { return Vector2i(DisplayWidth(connection(), 0), DisplayHeight(connection(), 0)); }
    static Vector2i clientOrigin(WindowHandle window)
    {
        Vector2i origin;
        Window child = None;
        XTranslateCoordinates(connection(), window, DefaultRootWindow(connection()), 0, 0, &origin.x(), &origin.y(),
                              &child);
        return origin;
    }
    static std::uint32_t readClientPixel(WindowHandle window, int x, int y)
    {
        XWindowAttributes attributes = {};
        XGetWindowAttributes(connection(), window, &attributes);
        XImage* image = XGetImage(connection(), window, x, attributes.height - 1 - y, 1, 1, AllPlanes, ZPixmap);
        const std::uint32_t colour = XGetPixel(image, 0, 0) & 0xFFFFFF; // TrueColor, 8 bits a channel
        XDestroyImage(image);
        return colour;
    }
    static const void* currentContext() { return glXGetCurrentContext(); }
    static void activate(const OpenGLWindow& window)
    {
        run("xdotool windowactivate --sync" + id(window.getWindowHandle()));
    }
    static ::Display* connection() // the suite's own
    {
        static ::Display* const display = XOpenDisplay(nullptr);
        return display;
    }
    static Atom atom(const char* name) { return XInternAtom(connection(), name, False); }
};
#endif

/// One settled window a suite (slow to make on a virtual display); one that a test destroys is remade.
struct SharedWindowTest : ::testing::Test
{
    static void TearDownTestSuite() { window.reset(); }
    void SetUp() override
    {
        if (!window)
        {
            window = std::make_unique<OpenGLWindow>("Tavrin window tests");
            Tavrin::OpenGL::OpenGLContext::init(); // GLEW, for every later context of the run too
        }
        ASSERT_TRUE(Host::windowExists(window->getWindowHandle()));
        settle(*window);
    }

    static inline std::unique_ptr<OpenGLWindow> window;
};
} // namespace TavrinWindowTest
