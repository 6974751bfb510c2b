// The process-wide font cache, with fonts built from real faces.
#include "gl/FontTestSupport.h"
#include "support/TestSupport.h"

#include <opengl/FontManager.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <iostream>
#include <memory>

using Tavrin::OpenGL::Font;
using Tavrin::OpenGL::FontManager;
using TavrinTest::StreamCapture;

namespace
{
// Each test starts and ends without a cache, so fonts are released while the context is current.
class FontManagerTest : public ::testing::Test
{
protected:
    void SetUp() override { FontManager::getInstance()->dispose(); }
    void TearDown() override { FontManager::getInstance()->dispose(); }
};

bool drawsSomething(const Font& font)
{
    FontTest::TextTarget target(64, 32);
    return FontTest::LitPixels(target.draw(font, "Ag", 4, 10, 20), target.width).count > 50;
}
} // namespace

TEST_F(FontManagerTest, NamesDifferingInCaseAndOuterBlanksShareOneFont)
{
    FontManager* manager = FontManager::getInstance();
    EXPECT_EQ(FontManager::getInstance(), manager);
    const std::shared_ptr<Font> arial = manager->getFont("Arial");
    ASSERT_TRUE(arial);
    EXPECT_TRUE(arial->isValid());
    EXPECT_EQ(manager->getFont(" ARIAL\t"), arial);
    EXPECT_EQ(manager->getFont("arial"), arial);
    EXPECT_NE(manager->getFont("Ari al"), arial); // inner blanks are part of the name

    // The empty name builds the platform's default face and is cached under "" like any other.
    const std::shared_ptr<Font> fallback = manager->getFont("");
    ASSERT_TRUE(fallback);
    EXPECT_EQ(manager->getFont(" \t "), fallback);
}

TEST_F(FontManagerTest, FontsThatFailAreNeverCachedAndAreTriedAgain)
{
    std::string text;
    {
        FontTest::FontFailure failure;
        StreamCapture out(std::cout);
        EXPECT_EQ(FontManager::getInstance()->getFont("Arial"), nullptr);
        EXPECT_EQ(FontManager::getInstance()->getFont("Arial"), nullptr);
        text = out.text();
    }
    EXPECT_EQ(text, FontTest::FontFailure::warning() + FontTest::FontFailure::warning());

    StreamCapture out(std::cout);
    const std::shared_ptr<Font> arial = FontManager::getInstance()->getFont("Arial");
    ASSERT_TRUE(arial);
    EXPECT_TRUE(arial->isValid());
    EXPECT_EQ(out.text(), "");
}

TEST_F(FontManagerTest, DisposeLeavesFontsHeldByCallersUsable)
{
    const std::shared_ptr<Font> held = FontManager::getInstance()->getFont("Arial");
    ASSERT_TRUE(held);
    FontManager::getInstance()->dispose();

    // A fresh, empty cache builds the face again; the earlier font still draws.
    const std::shared_ptr<Font> rebuilt = FontManager::getInstance()->getFont("Arial");
    ASSERT_TRUE(rebuilt);
    EXPECT_NE(rebuilt, held);
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_TRUE(drawsSomething(*held));
    EXPECT_TRUE(drawsSomething(*rebuilt));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}
