// What only X11 shows of a window: its frame-buffer configuration and GLX contexts, the native
// events behind each Win32 message, XRandR monitors, and the creation diagnostics of displays
// without a server or without GLX (in child processes, which start with their own connection).
#if !defined(_WIN32)
#include "WindowTestSupport.h"

#include "support/TestSupport.h"

#include <opengl/OpenGLWindow.h>

#include <GL/glew.h>

#include <GL/glx.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

using Tavrin::OpenGL::OpenGLWindow;
using TavrinTest::StreamCapture;
using namespace TavrinWindowTest;

namespace
{
const unsigned int wmDestroy = 0x0002, wmMove = 0x0003, wmSize = 0x0005, wmSetFocus = 0x0007, wmKillFocus = 0x0008,
                   wmPaint = 0x000F, wmClose = 0x0010, wmNcDestroy = 0x0082, wmKeyDown = 0x0100, wmKeyUp = 0x0101,
                   wmChar = 0x0102, wmSysKeyDown = 0x0104, wmSysKeyUp = 0x0105, wmSysChar = 0x0106,
                   wmSysCommand = 0x0112, wmMouseMove = 0x0200, wmLButtonDown = 0x0201, wmLButtonUp = 0x0202,
                   wmRButtonDown = 0x0204, wmRButtonUp = 0x0205, wmMouseWheel = 0x020A;

struct Message
{
    unsigned int message;
    unsigned long long wParam;
    long long lParam;
    bool operator==(const Message& other) const
    {
        return message == other.message && wParam == other.wParam && lParam == other.lParam;
    }
};

std::ostream& operator<<(std::ostream& stream, const Message& message)
{
    return stream << std::hex << "{0x" << message.message << ", 0x" << message.wParam << ", 0x" << message.lParam << "}"
                  << std::dec;
}

// Records the messages of the given numbers that reach `window`, under the handler name "x11".
class MessageLog
{
public:
    MessageLog(OpenGLWindow& window, std::set<unsigned int> wanted) : window(window), wanted(std::move(wanted))
    {
        window.addMesageHandler(
            "x11", [this](OpenGLWindow*, unsigned int message, unsigned long long wParam, long long lParam) {
                if (this->wanted.count(message))
                    messages.push_back({message, wParam, lParam});
            });
    }
    ~MessageLog() { window.removeMesageHandler("x11"); }
    std::vector<Message> of(unsigned int message) const
    {
        std::vector<Message> found;
        for (const Message& entry : messages)
            if (entry.message == message)
                found.push_back(entry);
        return found;
    }

    OpenGLWindow& window;
    std::set<unsigned int> wanted;
    std::vector<Message> messages;
};

// Long message lists compared with the first difference named.
void expectMessages(const std::vector<Message>& actual, const std::vector<Message>& expected)
{
    for (std::size_t index = 0; index < std::min(actual.size(), expected.size()); ++index)
        if (!(actual[index] == expected[index]))
        {
            ADD_FAILURE() << "message " << index << " is " << actual[index] << ", expected " << expected[index];
            return;
        }
    EXPECT_EQ(actual.size(), expected.size()) << "with " << expected.size() << " expected";
}

long long packWords(int low, int high)
{
    return static_cast<long long>(((static_cast<unsigned int>(high) & 0xFFFF) << 16) |
                                  (static_cast<unsigned int>(low) & 0xFFFF));
}

// A display connection of the test's own, to read what the window system knows of a window.
class Connection
{
public:
    Connection() : display(XOpenDisplay(nullptr)) {}
    ~Connection()
    {
        if (display)
            XCloseDisplay(display);
    }
    Atom atom(const char* name) const { return XInternAtom(display, name, False); }
    std::string text(Window window, const char* property, Atom type) const
    {
        std::string value;
        Atom actual = None;
        int format = 0;
        unsigned long count = 0, remaining = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(display, window, atom(property), 0, 1024, False, type, &actual, &format, &count,
                               &remaining, &data) == Success &&
            data && format == 8)
            value.assign(reinterpret_cast<char*>(data), count);
        if (data)
            XFree(data);
        return value;
    }
    Eigen::Vector2i clientOrigin(Window window) const
    {
        int x = 0, y = 0;
        Window child = None;
        XTranslateCoordinates(display, window, DefaultRootWindow(display), 0, 0, &x, &y, &child);
        return Eigen::Vector2i(x, y);
    }

