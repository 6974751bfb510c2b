// Real windows on the display: geometry, full screen, monitors and messages.
#include "WindowTestSupport.h"

#include "support/TestSupport.h"

#include <opengl/OpenGLWindow.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>

#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

using Tavrin::OpenGL::OpenGLWindow;
using namespace TavrinWindowTest;

namespace
{
const unsigned int wmDestroy = 0x0002, wmClose = 0x0010, wmKeyDown = 0x0100, wmKeyUp = 0x0101, wmSysKeyDown = 0x0104;
const unsigned long long keyA = 0x41, keyF10 = 0x79;

// Restores the shared window's placement after a test that moves it.
class SharedWindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TAVRIN_REQUIRE_WINDOWS();
        window = sharedWindow();
        settle(*window);
        position = window->getPosition();
        clientSize = window->getClientSize();
    }
    void TearDown() override
    {
        if (!window)
            return;
        window->setFullscreen(false);
        restore(window->getWindowHandle());
        settle(*window);
        window->setPosition(position);
        window->setClientSize(clientSize);
        window->setOnKeyDown(nullptr);
        window->setOnWindowClosed(nullptr);
        window->removeMesageHandler("log");
        settle(*window);
    }

    OpenGLWindow* window = nullptr;
    Eigen::Vector2i position, clientSize;
};
} // namespace

TEST_F(SharedWindowTest, GeometryRoundTrips)
{
    window->setPosition(Eigen::Vector2i(150, 120));
    settle(*window);
    EXPECT_EQ(window->getPosition(), Eigen::Vector2i(150, 120));

    window->setSize(Eigen::Vector2i(500, 420));
    settle(*window);
    EXPECT_EQ(window->getSize(), Eigen::Vector2i(500, 420));
    EXPECT_EQ(window->getPosition(), Eigen::Vector2i(150, 120));

    window->setClientSize(Eigen::Vector2i(320, 240));
    settle(*window);
    EXPECT_EQ(window->getClientSize(), Eigen::Vector2i(320, 240));
    EXPECT_EQ(window->getClientPosition(), Eigen::Vector2i(0, 0)); // client coordinates
    EXPECT_EQ(window->getPosition(), Eigen::Vector2i(150, 120));
    const Eigen::Vector2i frame = window->getSize() - window->getClientSize();
    EXPECT_GT(frame.x(), 0);
    EXPECT_GT(frame.y(), 0);
}

TEST_F(SharedWindowTest, FullscreenEnteredTwiceAndLeftOnceRestoresThePlacement)
{
    window->setPosition(Eigen::Vector2i(130, 110));
    settle(*window);
    const Eigen::Vector2i size = window->getSize();
    EXPECT_FALSE(window->getFullscreen());

    for (int entry = 0; entry < 2; ++entry)
    {
        window->setFullscreen(true);
        settle(*window);
        EXPECT_TRUE(window->getFullscreen());
        EXPECT_EQ(window->getPosition(), Eigen::Vector2i(0, 0));
        EXPECT_EQ(window->getSize(), screenSize());
        EXPECT_EQ(window->getClientSize(), screenSize()); // no frame left
    }

    window->setFullscreen(false);
    settle(*window);
    EXPECT_FALSE(window->getFullscreen());
    EXPECT_EQ(window->getPosition(), Eigen::Vector2i(130, 110));
    EXPECT_EQ(window->getSize(), size);
    EXPECT_EQ(window->getClientSize(), clientSize);
}

TEST_F(SharedWindowTest, MaximisedWindowIsMaximisedAgainAfterFullscreen)
{
    maximize(window->getWindowHandle());
    settle(*window);
    ASSERT_TRUE(isMaximized(window->getWindowHandle()));

    window->setFullscreen(true);
    settle(*window);
    EXPECT_FALSE(isMaximized(window->getWindowHandle()));
    EXPECT_EQ(window->getSize(), screenSize());

    window->setFullscreen(false);
    settle(*window);
    EXPECT_TRUE(isMaximized(window->getWindowHandle()));
}

