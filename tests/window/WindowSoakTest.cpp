// Window create/destroy cycles: every native window goes with its object, without a diagnostic,
// and the process's memory grows by no more than the rendering context that every window
// creates and that is never deleted (about 2.5 MiB each with Mesa llvmpipe).
#include "WindowTestSupport.h"
#include "support/ProcessMemory.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <vector>

using namespace Tavrin::OpenGL;
using namespace TavrinWindowTest;

TEST(WindowSoak, CreateAndDestroyCycles)
{
    TAVRIN_REQUIRE_WINDOWS();
    constexpr int cycles = 20;
    auto cycle = [] {
        TavrinTest::StreamCapture err(std::cerr);
        WindowHandle handle{};
        {
            OpenGLWindow window("Tavrin window tests");
            handle = window.getWindowHandle();
            EXPECT_TRUE(windowExists(handle));
            window.processMessages();
        }
        EXPECT_FALSE(windowExists(handle));
        EXPECT_EQ(err.text(), "");
    };
    cycle(); // the first cycle fills the window system's caches
    const std::size_t before = TavrinTest::processMemoryBytes();
    for (int i = 1; i < cycles; ++i)
        cycle();
    const std::size_t after = TavrinTest::processMemoryBytes();
    sharedWindow()->makeCurrent(); // the newest context went with the last window's cycle
    if (TavrinTest::underAddressSanitizer())
        return;
    constexpr std::size_t keptContextBudget = 4u << 20;
    EXPECT_LE(after, before + (cycles - 1) * keptContextBudget)
        << "grew by " << (after - before) / 1024 << " KiB over " << cycles - 1 << " window cycles";
}
