// The window's platform-independent logic without a window system: the monitor arithmetic, the
// full-screen state machine, and message dispatch on a window whose creation failed.
#include "../../source/opengl/WindowLogic.h"
#include "support/TestSupport.h"

#include <opengl/OpenGLWindow.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

using Tavrin::OpenGL::MonitorHandle;
using Tavrin::OpenGL::OpenGLWindow;
using Tavrin::OpenGL::WindowHandle;
namespace WindowLogic = Tavrin::OpenGL::WindowLogic;

namespace
{
// A handle value of either platform's handle type (pointer on Win32, integer on X11).
template <typename Handle> Handle fakeHandle(std::uintptr_t value)
{
    if constexpr (std::is_pointer_v<Handle>)
        return reinterpret_cast<Handle>(value);
    else
        return static_cast<Handle>(value);
}

OpenGLWindow::Monitor monitor(std::uintptr_t handle, int left, int top, int right, int bottom)
{
    OpenGLWindow::Monitor result;
    result.handle = fakeHandle<MonitorHandle>(handle);
    result.position = Eigen::Vector2i(left, bottom);
    result.size = Eigen::Vector2i(right - left, bottom - top);
    return result;
}

OpenGLWindow::Rect rect(int left, int top, int right, int bottom)
{
    OpenGLWindow::Rect result;
    result.left = left;
    result.top = top;
    result.right = right;
    result.bottom = bottom;
    return result;
}
} // namespace

TEST(WindowMonitorArithmetic, IndexLookupAndClamping)
{
    const std::vector<OpenGLWindow::Monitor> monitors = {
        monitor(0x10, 0, 0, 1920, 1080), monitor(0x20, 1920, 0, 3840, 1080), monitor(0x20, 0, 1080, 1920, 2160)};
    EXPECT_EQ(WindowLogic::findMonitorIndex(monitors, fakeHandle<MonitorHandle>(0x10)), 0);
    EXPECT_EQ(WindowLogic::findMonitorIndex(monitors, fakeHandle<MonitorHandle>(0x20)), 1); // the first match
    EXPECT_EQ(WindowLogic::findMonitorIndex(monitors, fakeHandle<MonitorHandle>(0x30)), 0); // not listed
    EXPECT_EQ(WindowLogic::findMonitorIndex({}, fakeHandle<MonitorHandle>(0x10)), 0);

    EXPECT_EQ(WindowLogic::clampMonitorIndex(-5, 3), 0);
    EXPECT_EQ(WindowLogic::clampMonitorIndex(1, 3), 1);
    EXPECT_EQ(WindowLogic::clampMonitorIndex(7, 3), 2);
    EXPECT_EQ(WindowLogic::clampMonitorIndex(4, 1), 0);
    EXPECT_EQ(WindowLogic::clampMonitorIndex(0, 0), -1); // no index at all
}

TEST(WindowMonitorArithmetic, OffsetRunsFromTheStoredLeftBottomCorner)
{
    // (0, 0)-(1920, 1080) is stored as position (0, 1080).
    const OpenGLWindow::Monitor left = monitor(1, 0, 0, 1920, 1080);
    EXPECT_EQ(left.position, Eigen::Vector2i(0, 1080));
    EXPECT_EQ(left.size, Eigen::Vector2i(1920, 1080));

    // Equal heights in one row: the window keeps its place relative to the monitor.
    const OpenGLWindow::Monitor right = monitor(2, 1920, 0, 3840, 1080);
    EXPECT_EQ(WindowLogic::positionOnMonitor(rect(100, 200, 500, 500), left, right), Eigen::Vector2i(2020, 200));
    EXPECT_EQ(WindowLogic::positionOnMonitor(rect(2020, 200, 2420, 500), right, left), Eigen::Vector2i(100, 200));

    // Different heights: the vertical offset is kept from the bottom edges, not the tops.
    const OpenGLWindow::Monitor tall = monitor(3, 1920, -360, 3360, 1080 + 360);
    EXPECT_EQ(WindowLogic::positionOnMonitor(rect(100, 200, 500, 500), left, tall), Eigen::Vector2i(2020, 560));
}

namespace
{
// Records the platform steps that the state machine asks for, against a simulated window.
struct RecordedWindow : WindowLogic::FullscreenOperations
{
    bool maximized = false, monitorKnown = true;
    int style = 0x14CF0000, exStyle = 0x300;
    OpenGLWindow::Rect placement = rect(100, 100, 516, 439);
    std::string steps;

