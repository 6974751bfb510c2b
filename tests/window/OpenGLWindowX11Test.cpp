// What only X11 shows: properties, key states, a host's GLX context, XRandR monitors, odd displays.
#if !defined(_WIN32)
#include "WindowTestSupport.h"

#include <X11/Xatom.h>

#include <filesystem>
#include <fstream>

using namespace TavrinWindowTest;
using OpenGLWindowX11 = SharedWindowTest;

namespace
{
std::string property(Window window, const char* name, Atom type)
{
    Atom actual = None;
    int format = 0;
    unsigned long count = 0, remaining = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(Host::connection(), window, Host::atom(name), 0, 1024, False, type, &actual, &format, &count,
                       &remaining, &data);
    const std::string value = data && format == 8 ? std::string(reinterpret_cast<char*>(data), count) : "";
    XFree(data);
    return value;
}

// Runs `test` in a child with TAVRIN_X11_CHILD set after the shell `setup`: "" if it passed, else its output.
std::string childFailure(const std::string& test, const std::string& setup)
{
    TavrinTest::TemporaryDirectory directory;
    const std::string log = directory.file("child.log"), self = std::filesystem::read_symlink("/proc/self/exe");
    const int status = std::system(
        (setup + "; env -u GTEST_OUTPUT TAVRIN_X11_CHILD=1 " + self + " --gtest_filter=" + test + " >" + log + " 2>&1")
            .c_str());
    std::ostringstream text;
    text << std::ifstream(log).rdbuf();
    return status == 0 && text.str().find("[  PASSED  ] 1 test") != std::string::npos ? "" : text.str();
}

const bool child = std::getenv("TAVRIN_X11_CHILD");
} // namespace

TEST_F(OpenGLWindowX11, OwnedWindowsPropertiesConfigurationKeysAndEnd)
{
    Display* display = Host::connection();
    std::vector<std::unique_ptr<OpenGLWindow>> windows;
    for (const std::string title : {"Tavrin caf\xC3\xA9", "Tavrin caf\xE9"}) // UTF-8 is kept, Latin-1 converted
    {
        windows.push_back(std::make_unique<OpenGLWindow>(title, window->getWindowHandle()));
        const Window owned = windows.back()->getWindowHandle();
        EXPECT_EQ(property(owned, "_NET_WM_NAME", Host::atom("UTF8_STRING")), "Tavrin caf\xC3\xA9");
        EXPECT_EQ(property(owned, "WM_NAME", XA_STRING), title);
        EXPECT_EQ(property(owned, "WM_CLASS", XA_STRING), title + '\0' + title + '\0');
        Window owner = None;
        Atom* protocols = nullptr;
        int count = 0;
        EXPECT_TRUE(XGetTransientForHint(display, owned, &owner) && owner == window->getWindowHandle());
        ASSERT_TRUE(XGetWMProtocols(display, owned, &protocols, &count));
        EXPECT_EQ(std::vector<Atom>(protocols, protocols + count), std::vector<Atom>{Host::atom("WM_DELETE_WINDOW")});
        XFree(protocols);
    }

    // One connection and one frame-buffer configuration, so the one context fits every window.
    const Tavrin::OpenGL::X11DeviceContext& context = *windows[0]->getDeviceContext();
    EXPECT_EQ(std::make_tuple(context.display, context.drawable, context.frameBufferConfig),
              std::make_tuple(window->getDeviceContext()->display, windows[0]->getWindowHandle(),
                              window->getDeviceContext()->frameBufferConfig));

    // Key presses in modifier states (Mod1 Alt, Mod2 Num Lock); Alt+F4's default processing closes the window.
    // clang-format off
    const std::tuple<const char*, unsigned int, Messages> presses[] = {
        {"F10", 0, {key(wmSysKeyDown, 0x79, 0x44, 0)}}, // a system key without Alt
        {"KP_Prior", Mod2Mask, {key(wmKeyDown, 0x69, 0x49, 0), key(wmChar, '9', 0x49, 0)}},
        {"KP_Insert", Mod2Mask, {key(wmKeyDown, 0x60, 0x52, 0), key(wmChar, '0', 0x52, 0)}},
        {"KP_Delete", Mod2Mask, {key(wmKeyDown, 0x6E, 0x53, 0), key(wmChar, '.', 0x53, 0)}},
        {"KP_Home", 0, {key(wmKeyDown, 0x24, 0x47, 0)}}, // not extended, unlike Home
        {"Print", 0, {key(wmKeyDown, 0x2C, 0x137, 0)}},
        {"Alt_R", ControlMask, {key(wmKeyDown, 0x12, 0x138, 0)}}, // Alt with Control: no system key
        {"q", ControlMask | Mod1Mask, {key(wmKeyDown, 'Q', 0x10, 0), key(wmChar, 0x11, 0x10, 0)}},
        {"F4", Mod1Mask, {key(wmSysKeyDown, 0x73, 0x3E, 0x2000), {wmSysCommand, 0xF060, 0}, {wmClose, 0, 0},
                          {wmDestroy, 0, 0}, {wmNcDestroy, 0, 0}}}};
    // clang-format on
    const Window keyedWindow = windows[0]->getWindowHandle();
    for (const auto& [name, state, expected] : presses)
    {
        MessageLog log(*windows[0], {wmKeyDown, wmChar, wmSysKeyDown, wmSysCommand, wmClose, wmDestroy, wmNcDestroy});
        const unsigned int code = XKeysymToKeycode(display, XStringToKeysym(name));
        XEvent event = {};
        event.xkey = {KeyPress, 0, True,  display, keyedWindow, DefaultRootWindow(display), None, CurrentTime, 1, 1,
                      1,        1, state, code,    True};
        XSendEvent(display, keyedWindow, False, KeyPressMask, &event);
        XSync(display, False);
        windows[0]->processMessages();
        EXPECT_EQ(log.messages, expected) << name;
    }
    EXPECT_FALSE(Host::windowExists(keyedWindow));

    // Destroyed by another client, the window reports it as DestroyWindow would; both are inert now.
    MessageLog log(*windows[1], {wmDestroy, wmNcDestroy});
    XDestroyWindow(display, windows[1]->getWindowHandle());
    XSync(display, False);
    EXPECT_TRUE(pumpUntil(*window, 2000, [&] { return log.messages.size() == 2; }));
    EXPECT_EQ(log.messages, (Messages{{wmDestroy, 0, 0}, {wmNcDestroy, 0, 0}}));
    for (const auto& owned : windows)
    {
        owned->setPosition(Vector2i(10, 10));
        owned->setFullscreen(true);
        EXPECT_EQ(owned->getPosition() + owned->getClientSize(), Vector2i(0, 0));
    }
}

