// Framebuffer completeness, attachment and binding, and the draw-buffer lists.
#include "support/TestSupport.h"

#include <opengl/Framebuffer.h>
#include <opengl/OpenGLTools.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <iostream>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

using Tavrin::OpenGL::Framebuffer;
using Tavrin::OpenGL::OpenGLTools;
using Tavrin::OpenGL::Texture2D;
using TavrinTest::StreamCapture;

namespace
{
template <typename Action> std::string thrownBy(Action action)
{
    try
    {
        action();
    }
    catch (const std::runtime_error& error)
    {
        return error.what();
    }
    return "";
}

struct DrawBufferCase
{
    const char* name;
    int count;
    int selected; // how many attachments the list names
};

class SequentialDrawBuffers : public ::testing::TestWithParam<DrawBufferCase>
{
};
} // namespace

TEST(Framebuffer, CompletenessFollowsAttachments)
{
    Framebuffer framebuffer;
    EXPECT_NE(framebuffer.getHandle(), 0u);
    const auto status = [&] { return thrownBy([&] { framebuffer.checkStatus(); }); };
    EXPECT_EQ(status(), "Framebuffer incomplete: Missing attachment");

    Texture2D color, depth;
    color.reserveStorage(1, Eigen::Vector2i(8, 8), GL_RGBA32F);
    framebuffer.attachTexture2D(&color, GL_COLOR_ATTACHMENT0, 0);
    EXPECT_EQ(status(), "");
    framebuffer.detachTexture2D(GL_COLOR_ATTACHMENT0);
    EXPECT_EQ(status(), "Framebuffer incomplete: Missing attachment");

    // A colour texture at the depth attachment is an incomplete attachment.
    framebuffer.attachTexture2D(&color, GL_COLOR_ATTACHMENT0, 0);
    framebuffer.attachTexture2D(&color, GL_DEPTH_ATTACHMENT, 0);
    EXPECT_EQ(status(), "Framebuffer incomplete: Incomplete attachment");
    depth.reserveStorage(1, Eigen::Vector2i(8, 8), GL_DEPTH_COMPONENT24);
    framebuffer.attachTexture2D(&depth, GL_DEPTH_ATTACHMENT, 0);
    EXPECT_EQ(status(), "");

    // GL errors surface at the checks: a level the texture lacks, an unknown attachment point.
    StreamCapture out(std::cout);
    EXPECT_EQ(thrownBy([&] { framebuffer.attachTexture2D(&color, GL_COLOR_ATTACHMENT0, 5); }),
              "GLCheck: Invalid value");
    EXPECT_TRUE(std::regex_match(out.text(), std::regex("WARNING: Framebuffer\\.cpp \\(line [0-9]+\\) "
                                                        "GLCheck: Invalid value")))
        << out.text();
    EXPECT_EQ(thrownBy([&] { framebuffer.detachTexture2D(GL_TEXTURE_2D); }), "GLCheck: Invalid enum");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST(Framebuffer, BindsAndUnbinds)
{
    Framebuffer framebuffer;
    framebuffer.bind();
    GLint draw = 0, read = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &draw);
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &read);
    EXPECT_EQ(GLuint(draw), framebuffer.getHandle());
    EXPECT_EQ(GLuint(read), framebuffer.getHandle());
    Framebuffer::unbind();
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &draw);
    EXPECT_EQ(draw, 0);
}

TEST_P(SequentialDrawBuffers, SelectsTheFirstColourAttachments)
{
    GLint maxDrawBuffers = 0;
    glGetIntegerv(GL_MAX_DRAW_BUFFERS, &maxDrawBuffers);
    if (GetParam().selected > maxDrawBuffers)
    {
        // Beyond the driver's limit GL refuses the list (the table bound keeps it from
        // reading past 16 entries whatever the driver's limit is).
        Framebuffer framebuffer;
        TavrinTest::drainGLErrors();
        OpenGLTools::sequentialDrawBuffers(&framebuffer, GetParam().count);
        EXPECT_EQ(glGetError(), GLenum(GL_INVALID_VALUE));
        return;
    }
    Framebuffer framebuffer;
    OpenGLTools::sequentialDrawBuffers(&framebuffer, GetParam().count);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    framebuffer.bind();
    for (int i = 0; i < maxDrawBuffers; ++i)
    {
        GLint buffer = -1;
        glGetIntegerv(GL_DRAW_BUFFER0 + i, &buffer);
        EXPECT_EQ(buffer, i < GetParam().selected ? GL_COLOR_ATTACHMENT0 + i : GL_NONE) << "draw buffer " << i;
    }
    Framebuffer::unbind();
}

INSTANTIATE_TEST_SUITE_P(RealGL, SequentialDrawBuffers,
                         ::testing::Values(DrawBufferCase{"One", 1, 1}, DrawBufferCase{"Three", 3, 3},
                                           DrawBufferCase{"None", 0, 0}, DrawBufferCase{"NegativeIsNone", -1, 0},
                                           DrawBufferCase{"AboveTableIsSixteen", 20, 16}),
                         [](const ::testing::TestParamInfo<DrawBufferCase>& info) {
                             return std::string(info.param.name);
                         });