    Display* display;
};

// Which part of a test this process runs: empty in the suite itself, else the name given to the
// child process that the suite started.
std::string childRole()
{
    const char* role = std::getenv("TAVRIN_X11_CHILD");
    return role ? role : "";
}

// Runs this executable again for one test, with `role` and `display`, and returns its exit
// status; `output` receives what it printed.
int runChild(const std::string& test, const std::string& role, const std::string& display, std::string& output)
{
    TavrinTest::TemporaryDirectory directory;
    const std::string log = directory.file("child.log");
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry)
    {
        const std::string variable = *entry;
        // The child's report would replace the suite's own.
        if (variable.rfind("GTEST_OUTPUT=", 0) != 0 && variable.rfind("DISPLAY=", 0) != 0)
            environment.push_back(variable);
    }
    environment.push_back("TAVRIN_X11_CHILD=" + role);
    environment.push_back("DISPLAY=" + display);
    std::vector<char*> environmentPointers;
    for (std::string& variable : environment)
        environmentPointers.push_back(&variable[0]);
    environmentPointers.push_back(nullptr);
    std::string program = "/proc/self/exe", filter = "--gtest_filter=" + test;
    char* arguments[] = {&program[0], &filter[0], nullptr};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t child = 0;
    const int started = posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environmentPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    if (started != 0)
        return -1;
    int status = 0;
    waitpid(child, &status, 0);
    std::ifstream stream(log);
    std::ostringstream text;
    text << stream.rdbuf();
    output = text.str();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A display number that no server uses.
int freeDisplayNumber()
{
    for (int number = 150; number < 400; ++number)
    {
        struct stat info;
        if (stat(("/tmp/.X11-unix/X" + std::to_string(number)).c_str(), &info) != 0 &&
            stat(("/tmp/.X" + std::to_string(number) + "-lock").c_str(), &info) != 0)
            return number;
    }
    return -1;
}

// An X server of the test's own, without the GLX extension; stopped (by its id) when destroyed.
class ServerWithoutGlx
{
public:
    ServerWithoutGlx()
    {
        const int number = freeDisplayNumber();
        if (number < 0)
            return;
        name = ":" + std::to_string(number);
        std::string program = "Xvfb", noGlxOption = "-extension", noGlx = "GLX", noTcp = "-nolisten", tcp = "tcp";
        char* arguments[] = {&program[0], &name[0], &noGlxOption[0], &noGlx[0], &noTcp[0], &tcp[0], nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        if (posix_spawnp(&server, program.c_str(), &actions, nullptr, arguments, environ) != 0)
            server = 0;
        posix_spawn_file_actions_destroy(&actions);
        for (int waited = 0; server && waited < 10000; waited += 50)
        {
            if (Display* display = XOpenDisplay(name.c_str()))
            {
                XCloseDisplay(display);
                ready = true;
                return;
            }
            sleepMilliseconds(50);
        }
    }
    ~ServerWithoutGlx()
    {
        if (server)
        {
            kill(server, SIGTERM);
            waitpid(server, nullptr, 0);
        }
    }

    pid_t server = 0;
    std::string name;
    bool ready = false;
};
} // namespace