    bool isMaximized() override { return maximized; }
    void restore() override { steps += "restore;", maximized = false; }
    void maximize() override { steps += "maximize;", maximized = true; }
    void readStyles(int& readStyle, int& readExStyle) override { readStyle = style, readExStyle = exStyle; }
    void writeStyles(int newStyle, int newExStyle) override
    {
        steps += "styles;", style = newStyle, exStyle = newExStyle;
    }
    void writeBorderlessStyles(int, int) override { steps += "borderless;", style = exStyle = 0; }
    OpenGLWindow::Rect windowRect() override { return maximized ? rect(0, 0, 1280, 1024) : placement; }
    bool nearestMonitorRect(OpenGLWindow::Rect& monitorRect) override
    {
        monitorRect = rect(0, 0, 1280, 1024);
        return monitorKnown;
    }
    void place(const OpenGLWindow::Rect& to) override
    {
        steps += "place " + std::to_string(to.left) + " " + std::to_string(to.bottom) + ";";
        placement = to;
    }
};
} // namespace

TEST(WindowFullscreenStateMachine, EnteringTwiceAndLeavingOnceRestoresThePlacement)
{
    RecordedWindow window;
    WindowLogic::FullscreenState state;
    WindowLogic::switchFullscreen(false, state, window); // already windowed: nothing
    WindowLogic::switchFullscreen(true, state, window);
    EXPECT_TRUE(state.fullscreen);
    window.placement = rect(5, 5, 50, 50);              // not saved again by the second request
    WindowLogic::switchFullscreen(true, state, window); // already full screen: nothing
    EXPECT_EQ(window.steps, "borderless;place 0 1024;");

    WindowLogic::switchFullscreen(false, state, window);
    EXPECT_FALSE(state.fullscreen);
    EXPECT_EQ(window.steps, "borderless;place 0 1024;styles;place 100 439;");
    EXPECT_EQ(window.style, 0x14CF0000);
    EXPECT_EQ(window.exStyle, 0x300);
}

TEST(WindowFullscreenStateMachine, MaximisedWindowIsRestoredThenMaximisedAgain)
{
    RecordedWindow window;
    window.maximized = true;
    window.monitorKnown = false; // no monitor rectangle: the window is not moved
    WindowLogic::FullscreenState state;
    WindowLogic::switchFullscreen(true, state, window);
    EXPECT_EQ(state.savedRect.right, 516); // the restored rectangle, not the maximised one
    WindowLogic::switchFullscreen(false, state, window);
    EXPECT_EQ(window.steps, "restore;borderless;styles;place 100 439;maximize;");
    EXPECT_TRUE(window.maximized);

    // The saved values describe the latest entry only.
    window.maximized = false;
    WindowLogic::switchFullscreen(true, state, window);
    WindowLogic::switchFullscreen(false, state, window);
    EXPECT_FALSE(window.maximized);
}

namespace
{
const unsigned int wmClose = 0x0010, wmQuit = 0x0012, wmKeyDown = 0x0100, wmKeyUp = 0x0101, wmSysKeyDown = 0x0104;

// A window whose creation fails (its parent is not a window): dispatch still works on it.
class FailedWindowDispatch : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TavrinTest::StreamCapture err(std::cerr);
        window = std::make_unique<OpenGLWindow>("Tavrin failed window", fakeHandle<WindowHandle>(0x7ead0));
        diagnostic = err.text();
    }

    std::unique_ptr<OpenGLWindow> window;
    std::string diagnostic;
    std::vector<std::string> seen;

    std::function<void(OpenGLWindow*, unsigned int, unsigned long long, long long)> recorder(const std::string& name)
    {
        return [this, name](OpenGLWindow* target, unsigned int message, unsigned long long wParam, long long lParam) {
            EXPECT_EQ(target, window.get());
            seen.push_back(name + " " + std::to_string(message) + " " + std::to_string(wParam) + " " +
                           std::to_string(lParam));
        };
    }
};
} // namespace

TEST_F(FailedWindowDispatch, CreationFailureIsReportedAndLeavesAnInertWindow)
{
    EXPECT_EQ(diagnostic, "ERROR: Failed to create window.");
    EXPECT_EQ(window->getWindowHandle(), WindowHandle());
    EXPECT_EQ(window->getDeviceContext(), Tavrin::OpenGL::DeviceContextHandle());

    // Nothing reaches the platform with the null handles.
    window->makeCurrent();
    window->swap();
    window->setPosition(Eigen::Vector2i(10, 10));
    window->setClientSize(Eigen::Vector2i(10, 10));
    window->setFullscreen(true);
    EXPECT_FALSE(window->getFullscreen());
    EXPECT_EQ(window->getPosition(), Eigen::Vector2i::Zero());
    EXPECT_EQ(window->getSize(), Eigen::Vector2i::Zero());
    EXPECT_EQ(window->getClientSize(), Eigen::Vector2i::Zero());
    EXPECT_EQ(window->getMonitorIndex(), 0);
    window->setMonitorIndex(3);
    window->processMessages(); // an empty queue returns at once
}

