// The window's logic without a window system: monitors, the full-screen states, a failed window's dispatch.
#include "../../source/opengl/WindowLogic.h"
#include "support/TestSupport.h"

#include <opengl/OpenGLWindow.h>

#include <gtest/gtest.h>

using Eigen::Vector2i;
using Tavrin::OpenGL::MonitorHandle;
using Tavrin::OpenGL::OpenGLWindow;
using Tavrin::OpenGL::SavedWindowState;
using Rect = OpenGLWindow::Rect;
namespace WindowLogic = Tavrin::OpenGL::WindowLogic;

namespace
{
OpenGLWindow::Monitor monitor(std::uintptr_t handle, const Rect& area)
{
    return {MonitorHandle(handle), {}, {area.left, area.bottom}, {area.right - area.left, area.bottom - area.top}};
}

// Records the platform steps that the state machine asks for, against a simulated window.
struct RecordedWindow : WindowLogic::FullscreenOperations
{
    bool maximized = false, monitorKnown = true;
    Rect placement = {100, 100, 516, 439};
    std::string steps;

    bool isMaximized() override { return maximized; }
    void restore() override { steps += "restore;", maximized = false; }
    void maximize() override { steps += "maximize;", maximized = true; }
    SavedWindowState saveState() override { return steps += "save;", SavedWindowState(); }
    void restoreState(const SavedWindowState&) override { steps += "restore state;"; }
    void makeBorderless(const SavedWindowState&) override { steps += "borderless;"; }
    Rect windowRect() override { return maximized ? Rect{0, 0, 1280, 1024} : placement; }
    bool nearestMonitorRect(Rect& monitorRect) override { return monitorRect = {0, 0, 1280, 1024}, monitorKnown; }
    void place(const Rect& to) override { steps += "place " + std::to_string(to.left + to.bottom) + ";"; }
};
} // namespace

TEST(WindowLogic, MonitorIndicesAndOffsets)
{
    const std::vector<OpenGLWindow::Monitor> monitors = {
        monitor(0x10, {0, 0, 1920, 1080}), monitor(0x20, {1920, 0, 3840, 1080}), monitor(0x20, {0, 1080, 1920, 2160})};
    for (const auto& [handle, index] : std::vector<std::pair<std::uintptr_t, int>>{{0x10, 0}, {0x20, 1}, {0x30, 0}})
        EXPECT_EQ(WindowLogic::findMonitorIndex(monitors, MonitorHandle(handle)), index);
    EXPECT_EQ(WindowLogic::findMonitorIndex({}, MonitorHandle(0x10)), 0);
    // {index, count, clamped}: -1 for an empty list, which is no index.
    for (const auto& row : std::vector<std::vector<int>>{{-5, 3, 0}, {2, 3, 2}, {7, 3, 2}, {4, 1, 0}, {0, 0, -1}})
        EXPECT_EQ(WindowLogic::clampMonitorIndex(row[0], row[1]), row[2]) << row[0] << " of " << row[1];
    // The offset runs from the (left, bottom) corners: with different heights the bottom distance holds.
    EXPECT_EQ(WindowLogic::positionOnMonitor({100, 200, 500, 500}, monitors[0], monitors[1]), Vector2i(2020, 200));
    EXPECT_EQ(WindowLogic::positionOnMonitor({2020, 200, 2420, 500}, monitors[1], monitors[0]), Vector2i(100, 200));
    EXPECT_EQ(WindowLogic::positionOnMonitor({100, 200, 500, 500}, monitors[0], monitor(3, {1920, -360, 3360, 1440})),
              Vector2i(2020, 560));
}

TEST(WindowLogic, FullscreenSavesOnEntryAndRestoresOnLeaving)
{
    // {maximised, monitor known, the steps of entering twice and leaving once}: a maximised window
    // is restored first (its restored rectangle is saved) and maximised again after; without a
    // monitor rectangle it stays where it is.
    const std::tuple<bool, bool, std::string> cases[] = {
        {false, true, "save;borderless;place 1024;restore state;place 539;"},
        {true, false, "restore;save;borderless;restore state;place 539;maximize;"}};
    WindowLogic::FullscreenState state;
    for (const auto& [maximized, monitorKnown, steps] : cases)
    {
        RecordedWindow window;
        window.maximized = maximized;
        window.monitorKnown = monitorKnown;
        WindowLogic::switchFullscreen(false, state, window); // already windowed: nothing
        WindowLogic::switchFullscreen(true, state, window);
        EXPECT_TRUE(state.fullscreen);
        window.placement = {5, 5, 50, 50};                  // not saved again by the second request
        WindowLogic::switchFullscreen(true, state, window); // already full screen: nothing
        WindowLogic::switchFullscreen(false, state, window);
        EXPECT_FALSE(state.fullscreen);
        EXPECT_EQ(window.steps, steps);
        EXPECT_EQ(window.maximized, maximized);
    }
}