// The last window ends the suite's connection and its contexts, but leaves a host's context alone.
TEST_F(OpenGLWindowX11, HostContextOnItsOwnConnectionOutlivesTheLastWindow)
{
    Display* display = Host::connection();
    const int drawable[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT, None},
              size[] = {GLX_PBUFFER_WIDTH, 1, GLX_PBUFFER_HEIGHT, 1, None};
    int count = 0;
    GLXFBConfig* configs = glXChooseFBConfig(display, 0, drawable, &count);
    ASSERT_GT(count, 0);
    const GLXPbuffer buffer = glXCreatePbuffer(display, configs[0], size);
    const GLXContext context = glXCreateNewContext(display, configs[0], GLX_RGBA_TYPE, nullptr, True);
    XFree(configs);
    glXMakeContextCurrent(display, buffer, buffer, context);
    window.reset();
    EXPECT_EQ(Host::currentContext(), context);
    glXMakeContextCurrent(display, None, None, nullptr);
    glXDestroyContext(display, context);
    glXDestroyPbuffer(display, buffer);
}

TEST_F(OpenGLWindowX11, TwoRandRMonitors)
{
    const Vector2i screen = Host::screenSize(), half = screen / 2;
    if (child) // the upper-left and the lower-right quarter, set up below
    {
        OpenGLWindow& window = *this->window;
        const std::vector<OpenGLWindow::Monitor>& monitors = OpenGLWindow::getMonitors();
        ASSERT_EQ(monitors.size(), 2u);
        EXPECT_EQ(std::make_pair(monitors[0].handle, monitors[1].handle),
                  std::make_pair(Host::atom("TavrinLeft"), Host::atom("TavrinRight"))); // the names' atoms
        EXPECT_EQ(monitors[0].position, Vector2i(0, half.y()));                         // left, bottom
        EXPECT_EQ(monitors[1].position, Vector2i(half.x(), screen.y()));
        EXPECT_EQ(std::make_pair(monitors[0].size, monitors[1].size), std::make_pair(half, half));
        const Vector2i size = window.getSize();
        EXPECT_EQ(&window.getMonitor(), &monitors[0]);
        // The offset from the left and bottom edges is kept; full screen covers the window's monitor.
        window.setMonitorIndex(1);
        EXPECT_EQ(std::make_pair(window.getPosition(), window.getMonitorIndex()),
                  std::make_pair(Vector2i(half + Vector2i(100, 100)), 1));
        window.setFullscreen(true);
        EXPECT_EQ(std::make_pair(window.getPosition(), window.getSize()), std::make_pair(half, half));
        window.setMonitorIndex(-3);
        EXPECT_TRUE(window.getFullscreen());
        EXPECT_EQ(std::make_pair(window.getPosition(), window.getSize()), std::make_pair(Vector2i(0, 0), half));
        window.setFullscreen(false);
        EXPECT_EQ(std::make_pair(window.getPosition(), window.getSize()), std::make_pair(Vector2i(100, 100), size));
        // A centre on no monitor: the nearest one counts (right monitor's left edge, left one's bottom).
        window.setPosition(Vector2i(half.x() - size.x() / 2 - 150, half.y() + 10));
        EXPECT_EQ(window.getMonitorIndex(), 1);
        window.setPosition(Vector2i(10, half.y() + 10));
        EXPECT_EQ(window.getMonitorIndex(), 0);
        return;
    }
    // Xvfb's output is named "screen"; giving it to the left monitor replaces its own monitor.
    const std::string size = std::to_string(half.x()) + "/100x" + std::to_string(half.y()) + "/100+";
    if (!Host::run("xrandr --setmonitor TavrinLeft " + size + "0+0 screen >/dev/null 2>&1"))
        GTEST_SKIP() << "this display cannot describe monitors with xrandr --setmonitor";
    EXPECT_TRUE(Host::run("xrandr --setmonitor TavrinRight " + size + std::to_string(half.x()) + "+" +
                          std::to_string(half.y()) + " none"));
    EXPECT_EQ(childFailure("OpenGLWindowX11.TwoRandRMonitors", "true"), "");
    Host::run("xrandr --delmonitor TavrinRight; xrandr --delmonitor TavrinLeft");
}

