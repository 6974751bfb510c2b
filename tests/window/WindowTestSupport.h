#pragma once

// Shared pieces of the window suite: the window that the run shares and a fixture that puts it
// back, a log of the messages that reach a window, and the window system as another program on
// the display sees it (Host).

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
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace TavrinWindowTest
{
using Eigen::Vector2i;
using Tavrin::OpenGL::OpenGLWindow;
using Tavrin::OpenGL::WindowHandle;

const unsigned int wmDestroy = 0x0002, wmMove = 0x0003, wmSize = 0x0005, wmSetFocus = 0x0007, wmKillFocus = 0x0008,
                   wmClose = 0x0010, wmNcDestroy = 0x0082, wmKeyDown = 0x0100, wmKeyUp = 0x0101, wmChar = 0x0102,
                   wmSysKeyDown = 0x0104, wmSysKeyUp = 0x0105, wmSysChar = 0x0106, wmSysCommand = 0x0112;

struct Message
{
    unsigned int message;
    unsigned long long wParam;
    long long lParam;
    bool operator==(const Message& o) const { return message == o.message && wParam == o.wParam && lParam == o.lParam; }
    friend std::ostream& operator<<(std::ostream& out, const Message& m)
    {
        return out << std::hex << "{0x" << m.message << ", 0x" << m.wParam << ", 0x" << m.lParam << "}" << std::dec;
    }
    /// A key message: repeat count 1, `scan` from bit 16 (its bit 8: extended key), `flags` over
    /// it (0x2000 Alt held, 0x4000 previously down, 0xC000 released).
    static Message key(unsigned int message, unsigned long long code, long long scan, long long flags)
    {
        return {message, code, 1 | (scan | flags) << 16};
    }
    /// MAKELPARAM(x, y).
    static long long words(int x, int y) { return static_cast<long long>((y & 0xFFFFu) << 16 | (x & 0xFFFFu)); }
};
using Messages = std::vector<Message>;

/// Records the messages of the given numbers that reach `window` while it lives.
struct MessageLog
{
    MessageLog(OpenGLWindow& window, std::set<unsigned int> wanted) : window(window)
    {
        window.addMesageHandler(
            name(), [this, wanted](OpenGLWindow*, unsigned int message, unsigned long long wParam, long long lParam) {
                if (wanted.count(message))
                    messages.push_back({message, wParam, lParam});
            });
    }
    ~MessageLog() { window.removeMesageHandler(name()); }
    std::string name() const { return "log " + std::to_string(reinterpret_cast<std::uintptr_t>(this)); }
    /// The last message of that number; {0, 0, 0} when none came.
    Message last(unsigned int message) const
    {
        const auto found =
            std::find_if(messages.rbegin(), messages.rend(), [&](auto& m) { return m.message == message; });
        return found == messages.rend() ? Message{0, 0, 0} : *found;
    }

    OpenGLWindow& window;
    Messages messages;
};

/// Pumps the thread's queue until `done()` holds (true) or `milliseconds` have passed (false).
inline bool pumpUntil(const OpenGLWindow& window, int milliseconds, const std::function<bool()>& done)
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

/// Pumps until the window's rectangle has held still for 200 ms (at most 3 s): the window manager
/// has answered every request so far, and no late answer moves the window afterwards.
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

// The window system as another program on the display sees it. requestClose is what the window
// manager sends when the user closes a window; readClientPixel gives 0xRRGGBB with y from the
// bottom row, as in GL; run starts a program of the display's host (xdotool, ...).
#if defined(_WIN32)
struct Host
{
    static bool windowExists(WindowHandle window) { return IsWindow(window); }
    static void activate(const OpenGLWindow& window)
    {
        SetForegroundWindow(window.getWindowHandle());
        pumpUntil(window, 2000, [&] { return GetForegroundWindow() == window.getWindowHandle(); });
    }
    static void requestClose(WindowHandle window) { PostMessageW(window, WM_CLOSE, 0, 0); }
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
    static bool currentOn(const OpenGLWindow& window) { return wglGetCurrentDC() == window.getDeviceContext(); }
    // Wine starts a Unix program named by its Unix path, but cannot wait for it.
    static bool run(std::string commandLine)
    {
        STARTUPINFOA startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process = {};
        if (!CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
            return false;
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return true;
    }
};
#else
struct Host
{
    static bool run(const std::string& commandLine) { return std::system(commandLine.c_str()) == 0; }
    static std::string id(WindowHandle window) { return " " + std::to_string(window); }
    static bool windowExists(WindowHandle window) { return run("xwininfo -id" + id(window) + " >/dev/null 2>&1"); }
    static void activate(const OpenGLWindow& window)
    {
        run("xdotool windowactivate --sync" + id(window.getWindowHandle()));
    }
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
    static bool currentOn(const OpenGLWindow& window) { return glXGetCurrentDrawable() == window.getWindowHandle(); }
    /// The suite's own connection to the display, and an atom of it.
    static ::Display* connection()
    {
        static ::Display* const display = XOpenDisplay(nullptr);
        return display;
    }
    static Atom atom(const char* name) { return XInternAtom(connection(), name, False); }
};
#endif

/// The window that the run shares (null when this platform cannot create windows here); reset
/// destroys it and, with `remake`, makes a new one.
OpenGLWindow* sharedWindow();
void resetSharedWindow(bool remake);

/// The shared window, put back afterwards: placement, full screen, onKeyDown.
class SharedWindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!(window = sharedWindow()))
            GTEST_SKIP() << "this platform cannot create windows here";
        settle(*window);
        position = window->getPosition();
        clientSize = window->getClientSize();
    }
    void TearDown() override
    {
        if (!window)
            return;
        window->setFullscreen(false);
        window->setPosition(position);
        window->setClientSize(clientSize);
        window->setOnKeyDown(nullptr);
        settle(*window);
    }

    OpenGLWindow* window = nullptr;
    Vector2i position, clientSize;
};
} // namespace TavrinWindowTest

#define TAVRIN_REQUIRE_WINDOWS()                                                                                       \
    if (!::TavrinWindowTest::sharedWindow())                                                                           \
    GTEST_SKIP() << "this platform cannot create windows here"