TEST_F(SharedWindowTest, MonitorsOfTheDisplay)
{
    const std::vector<OpenGLWindow::Monitor>& monitors = OpenGLWindow::getMonitors();
    ASSERT_EQ(monitors.size(), 1u) << "the virtual display has one monitor";
    EXPECT_EQ(&OpenGLWindow::getMonitors(), &monitors); // filled once, never refreshed
    EXPECT_NE(monitors[0].handle, Tavrin::OpenGL::MonitorHandle());
    EXPECT_EQ(monitors[0].deviceContext, Tavrin::OpenGL::DeviceContextHandle());
    EXPECT_EQ(monitors[0].position, Eigen::Vector2i(0, screenSize().y())); // left, bottom
    EXPECT_EQ(monitors[0].size, screenSize());

    EXPECT_EQ(window->getMonitorIndex(), 0);
    EXPECT_EQ(&window->getMonitor(), &monitors[0]);

    // One monitor: every index clamps to the current one and nothing moves.
    window->setPosition(Eigen::Vector2i(140, 130));
    settle(*window);
    for (int index : {-5, 0, 7})
    {
        window->setMonitorIndex(index);
        settle(*window);
        EXPECT_EQ(window->getPosition(), Eigen::Vector2i(140, 130)) << index;
        EXPECT_FALSE(window->getFullscreen());
    }
    window->setFullscreen(true);
    window->setMonitorIndex(3);
    settle(*window);
    EXPECT_TRUE(window->getFullscreen());
    EXPECT_EQ(window->getPosition(), Eigen::Vector2i(0, 0));
}

TEST_F(SharedWindowTest, PostedKeyDownsReachOnKeyDownAndEveryHandler)
{
    std::vector<unsigned long long> keys;
    std::vector<unsigned int> messages;
    window->setOnKeyDown([&](OpenGLWindow* target, unsigned long long key) {
        EXPECT_EQ(target, window);
        keys.push_back(key);
    });
    window->addMesageHandler("log", [&](OpenGLWindow* target, unsigned int message, unsigned long long, long long) {
        EXPECT_EQ(target, window);
        if (message == wmKeyDown || message == wmKeyUp || message == wmSysKeyDown)
            messages.push_back(message);
    });

    postMessage(window->getWindowHandle(), wmKeyDown, keyA, 0x001E0001);
    postMessage(window->getWindowHandle(), wmKeyUp, keyA, 0xC01E0001);
    postMessage(window->getWindowHandle(), wmSysKeyDown, keyF10, 0x20440001); // Alt held
    window->processMessages();

    EXPECT_EQ(keys, (std::vector<unsigned long long>{keyA, keyF10}));
    EXPECT_EQ(messages, (std::vector<unsigned int>{wmKeyDown, wmKeyUp, wmSysKeyDown})); // key-up too
}

TEST_F(SharedWindowTest, RealKeyPressOnTheDisplayArrivesThroughProcessMessages)
{
    std::vector<unsigned long long> keys;
    window->setOnKeyDown([&](OpenGLWindow*, unsigned long long key) { keys.push_back(key); });
    activate(window->getWindowHandle());
    pumpUntil(*window, 200, [] { return false; });

    ASSERT_TRUE(runHostProgram("/usr/bin/xdotool key a")) << "xdotool could not be started";
    EXPECT_TRUE(pumpUntil(*window, 5000, [&] { return !keys.empty(); }));
    EXPECT_EQ(keys, std::vector<unsigned long long>{keyA});
}

