// What only X11 shows: monitors that XRandR describes.
#if !defined(_WIN32)
#include "WindowTestSupport.h"

#include <filesystem>
#include <fstream>

using namespace TavrinWindowTest;
using OpenGLWindowX11 = SharedWindowTest;

namespace
{
const bool child = std::getenv("TAVRIN_X11_CHILD"); // the test's own child, on the monitors set up for it
} // namespace

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
        EXPECT_EQ(std::make_tuple(monitors[0].position, monitors[1].position, monitors[0].size, monitors[1].size),
                  std::make_tuple(Vector2i(0, half.y()), Vector2i(half.x(), screen.y()), half, half)); // left, bottom
        const Vector2i size = window.getSize();
        EXPECT_EQ(&window.getMonitor(), &monitors[0]);
        // The offset from the left and bottom edges is kept; full screen covers the window's monitor.
        window.setMonitorIndex(1);
        EXPECT_EQ(std::make_pair(window.getPosition(), window.getMonitorIndex()),
                  std::make_pair(Vector2i(half + Vector2i(100, 100)), 1));
        window.setFullscreen(true);
        EXPECT_EQ(std::make_pair(window.getPosition(), window.getSize()), std::make_pair(half, half));
        window.setMonitorIndex(-3);
        EXPECT_EQ(std::make_tuple(window.getFullscreen(), window.getPosition(), window.getSize()),
                  std::make_tuple(true, Vector2i(0, 0), half));
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
    TavrinTest::TemporaryDirectory directory;
    const std::string log = directory.file("child.log"), self = std::filesystem::read_symlink("/proc/self/exe");
    const int status = std::system(("env -u GTEST_OUTPUT TAVRIN_X11_CHILD=1 " + self +
                                    " --gtest_filter=OpenGLWindowX11.TwoRandRMonitors >" + log + " 2>&1")
                                       .c_str());
    std::ostringstream text;
    text << std::ifstream(log).rdbuf();
    EXPECT_TRUE(status == 0 && text.str().find("[  PASSED  ] 1 test") != std::string::npos) << text.str();
    Host::run("xrandr --delmonitor TavrinRight; xrandr --delmonitor TavrinLeft");
}

// A UTF-8 title is named as it is; destroyed by another client, the window reports it once, then is inert.
TEST_F(OpenGLWindowX11, Utf8TitleAndDestroyedByAnotherClient)
{
    const std::string title = "Tavrin \xE2\x82\xAC \xF0\x9F\x98\x80";
    OpenGLWindow other(title);
    EXPECT_TRUE(Host::run("LC_ALL=C.UTF-8 xprop -id" + Host::id(other.getWindowHandle()) +
                          " _NET_WM_NAME | grep -qF '\"" + title + "\"'"));
    MessageLog log(other, {wmDestroy, wmNcDestroy, wmMove});
    XDestroyWindow(Host::connection(), other.getWindowHandle());
    XSync(Host::connection(), False);
    pumpUntil(other, 500, [] { return false; }); // all it reports
    other.setPosition(Vector2i(5, 5));
    EXPECT_EQ(std::make_pair(log.messages, other.getPosition()),
              std::make_pair(Messages{{wmDestroy, 0, 0}, {wmNcDestroy, 0, 0}}, Vector2i(0, 0)));
}
#endif