// Dispatch works on a window whose creation failed (its parent is not a window).
TEST(WindowDispatch, CallbacksRunFirstThenEveryHandler)
{
    TavrinTest::StreamCapture err(std::cerr);
    OpenGLWindow window("Tavrin failed window", Tavrin::OpenGL::WindowHandle(std::uintptr_t(0x7ead0)));
    EXPECT_EQ(err.text(), "ERROR: Failed to create window.");
    window.setFullscreen(true); // no platform call with a null window
    window.setMonitorIndex(3);
    EXPECT_EQ(std::make_tuple(window.getWindowHandle(), window.getDeviceContext(), window.getFullscreen(),
                              window.getMonitorIndex()),
              std::make_tuple(Tavrin::OpenGL::WindowHandle(), Tavrin::OpenGL::DeviceContextHandle(), false, 0));
    EXPECT_EQ(window.getPosition() + window.getSize() + window.getClientSize(), Vector2i(0, 0));
    std::string seen, calls;
    const auto recorder = [&](const std::string& name) {
        return [&, name](OpenGLWindow* target, unsigned int message, unsigned long long wParam, long long lParam) {
            seen += name + (target == &window ? " " : " ? ") + std::to_string(message) + " " + std::to_string(wParam) +
                    " " + std::to_string(lParam) + ";";
        };
    };
    window.setOnWindowClosed([&](OpenGLWindow* target) { seen += target == &window ? "closed;" : "?"; });
    window.setOnKeyDown([&](OpenGLWindow* target, unsigned long long key) {
        seen += target == &window ? "key " + std::to_string(key) + ";" : "?";
    });
    window.addMesageHandler("a", recorder("a"));
    window.addMesageHandler("a", recorder("replaced")); // same name: replaced, not added
    window.addMesageHandler("B", recorder("B"));        // names are case-sensitive; "B" sorts first

    // WM_CLOSE, WM_QUIT: onWindowClosed; WM_KEYDOWN, WM_SYSKEYDOWN: onKeyDown; then handlers by name.
    const std::tuple<unsigned int, unsigned long long, long long, std::string> messages[] = {
        {0x10, 0, 0, "closed;B 16 0 0;replaced 16 0 0;"},
        {0x12, 0, 0, "closed;B 18 0 0;replaced 18 0 0;"},
        {0x100, 0x41, 0x1e0001, "key 65;B 256 65 1966081;replaced 256 65 1966081;"},
        {0x104, 0x79, 1, "key 121;B 260 121 1;replaced 260 121 1;"},
        {0x101, 0x41, -1, "B 257 65 -1;replaced 257 65 -1;"}};
    for (const auto& [message, wParam, lParam, expected] : messages)
    {
        seen.clear();
        EXPECT_EQ(window.systemWindowProcInternal(message, wParam, lParam), 0);
        EXPECT_EQ(seen, expected);
    }

    // Callbacks are called as stored (their state lasts); one replacing itself finishes with its captures alive.
    window.setOnKeyDown([&, n = 0](OpenGLWindow*, unsigned long long) mutable { calls += std::to_string(++n); });
    window.setOnWindowClosed([&, tail = std::string(" closed, its captures alive;")](OpenGLWindow* target) {
        target->setOnWindowClosed([&](OpenGLWindow*) { calls += " next;"; }), calls += tail;
    });
    for (const unsigned int message : {0x100, 0x104, 0x10, 0x100, 0x12})
        window.systemWindowProcInternal(message, 0, 0);
    EXPECT_EQ(calls, "12 closed, its captures alive;3 next;");

    // Cleared callbacks and removed handlers (also later ones of the same dispatch) fire nothing.
    seen.clear();
    window.setOnWindowClosed(nullptr);
    window.setOnKeyDown(nullptr);
    window.addMesageHandler("A", [&](OpenGLWindow* target, unsigned int, unsigned long long, long long) {
        target->removeMesageHandler("A");
        target->removeMesageHandler("B");
        target->removeMesageHandler("absent");
    });
    window.systemWindowProcInternal(0x10, 0, 0);
    window.systemWindowProcInternal(0x100, 0x41, 0);
    EXPECT_EQ(seen, "replaced 16 0 0;replaced 256 65 0;");
}