// No server; a server of the test's own without GLX and without a window manager (children).
TEST(OpenGLWindowX11Displays, WithoutAServerGlxOrWindowManager)
{
    if (!child)
    {
        EXPECT_EQ(childFailure("OpenGLWindowX11Displays.*", "export DISPLAY="), "");
        TavrinTest::TemporaryDirectory directory;
        const std::string number = directory.file("display");
        EXPECT_EQ(childFailure("OpenGLWindowX11Displays.*",
                               "Xvfb -displayfd 3 -extension GLX -noreset -nolisten tcp 3>" + number +
                                   " >/dev/null 2>&1 & server=$!; trap 'kill $server' EXIT; for i in $(seq 100); do "
                                   "[ -s " +
                                   number + " ] && break; sleep 0.1; done; export DISPLAY=:$(cat " + number + ")"),
                  "");
        return;
    }
    // No frame-buffer configuration: the window and its device context exist, no context.
    TavrinTest::StreamCapture err(std::cerr);
    OpenGLWindow window("Tavrin diagnostics");
    if (!*std::getenv("DISPLAY"))
    {
        EXPECT_EQ(window.getWindowHandle(), 0u);
        EXPECT_EQ(err.text(), "ERROR: Failed to create window.");
        return;
    }
    EXPECT_EQ(err.text(), "ERROR: Failed to set pixel format.");
    ASSERT_NE(window.getDeviceContext(), nullptr);
    EXPECT_EQ(window.getDeviceContext()->frameBufferConfig, nullptr);
    window.swap();
    EXPECT_EQ(glXGetCurrentContext(), nullptr);
    // No frame, requests apply at once, state hints are only recorded.
    for (const bool on : {false, true, false})
    {
        window.setFullscreen(on);
        EXPECT_EQ(Host::run("xprop -id" + Host::id(window.getWindowHandle()) + " _NET_WM_STATE | grep -q FULL"), on);
        EXPECT_EQ(std::make_pair(window.getPosition(), window.getSize()),
                  on ? std::make_pair(Vector2i(0, 0), Host::screenSize())
                     : std::make_pair(Vector2i(100, 100), Vector2i(400, 300)));
    }
}
#endif