TEST_F(FailedWindowDispatch, CallbacksRunFirstThenEveryHandler)
{
    window->setOnWindowClosed([&](OpenGLWindow* target) {
        EXPECT_EQ(target, window.get());
        seen.push_back("closed");
    });
    window->setOnKeyDown([&](OpenGLWindow* target, unsigned long long key) {
        EXPECT_EQ(target, window.get());
        seen.push_back("key " + std::to_string(key));
    });
    window->addMesageHandler("a", recorder("a"));
    window->addMesageHandler("a", recorder("replaced")); // same name: replaced, not added
    window->addMesageHandler("A", recorder("A"));        // names are case-sensitive

    for (const auto& message : std::vector<std::vector<long long>>{{wmClose, 0, 0},
                                                                   {wmQuit, 0, 0},
                                                                   {wmKeyDown, 0x41, 0x1e0001},
                                                                   {wmSysKeyDown, 0x79, 1},
                                                                   {wmKeyUp, 0x41, -1}})
        EXPECT_EQ(window->systemWindowProcInternal(static_cast<unsigned int>(message[0]), message[1], message[2]), 0);

    // One callback at most, before the handlers, which see every message unfiltered in the map's
    // (unspecified) order.
    const std::vector<std::string> callbacks = {"closed", "closed", "key 65", "key 121", ""};
    const std::vector<std::string> messages = {"16 0 0", "18 0 0", "256 65 1966081", "260 121 1", "257 65 -1"};
    std::size_t at = 0;
    for (std::size_t index = 0; index < messages.size(); ++index)
    {
        if (!callbacks[index].empty())
        {
            EXPECT_EQ(seen.at(at++), callbacks[index]);
        }
        std::vector<std::string> handlers = {seen.at(at), seen.at(at + 1)};
        at += 2;
        std::sort(handlers.begin(), handlers.end());
        EXPECT_EQ(handlers, (std::vector<std::string>{"A " + messages[index], "replaced " + messages[index]}));
    }
    EXPECT_EQ(at, seen.size());

    // Cleared callbacks and removed handlers fire nothing; an absent name is ignored.
    seen.clear();
    window->setOnWindowClosed(nullptr);
    window->setOnKeyDown(nullptr);
    window->removeMesageHandler("A");
    window->removeMesageHandler("absent");
    window->systemWindowProcInternal(wmClose, 0, 0);
    window->systemWindowProcInternal(wmKeyDown, 0x41, 0);
    EXPECT_EQ(seen, (std::vector<std::string>{"replaced 16 0 0", "replaced 256 65 0"}));
}

TEST_F(FailedWindowDispatch, EmptyHandlerThrowsBadFunctionCall)
{
    bool keyCallback = false;
    window->setOnKeyDown([&](OpenGLWindow*, unsigned long long) { keyCallback = true; });
    window->addMesageHandler("empty", nullptr);
    EXPECT_THROW(window->systemWindowProcInternal(wmKeyDown, 0x41, 0), std::bad_function_call);
    EXPECT_TRUE(keyCallback); // the callback stage ran before

    window->removeMesageHandler("empty");
    EXPECT_EQ(window->systemWindowProcInternal(wmKeyDown, 0x41, 0), 0);
}

TEST_F(FailedWindowDispatch, HandlersMayChangeTheMapWhileTheyRun)
{
    int selfRemovingCalls = 0, removedCalls = 0, addedCalls = 0;
    window->addMesageHandler("self", [&](OpenGLWindow* target, unsigned int, unsigned long long, long long) {
        ++selfRemovingCalls;
        target->removeMesageHandler("self");
        target->removeMesageHandler("other");
        target->addMesageHandler("added",
                                 [&](OpenGLWindow*, unsigned int, unsigned long long, long long) { ++addedCalls; });
    });
    window->addMesageHandler("other",
                             [&](OpenGLWindow*, unsigned int, unsigned long long, long long) { ++removedCalls; });
    window->systemWindowProcInternal(0x000F, 0, 0);
    EXPECT_EQ(selfRemovingCalls, 1);
    EXPECT_LE(removedCalls, 1); // ran only if the map put it before "self"
    EXPECT_EQ(addedCalls, 0);   // added during the stage: first sees the next message

    window->systemWindowProcInternal(0x000F, 0, 0);
    EXPECT_EQ(selfRemovingCalls, 1);
    EXPECT_LE(removedCalls, 1);
    EXPECT_EQ(addedCalls, 1);
}