TEST(OpenGLWindowMessages, PostedCloseReachesTheCallbackThenDestroysTheWindow)
{
    TAVRIN_REQUIRE_WINDOWS();
    // The shared window's title: the second class registration fails harmlessly.
    TavrinTest::StreamCapture err(std::cerr);
    OpenGLWindow window("Tavrin window tests");
    EXPECT_EQ(err.text(), "");
    ASSERT_TRUE(windowExists(window.getWindowHandle()));

    std::vector<std::string> events;
    window.setOnWindowClosed([&](OpenGLWindow* target) {
        EXPECT_EQ(target, &window);
        events.push_back("closed");
    });
    window.addMesageHandler("log", [&](OpenGLWindow*, unsigned int message, unsigned long long, long long) {
        if (message == wmClose)
            events.push_back("handler close");
        else if (message == wmDestroy)
            events.push_back("handler destroy");
    });
    window.processMessages();
    ASSERT_TRUE(events.empty());

    postMessage(window.getWindowHandle(), wmClose, 0, 0);
    window.processMessages();
    EXPECT_EQ(events, (std::vector<std::string>{"closed", "handler close", "handler destroy"}));
    EXPECT_FALSE(windowExists(window.getWindowHandle())); // default processing destroyed it
}

TEST_F(SharedWindowTest, PresentTextureOneToOneAndStretched)
{
    // Texels bottom row first, as GL takes them.
    const std::uint32_t texels[2][4] = {{0xFF0000, 0x00FF00, 0x0000FF, 0xFFFFFF},
                                        {0xFFFF00, 0x00FFFF, 0xFF00FF, 0x804020}};
    std::vector<unsigned char> data;
    for (const auto& row : texels)
        for (const std::uint32_t texel : row)
            data.insert(data.end(), {static_cast<unsigned char>(texel >> 16), static_cast<unsigned char>(texel >> 8),
                                     static_cast<unsigned char>(texel), 255});
    window->makeCurrent(); // the texture must live in the context that presents it
    auto texture = std::make_shared<Tavrin::OpenGL::Texture2D>();
    texture->reserveStorage(1, Eigen::Vector2i(4, 2), GL_RGBA8);
    texture->uploadData(Eigen::Vector2i(4, 2), data.data(), GL_RGBA, GL_UNSIGNED_BYTE, 0, GL_TEXTURE_2D);

    // The window's pixels are read through the window system right after presenting: under Wine
    // the GL front buffer reads back black after the swap.
    window->presentTexture(texture, true);
    const auto stretchedAt = [&](int x, int y) { return readClientPixel(window->getWindowHandle(), x, y); };
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x)
        {
            EXPECT_EQ(stretchedAt(100 * x + 50, 150 * y + 75), texels[y][x]) << x << "," << y;
            EXPECT_EQ(stretchedAt(100 * x + 1, 150 * y + 1), texels[y][x]) << x << "," << y;
            EXPECT_EQ(stretchedAt(100 * x + 98, 150 * y + 148), texels[y][x]) << x << "," << y;
        }
    GLint viewport[4] = {};
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[2], 400);
    EXPECT_EQ(viewport[3], 300);

    window->presentTexture(texture, false);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(readClientPixel(window->getWindowHandle(), x, y), texels[y][x]) << x << "," << y;
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[0], 0);
    EXPECT_EQ(viewport[1], 0);
    EXPECT_EQ(viewport[2], 4);
    EXPECT_EQ(viewport[3], 2);

    // The state that presenting leaves behind.
    GLint value = -1;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &value);
    EXPECT_EQ(value, 0);
    glGetIntegerv(GL_CURRENT_PROGRAM, &value);
    EXPECT_EQ(value, 0);
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &value);
    EXPECT_EQ(value, 0);
    glGetIntegerv(GL_MATRIX_MODE, &value);
    EXPECT_EQ(value, GL_MODELVIEW);
    EXPECT_TRUE(glIsEnabled(GL_TEXTURE_2D));
    EXPECT_FALSE(glIsEnabled(GL_BLEND));
    glGetTextureParameterivEXT(texture->getHandle(), GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &value);
    EXPECT_EQ(value, GL_NEAREST);
    glGetTextureParameterivEXT(texture->getHandle(), GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, &value);
    EXPECT_EQ(value, GL_CLAMP_TO_EDGE);
    EXPECT_EQ(texture.use_count(), 1); // the window keeps no reference

    // No texture: nothing is drawn or swapped.
    window->presentTexture(nullptr, true);
    EXPECT_EQ(readClientPixel(window->getWindowHandle(), 0, 0), texels[0][0]);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    glDisable(GL_TEXTURE_2D);
}