TEST(OpenGLWindowX11, OwnedWindowConfigurationContextFocusAndAltF4)
{
    TAVRIN_REQUIRE_WINDOWS();
    OpenGLWindow& shared = *sharedWindow();
    Connection x;
    activate(shared.getWindowHandle());
    shared.makeCurrent();
    const GLXContext firstContext = glXGetCurrentContext();
    ASSERT_NE(firstContext, nullptr);
    MessageLog focus(shared, {wmSetFocus, wmKillFocus});
    shared.processMessages();
    focus.messages.clear();

    {
        StreamCapture err(std::cerr);
        OpenGLWindow orphan("Tavrin orphan window", 0x7ead0); // not a window
        EXPECT_EQ(err.text(), "ERROR: Failed to create window.");
        EXPECT_EQ(orphan.getWindowHandle(), 0u);
        EXPECT_EQ(orphan.getDeviceContext(), nullptr);
    }

    StreamCapture err(std::cerr);
    OpenGLWindow second("Tavrin second window", shared.getWindowHandle());
    EXPECT_EQ(err.text(), "");
    const Window window = second.getWindowHandle();
    const Tavrin::OpenGL::X11DeviceContext* deviceContext = second.getDeviceContext();
    ASSERT_NE(window, 0u);
    ASSERT_NE(deviceContext, nullptr);
    EXPECT_EQ(deviceContext->drawable, window);
    EXPECT_EQ(deviceContext->display, shared.getDeviceContext()->display) << "one connection for all windows";

    // The same frame-buffer configuration for every window, so the one context fits them all:
    // double-buffered RGBA 8/8/8/8 without depth or stencil, stereo where the display has it.
    Display* display = deviceContext->display;
    const GLXFBConfig config = deviceContext->frameBufferConfig;
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(config, shared.getDeviceContext()->frameBufferConfig);
    const auto attribute = [&](int name) {
        int value = -1;
        glXGetFBConfigAttrib(display, config, name, &value);
        return value;
    };
    EXPECT_EQ(attribute(GLX_DOUBLEBUFFER), 1);
    EXPECT_EQ(attribute(GLX_RED_SIZE), 8);
    EXPECT_EQ(attribute(GLX_GREEN_SIZE), 8);
    EXPECT_EQ(attribute(GLX_BLUE_SIZE), 8);
    EXPECT_EQ(attribute(GLX_ALPHA_SIZE), 8);
    EXPECT_EQ(attribute(GLX_DEPTH_SIZE), 0);
    EXPECT_EQ(attribute(GLX_STENCIL_SIZE), 0);
    const int stereoAttributes[] = {GLX_STEREO, True, GLX_DOUBLEBUFFER, True, None};
    int stereoCount = 0;
    if (GLXFBConfig* stereo = glXChooseFBConfig(display, DefaultScreen(display), stereoAttributes, &stereoCount))
        XFree(stereo);
    EXPECT_EQ(attribute(GLX_STEREO), stereoCount > 0 ? 1 : 0) << "stereo exactly when the display offers it";
    XWindowAttributes attributes = {};
    ASSERT_TRUE(XGetWindowAttributes(x.display, window, &attributes));
    XVisualInfo* visual = glXGetVisualFromFBConfig(display, config);
    ASSERT_NE(visual, nullptr);
    EXPECT_EQ(XVisualIDFromVisual(attributes.visual), visual->visualid);
    XFree(visual);

    // Shown, framed, named after the title, owned by its parent, closable by the window manager.
    EXPECT_EQ(attributes.map_state, IsViewable);
    EXPECT_EQ(attributes.width, 400);
    EXPECT_EQ(attributes.height, 300);
    EXPECT_EQ(second.getPosition(), Eigen::Vector2i(100, 100));
    EXPECT_EQ(second.getClientSize(), Eigen::Vector2i(400, 300));
    EXPECT_EQ(x.text(window, "_NET_WM_NAME", x.atom("UTF8_STRING")), "Tavrin second window");
    EXPECT_EQ(x.text(window, "WM_CLASS", XA_STRING), std::string("Tavrin second window\0Tavrin second window\0", 42));
    Window owner = None;
    EXPECT_TRUE(XGetTransientForHint(x.display, window, &owner));
    EXPECT_EQ(owner, shared.getWindowHandle());
    Atom* protocols = nullptr;
    int protocolCount = 0;
    ASSERT_TRUE(XGetWMProtocols(x.display, window, &protocols, &protocolCount));
    EXPECT_EQ(std::vector<Atom>(protocols, protocols + protocolCount), std::vector<Atom>{x.atom("WM_DELETE_WINDOW")});
    XFree(protocols);

    // The new window's fresh context is current on it, with 1-byte pixel-store alignment, and it
    // is the context that the older window now binds.
    const GLXContext secondContext = glXGetCurrentContext();
    EXPECT_NE(secondContext, firstContext);
    EXPECT_EQ(glXGetCurrentDrawable(), window);
    GLint alignment = 0;
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    EXPECT_EQ(alignment, 1);
    glGetIntegerv(GL_PACK_ALIGNMENT, &alignment);
    EXPECT_EQ(alignment, 1);
    shared.makeCurrent();
    EXPECT_EQ(glXGetCurrentContext(), secondContext);
    EXPECT_EQ(glXGetCurrentDrawable(), shared.getWindowHandle());

    // The window manager gave the new window the focus: its owner lost it.
    EXPECT_TRUE(pumpUntil(shared, 2000, [&] { return !focus.messages.empty(); }));
    EXPECT_EQ(focus.messages, (std::vector<Message>{{wmKillFocus, 0, 0}}));

    // Alt+F4 reaching the window (sent to it directly, past the window manager's own binding):
    // default processing runs the system menu's Close, which closes and destroys the window.
    MessageLog closing(second, {wmSysKeyDown, wmSysCommand, wmClose, wmDestroy, wmNcDestroy});
    postMessage(window, wmSysKeyDown, 0x73, 1ll << 29);
    second.processMessages();
    EXPECT_EQ(closing.messages, (std::vector<Message>{{wmSysKeyDown, 0x73, 0x203E0001},
                                                      {wmSysCommand, 0xF060, 0},
                                                      {wmClose, 0, 0},
                                                      {wmDestroy, 0, 0},
                                                      {wmNcDestroy, 0, 0}}));
    EXPECT_FALSE(windowExists(window));

    // The object keeps its stale handles until its destructor; calls on them do nothing.
    second.makeCurrent();
    second.swap();
    EXPECT_EQ(glXGetCurrentDrawable(), shared.getWindowHandle());
    EXPECT_EQ(second.getPosition(), Eigen::Vector2i(0, 0));
    EXPECT_EQ(second.getClientSize(), Eigen::Vector2i(0, 0));
    second.setPosition(Eigen::Vector2i(10, 10));

    // The focus went back to the owner.
    EXPECT_TRUE(pumpUntil(shared, 2000, [&] { return focus.of(wmSetFocus).size() == 1; }));
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

TEST(OpenGLWindowX11, RealKeysAndMouseArriveAsWin32Messages)
{
    TAVRIN_REQUIRE_WINDOWS();
    OpenGLWindow& shared = *sharedWindow();
    activate(shared.getWindowHandle());
    shared.processMessages();
    std::vector<unsigned long long> keyDowns;
    shared.setOnKeyDown([&](OpenGLWindow*, unsigned long long key) { keyDowns.push_back(key); });
    MessageLog log(shared, {wmKeyDown, wmKeyUp, wmChar, wmSysKeyDown, wmSysKeyUp, wmSysChar});

    struct Key
    {
        const char* name;
        unsigned long long virtualKey;
        unsigned int scanCode; // 0x100: extended (E0 prefix)
        unsigned long long character;
    };
    const Key keys[] = {{"a", 0x41, 0x1E, 'a'},     {"z", 0x5A, 0x2C, 'z'},       {"0", 0x30, 0x0B, '0'},
                        {"9", 0x39, 0x0A, '9'},     {"F1", 0x70, 0x3B, 0},        {"F12", 0x7B, 0x58, 0},
                        {"Left", 0x25, 0x14B, 0},   {"Up", 0x26, 0x148, 0},       {"Right", 0x27, 0x14D, 0},
                        {"Down", 0x28, 0x150, 0},   {"Escape", 0x1B, 0x01, 0x1B}, {"Return", 0x0D, 0x1C, 0x0D},
                        {"space", 0x20, 0x39, ' '}, {"Tab", 0x09, 0x0F, 0x09},    {"BackSpace", 0x08, 0x0E, 0x08},
                        {"Shift_L", 0x10, 0x2A, 0}, {"Control_L", 0x11, 0x1D, 0}, {"Delete", 0x2E, 0x153, 0}};
    std::string command = "/usr/bin/xdotool key";
    std::vector<Message> expected;
    std::vector<unsigned long long> expectedKeyDowns;
    for (const Key& key : keys)
    {
        command += std::string(" ") + key.name;
        const long long down =
            1 | (static_cast<long long>(key.scanCode & 0xFF) << 16) | ((key.scanCode & 0x100) ? 1ll << 24 : 0);
        expected.push_back({wmKeyDown, key.virtualKey, down});
        if (key.character)
            expected.push_back({wmChar, key.character, down});
        expected.push_back({wmKeyUp, key.virtualKey, down | 0xC0000000ll});
        expectedKeyDowns.push_back(key.virtualKey);
    }
    // Alt combinations are system keys with the context bit (29) while Alt is held; the Alt key's
    // own release is a plain key-up. Control turns a letter into its control character.
    command += " keydown alt key x keyup alt keydown ctrl key c keyup ctrl";
    expected.insert(expected.end(), {{wmSysKeyDown, 0x12, 0x20380001},
                                     {wmSysKeyDown, 0x58, 0x202D0001},
                                     {wmSysChar, 'x', 0x202D0001},
                                     {wmSysKeyUp, 0x58, 0xE02D0001},
                                     {wmKeyUp, 0x12, 0xC0380001},
                                     {wmKeyDown, 0x11, 0x001D0001},
                                     {wmKeyDown, 0x43, 0x002E0001},
                                     {wmChar, 0x03, 0x002E0001},
                                     {wmKeyUp, 0x43, 0xC02E0001},
                                     {wmKeyUp, 0x11, 0xC01D0001}});
    expectedKeyDowns.insert(expectedKeyDowns.end(), {0x12, 0x58, 0x11, 0x43});

    ASSERT_TRUE(runHostProgram(command)) << "xdotool could not be started";
    EXPECT_TRUE(pumpUntil(shared, 5000, [&] { return log.messages.size() >= expected.size(); }));
    expectMessages(log.messages, expected);
    EXPECT_EQ(keyDowns, expectedKeyDowns); // system key-downs fire onKeyDown too
    shared.setOnKeyDown(nullptr);

    // Mouse: client coordinates in lParam, the buttons held after the event in wParam; the
    // wheel in steps of 120 with screen coordinates.
    MessageLog mouse(shared, {wmMouseMove, wmLButtonDown, wmLButtonUp, wmRButtonDown, wmRButtonUp, wmMouseWheel});
    const std::string id = std::to_string(shared.getWindowHandle());
    ASSERT_TRUE(runHostProgram("/usr/bin/xdotool mousemove --window " + id + " 10 20 click 1 click 3 click 4 click 5"));
    EXPECT_TRUE(pumpUntil(shared, 5000, [&] { return mouse.of(wmMouseWheel).size() == 2; }));
    std::vector<Message> buttons;
    for (const Message& message : mouse.messages)
        if (message.message != wmMouseMove)
            buttons.push_back(message);
    const Eigen::Vector2i screen = Connection().clientOrigin(shared.getWindowHandle()) + Eigen::Vector2i(10, 20);
    EXPECT_EQ(buttons, (std::vector<Message>{{wmLButtonDown, 0x01, packWords(10, 20)},
                                             {wmLButtonUp, 0x00, packWords(10, 20)},
                                             {wmRButtonDown, 0x02, packWords(10, 20)},
                                             {wmRButtonUp, 0x00, packWords(10, 20)},
                                             {wmMouseWheel, 0x00780000, packWords(screen.x(), screen.y())},
                                             {wmMouseWheel, 0xFF880000, packWords(screen.x(), screen.y())}}));
    ASSERT_FALSE(mouse.of(wmMouseMove).empty());
    EXPECT_EQ(mouse.of(wmMouseMove).back(), (Message{wmMouseMove, 0, packWords(10, 20)}));
}

TEST(OpenGLWindowX11, PlacementChangesArriveAsMoveSizeAndPaint)
{
    TAVRIN_REQUIRE_WINDOWS();
    OpenGLWindow& shared = *sharedWindow();
    settle(shared);
    const Eigen::Vector2i position = shared.getPosition(), clientSize = shared.getClientSize();
    MessageLog log(shared, {wmMove, wmSize, wmPaint});
    const Connection x;

    shared.setPosition(Eigen::Vector2i(160, 140));
    settle(shared);
    const Eigen::Vector2i origin = x.clientOrigin(shared.getWindowHandle());
    ASSERT_FALSE(log.of(wmMove).empty());
    EXPECT_EQ(log.of(wmMove).back(), (Message{wmMove, 0, packWords(origin.x(), origin.y())})); // the client area's
    EXPECT_TRUE(log.of(wmSize).empty());

    log.messages.clear();
    shared.setClientSize(Eigen::Vector2i(420, 310));
    settle(shared);
    EXPECT_EQ(shared.getClientSize(), Eigen::Vector2i(420, 310));
    EXPECT_EQ(log.of(wmSize), (std::vector<Message>{{wmSize, 0, packWords(420, 310)}}));
    EXPECT_FALSE(log.of(wmPaint).empty()) << "the uncovered area is painted";

    log.messages.clear();
    maximize(shared.getWindowHandle());
    settle(shared);
    ASSERT_FALSE(log.of(wmSize).empty());
    const Eigen::Vector2i maximized = shared.getClientSize();
    EXPECT_EQ(log.of(wmSize).back(), (Message{wmSize, 2, packWords(maximized.x(), maximized.y())})); // SIZE_MAXIMIZED
    restore(shared.getWindowHandle());
    settle(shared);
    ASSERT_FALSE(log.of(wmSize).empty());
    EXPECT_EQ(log.of(wmSize).back(), (Message{wmSize, 0, packWords(420, 310)}));

    shared.setPosition(position);
    shared.setClientSize(clientSize);
    settle(shared);
}

TEST(OpenGLWindowX11, TwoRandRMonitors)
{
    if (childRole() == "monitors")
    {
        // Two monitors set up by the parent: the upper-left and the lower-right quarter.
        TAVRIN_REQUIRE_WINDOWS();
        OpenGLWindow& window = *sharedWindow();
        const Eigen::Vector2i screen = screenSize(), half = screen / 2;
        const Connection x;
        const std::vector<OpenGLWindow::Monitor>& monitors = OpenGLWindow::getMonitors();
        ASSERT_EQ(monitors.size(), 2u);
        EXPECT_EQ(monitors[0].handle, x.atom("TavrinLeft")); // the monitor's name atom
        EXPECT_EQ(monitors[1].handle, x.atom("TavrinRight"));
        EXPECT_EQ(monitors[0].position, Eigen::Vector2i(0, half.y())); // left, bottom
        EXPECT_EQ(monitors[1].position, Eigen::Vector2i(screen.x() - half.x(), screen.y()));
        EXPECT_EQ(monitors[0].size, half);
        EXPECT_EQ(monitors[1].size, half);

        ASSERT_EQ(window.getPosition(), Eigen::Vector2i(100, 100));
        const Eigen::Vector2i size = window.getSize();
        EXPECT_EQ(window.getMonitorIndex(), 0);
        EXPECT_EQ(&window.getMonitor(), &monitors[0]);

        // The offset from the left and bottom edges is kept.
        window.setMonitorIndex(1);
        EXPECT_EQ(window.getPosition(), Eigen::Vector2i(half.x() + 100, screen.y() - half.y() + 100));
        EXPECT_EQ(window.getMonitorIndex(), 1);

        // Full screen covers the window's monitor, and moves with it.
        window.setFullscreen(true);
        EXPECT_EQ(window.getPosition(), half);
        EXPECT_EQ(window.getSize(), half);
        window.setMonitorIndex(-3);
        EXPECT_TRUE(window.getFullscreen());
        EXPECT_EQ(window.getPosition(), Eigen::Vector2i(0, 0));
        EXPECT_EQ(window.getSize(), half);
        EXPECT_EQ(window.getMonitorIndex(), 0);
        window.setFullscreen(false);
        EXPECT_EQ(window.getPosition(), Eigen::Vector2i(100, 100));
        EXPECT_EQ(window.getSize(), size);

        // A centre on no monitor: the nearest one counts.
        window.setPosition(Eigen::Vector2i(half.x() - size.x() / 2 - 150, half.y() + 10));
        EXPECT_EQ(window.getMonitorIndex(), 1) << "nearer to the right monitor's left edge";
        window.setPosition(Eigen::Vector2i(10, half.y() + 10));
        EXPECT_EQ(window.getMonitorIndex(), 0) << "nearer to the left monitor's bottom edge";
        return;
    }
    TAVRIN_REQUIRE_WINDOWS();
    const Eigen::Vector2i screen = screenSize(), half = screen / 2;
    const std::string physical = std::to_string(half.x()) + "/100x" + std::to_string(half.y()) + "/100";
    // Xvfb's output is named "screen"; giving it to the left monitor replaces its own monitor.
    if (!runHostProgram("xrandr --setmonitor TavrinLeft " + physical + "+0+0 screen >/dev/null 2>&1"))
        GTEST_SKIP() << "this display cannot describe monitors with xrandr --setmonitor";
    const bool right =
        runHostProgram("xrandr --setmonitor TavrinRight " + physical + "+" + std::to_string(screen.x() - half.x()) +
                       "+" + std::to_string(screen.y() - half.y()) + " none >/dev/null 2>&1");
    std::string output;
    const int status =
        right ? runChild("OpenGLWindowX11.TwoRandRMonitors", "monitors", std::getenv("DISPLAY"), output) : -1;
    runHostProgram("xrandr --delmonitor TavrinRight >/dev/null 2>&1");
    runHostProgram("xrandr --delmonitor TavrinLeft >/dev/null 2>&1");
    ASSERT_TRUE(right);
    EXPECT_EQ(status, 0) << output;
    EXPECT_NE(output.find("[  PASSED  ] 1 test"), std::string::npos) << output;
}

TEST(OpenGLWindowX11, CreationDiagnosticsWithoutAServerOrWithoutGlx)
{
    const std::string role = childRole();
    if (role == "no-server" || role == "no-glx")
    {
        StreamCapture err(std::cerr);
        OpenGLWindow window("Tavrin diagnostics");
        if (role == "no-server")
        {
            EXPECT_EQ(err.text(), "ERROR: Failed to create window.");
            EXPECT_EQ(window.getWindowHandle(), 0u);
            EXPECT_EQ(window.getDeviceContext(), nullptr);
            return;
        }
        // No frame-buffer configuration: the window and its device context exist, no context.
        EXPECT_EQ(err.text(), "ERROR: Failed to set pixel format.");
        EXPECT_NE(window.getWindowHandle(), 0u);
        ASSERT_NE(window.getDeviceContext(), nullptr);
        EXPECT_EQ(window.getDeviceContext()->frameBufferConfig, nullptr);
        window.makeCurrent();
        window.swap();
        EXPECT_EQ(glXGetCurrentContext(), nullptr);
        return;
    }
    if (!role.empty())
        return;
    std::string output;
    const int number = freeDisplayNumber();
    ASSERT_GE(number, 0);
    const std::string test = "OpenGLWindowX11.CreationDiagnosticsWithoutAServerOrWithoutGlx";
    EXPECT_EQ(runChild(test, "no-server", ":" + std::to_string(number), output), 0) << output;
    EXPECT_NE(output.find("[  PASSED  ] 1 test"), std::string::npos) << output;

    ServerWithoutGlx server;
    if (!server.ready)
        GTEST_SKIP() << "Xvfb could not be started without GLX";
    EXPECT_EQ(runChild(test, "no-glx", server.name, output), 0) << output;
    EXPECT_NE(output.find("[  PASSED  ] 1 test"), std::string::npos) << output;
}
#endif
