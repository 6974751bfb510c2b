#pragma once

// Shared pieces of the window suite: the window that the whole run shares (created by the
// suite's environment, which also starts GLEW on its context) and the few native operations
// that the tests need to observe or drive a window from outside the library.

#include <opengl/OpenGLWindow.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace TavrinWindowTest
{
/// The window shared by the run; null when this platform cannot create windows.
Tavrin::OpenGL::OpenGLWindow* sharedWindow();
/// Why windows are not available (empty when they are).
const std::string& unavailableReason();

/// Whether the native window still exists.
bool windowExists(Tavrin::OpenGL::WindowHandle window);
/// Queues a message for the window (Win32 PostMessage), to be dispatched by processMessages.
void postMessage(Tavrin::OpenGL::WindowHandle window, unsigned int message, unsigned long long wParam,
                 long long lParam);
/// Asks the window system to maximise, restore, or activate the window.
void maximize(Tavrin::OpenGL::WindowHandle window);
void restore(Tavrin::OpenGL::WindowHandle window);
void activate(Tavrin::OpenGL::WindowHandle window);
bool isMaximized(Tavrin::OpenGL::WindowHandle window);
/// The screen size in pixels.
Eigen::Vector2i screenSize();
/// The colour (0xRRGGBB) at client pixel (x, y), y counted from the client area's bottom row as in
/// GL, read from the window by the window system (not through GL).
std::uint32_t readClientPixel(Tavrin::OpenGL::WindowHandle window, int x, int y);
/// Runs a program of the display's host system (here: xdotool on the X display) and waits for it;
/// false when it could not be started.
bool runHostProgram(const std::string& commandLine);
/// Pumps `window`'s thread queue for up to `milliseconds`, or until `done()` holds.
template <typename Done> bool pumpUntil(const Tavrin::OpenGL::OpenGLWindow& window, int milliseconds, Done done);
void sleepMilliseconds(int milliseconds);
/// Pumps the queue until the window manager has answered the placement requests made so far:
/// the window's rectangle and maximised state unchanged for 200 ms (at most 3 s). Under Wine a
/// late answer to an earlier request would otherwise move the window back after a check.
void settle(const Tavrin::OpenGL::OpenGLWindow& window);

template <typename Done> bool pumpUntil(const Tavrin::OpenGL::OpenGLWindow& window, int milliseconds, Done done)
{
    for (int waited = 0; waited <= milliseconds; waited += 10)
    {
        window.processMessages();
        if (done())
            return true;
        sleepMilliseconds(10);
    }
    return false;
}
} // namespace TavrinWindowTest

/// Skips the current test when this platform cannot create windows.
#define TAVRIN_REQUIRE_WINDOWS()                                                                                       \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!::TavrinWindowTest::sharedWindow())                                                                       \
            GTEST_SKIP() << ::TavrinWindowTest::unavailableReason();                                                   \
    } while (false)
