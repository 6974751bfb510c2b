// Framebuffer completeness; quads drawn into a framebuffer and read back.
#include "DeviceTestSupport.h"

#include <opengl/OpenGLTools.h>

using namespace Tavrin::OpenGL;
using TavrinTest::thrownBy;

TEST(Framebuffer, CompletenessFollowsAttachmentsAndGLErrorsSurfaceAtTheChecks)
{
    Framebuffer framebuffer;
    Texture2D color, depth;
    const auto status = [&] { return thrownBy([&] { framebuffer.checkStatus(); }); };
    EXPECT_EQ(status(), "Framebuffer incomplete: Missing attachment");
    color.reserveStorage(1, Eigen::Vector2i(8, 8), GL_RGBA32F);
    depth.reserveStorage(1, Eigen::Vector2i(8, 8), GL_DEPTH_COMPONENT24);
    framebuffer.attachTexture2D(&color, GL_COLOR_ATTACHMENT0, 0);
    EXPECT_EQ(status(), "");
    framebuffer.attachTexture2D(&color, GL_DEPTH_ATTACHMENT, 0); // colour at the depth point
    EXPECT_EQ(status(), "Framebuffer incomplete: Incomplete attachment");
    framebuffer.attachTexture2D(&depth, GL_DEPTH_ATTACHMENT, 0);
    framebuffer.detachTexture2D(GL_COLOR_ATTACHMENT0);
    EXPECT_EQ(status(), "");
    framebuffer.detachTexture2D(GL_DEPTH_ATTACHMENT);
    EXPECT_EQ(status(), "Framebuffer incomplete: Missing attachment");
    // GL errors surface at the checks: a level the texture lacks, an unknown attachment point.
    EXPECT_EQ(thrownBy([&] { framebuffer.attachTexture2D(&color, GL_COLOR_ATTACHMENT0, 5); }) +
                  thrownBy([&] { framebuffer.detachTexture2D(GL_TEXTURE_2D); }),
              "GLCheck: Invalid valueGLCheck: Invalid enum");
}

namespace
{
using Pixel = std::array<unsigned char, 4>;
// The 2x2 source texture, bottom row first: texel (s, t) sits at texture corner (s, t).
const Pixel t00 = {255, 0, 0, 255}, t10 = {0, 255, 0, 255}, t01 = {0, 0, 255, 255}, t11 = {255, 255, 0, 255},
            clear = {0, 0, 0, 0};

// Draws with `culledFace` culled (GL_NONE: none) into a cleared 64x64 framebuffer, the 2x2 source
// texture replacing the colour, and reads the given pixels.
template <typename Draw>
std::vector<Pixel> drawn(Draw draw, GLenum culledFace, const std::vector<std::array<int, 2>>& at)
{
    Framebuffer framebuffer;
    Texture2D target, source;
    target.reserveStorage(1, Eigen::Vector2i(64, 64), GL_RGBA8);
    framebuffer.attachTexture2D(&target, GL_COLOR_ATTACHMENT0, 0);
    framebuffer.bind();
    glViewport(0, 0, 64, 64);
    const Pixel texels[] = {t00, t10, t01, t11};
    source.reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA8);
    source.uploadData(Eigen::Vector2i(2, 2), texels, GL_RGBA, GL_UNSIGNED_BYTE, 0, GL_TEXTURE_2D);
    source.bind();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
    glCullFace(culledFace == GL_NONE ? GL_BACK : culledFace);
    (culledFace == GL_NONE ? glDisable : glEnable)(GL_CULL_FACE);
    draw();
    glDisable(GL_CULL_FACE);
    glDisable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    std::vector<Pixel> pixels(at.size());
    for (std::size_t i = 0; i < at.size(); ++i)
        glReadPixels(at[i][0], at[i][1], 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixels[i].data());
    Framebuffer::unbind();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    return pixels;
}
} // namespace

TEST(OpenGLTools, QuadsCoverTheirRectangleOrTheViewportWithTheirWindingAndKeepTheMatrix)
{
    const auto quad = [] { OpenGLTools::drawViewportQuad(Eigen::Vector2f(0, 0), Eigen::Vector2f(1, 1)); };
    EXPECT_EQ(drawn(quad, GL_NONE, {{0, 0}, {63, 0}, {63, 63}, {0, 63}}), (std::vector<Pixel>{t00, t10, t11, t01}));
    EXPECT_EQ(drawn(quad, GL_BACK, {{10, 10}}), std::vector<Pixel>{clear}); // clockwise
    EXPECT_EQ(drawn(quad, GL_FRONT, {{10, 10}}), std::vector<Pixel>{t00});
    // Offset and scale move it to the upper right quarter; the matrix stays, the colour is white.
    glTranslatef(0, 0, 0.25f); // not the identity, yet moves nothing on screen
    glColor4f(0.2f, 0.3f, 0.4f, 0.5f);
    std::vector<GLfloat> before(16), after(16), color(4);
    glGetFloatv(GL_MODELVIEW_MATRIX, before.data());
    EXPECT_EQ(drawn([] { OpenGLTools::drawViewportQuad(Eigen::Vector2f(0.5f, 0.5f), Eigen::Vector2f(0.5f, 0.5f)); },
                    GL_NONE, {{31, 31}, {32, 32}, {63, 63}}),
              (std::vector<Pixel>{clear, t00, t11}));
    glGetFloatv(GL_MODELVIEW_MATRIX, after.data());
    glGetFloatv(GL_CURRENT_COLOR, color.data());
    EXPECT_EQ(before, after);
    EXPECT_EQ(color, (std::vector<GLfloat>{1, 1, 1, 1}));

    // drawQuad: pixels 10..39 by 20..59 at one unit per pixel, texture corner (0, 0) at (10, 20).
    glLoadIdentity();
    glOrtho(0, 64, 0, 64, -1, 1);
    const auto rectangle = [] { OpenGLTools::drawQuad(Eigen::Vector2i(10, 20), Eigen::Vector2i(30, 40)); };
    EXPECT_EQ(
        drawn(rectangle, GL_NONE, {{10, 20}, {39, 20}, {39, 59}, {10, 59}, {9, 20}, {40, 20}, {10, 19}, {10, 60}}),
        (std::vector<Pixel>{t00, t10, t11, t01, clear, clear, clear, clear}));
    EXPECT_EQ(drawn(rectangle, GL_BACK, {{20, 30}}), std::vector<Pixel>{t00}); // counter-clockwise
    EXPECT_EQ(drawn(rectangle, GL_FRONT, {{20, 30}}), std::vector<Pixel>{clear});
    glLoadIdentity();
}
