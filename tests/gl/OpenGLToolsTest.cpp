// The quads drawn into a framebuffer and read back: corners, texture coordinates and winding.
#include "support/TestSupport.h"

#include <opengl/Framebuffer.h>
#include <opengl/OpenGLTools.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

using Tavrin::OpenGL::Framebuffer;
using Tavrin::OpenGL::OpenGLTools;
using Tavrin::OpenGL::Texture2D;

namespace
{
using Pixel = std::array<unsigned char, 4>;

// texel (s, t) of the 2x2 source texture: each corner of texture space has its own colour
const Pixel texel00 = {255, 0, 0, 255}, texel10 = {0, 255, 0, 255};
const Pixel texel01 = {0, 0, 255, 255}, texel11 = {255, 255, 0, 255};
const Pixel clear = {0, 0, 0, 0};

class Quads : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TavrinTest::drainGLErrors();
        target.reserveStorage(1, Eigen::Vector2i(64, 64), GL_RGBA8);
        framebuffer.attachTexture2D(&target, GL_COLOR_ATTACHMENT0, 0);
        framebuffer.checkStatus();
        framebuffer.bind();
        glViewport(0, 0, 64, 64);

        const Pixel texels[] = {texel00, texel10, texel01, texel11}; // bottom row first
        source.reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA8);
        source.uploadData(Eigen::Vector2i(2, 2), texels, GL_RGBA, GL_UNSIGNED_BYTE, 0, GL_TEXTURE_2D);
        glTextureParameteriEXT(source.getHandle(), GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTextureParameteriEXT(source.getHandle(), GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        source.bind();
        glEnable(GL_TEXTURE_2D);
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
    }
    void TearDown() override
    {
        glDisable(GL_TEXTURE_2D);
        glDisable(GL_CULL_FACE);
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
        Texture2D::unbind();
        Framebuffer::unbind();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
    void clearTarget()
    {
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    static Pixel pixel(int x, int y)
    {
        Pixel value{};
        glReadPixels(x, y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, value.data());
        return value;
    }
    // Draws with back faces or front faces culled and tells whether anything reached (x, y).
    template <typename Draw> bool drawnWhenCulling(GLenum face, Draw draw, int x, int y)
    {
        clearTarget();
        glEnable(GL_CULL_FACE);
        glCullFace(face);
        draw();
        glDisable(GL_CULL_FACE);
        return pixel(x, y) != clear;
    }

    Framebuffer framebuffer;
    Texture2D target, source;
};
} // namespace

TEST_F(Quads, DrawQuadCoversItsIntegerRectangleCounterClockwise)
{
    glMatrixMode(GL_PROJECTION);
    glOrtho(0, 64, 0, 64, -1, 1); // one unit per pixel
    glMatrixMode(GL_MODELVIEW);
    const auto draw = [] { OpenGLTools::drawQuad(Eigen::Vector2i(10, 20), Eigen::Vector2i(30, 40)); };
    clearTarget();
    draw();
    // Pixels 10..39 by 20..59, texture corner (0, 0) at (10, 20).
    EXPECT_EQ(pixel(10, 20), texel00);
    EXPECT_EQ(pixel(39, 20), texel10);
    EXPECT_EQ(pixel(39, 59), texel11);
    EXPECT_EQ(pixel(10, 59), texel01);
    for (const auto& outside : {std::array<int, 2>{9, 20}, {40, 20}, {10, 19}, {10, 60}})
        EXPECT_EQ(pixel(outside[0], outside[1]), clear) << outside[0] << ", " << outside[1];

    EXPECT_TRUE(drawnWhenCulling(GL_BACK, draw, 20, 30));
    EXPECT_FALSE(drawnWhenCulling(GL_FRONT, draw, 20, 30));
}

TEST_F(Quads, DrawViewportQuadCoversTheViewportClockwise)
{
    const auto draw = [] { OpenGLTools::drawViewportQuad(Eigen::Vector2f(0, 0), Eigen::Vector2f(1, 1)); };
    clearTarget();
    draw();
    EXPECT_EQ(pixel(0, 0), texel00);
    EXPECT_EQ(pixel(63, 0), texel10);
    EXPECT_EQ(pixel(63, 63), texel11);
    EXPECT_EQ(pixel(0, 63), texel01);

    EXPECT_FALSE(drawnWhenCulling(GL_BACK, draw, 32, 32));
    EXPECT_TRUE(drawnWhenCulling(GL_FRONT, draw, 32, 32));
}

TEST_F(Quads, DrawViewportQuadMovesWithinAndRestoresTheMatrix)
{
    glTranslatef(0, 0, 0.25f); // not the identity, yet moves nothing on screen
    GLfloat before[16], after[16], color[4];
    glGetFloatv(GL_MODELVIEW_MATRIX, before);
    glColor4f(0.2f, 0.3f, 0.4f, 0.5f);

    clearTarget();
    // Offset and scale map the quad to the upper right quarter of the viewport.
    OpenGLTools::drawViewportQuad(Eigen::Vector2f(0.5f, 0.5f), Eigen::Vector2f(0.5f, 0.5f));
    glGetFloatv(GL_MODELVIEW_MATRIX, after);
    glGetFloatv(GL_CURRENT_COLOR, color);
    EXPECT_EQ(pixel(31, 31), clear);
    EXPECT_EQ(pixel(32, 32), texel00);
    EXPECT_EQ(pixel(63, 32), texel10);
    EXPECT_EQ(pixel(63, 63), texel11);
    EXPECT_EQ(std::vector<GLfloat>(before, before + 16), std::vector<GLfloat>(after, after + 16));
    EXPECT_EQ(std::vector<GLfloat>(color, color + 4), (std::vector<GLfloat>{1, 1, 1, 1}));
}
