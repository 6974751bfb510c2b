// The GL error check against errors that real GL raises.
#include "support/TestSupport.h"

#include <opengl/GLCheck.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <iostream>
#include <stdexcept>
#include <string>

using Tavrin::OpenGL::GLCheck;
using TavrinTest::StreamCapture;

namespace
{
struct Outcome
{
    std::string out, err, thrown;
};

// Runs the check at a known position and records what a host would see.
Outcome checkAt(const char* file, int line)
{
    Outcome outcome;
    StreamCapture out(std::cout), err(std::cerr);
    try
    {
        GLCheck::check(file, line);
    }
    catch (const std::runtime_error& error)
    {
        outcome.thrown = error.what();
    }
    outcome.out = out.text();
    outcome.err = err.text();
    return outcome;
}

struct ProvokedError
{
    const char* name;
    void (*provoke)();
    const char* message;
};

class GLCheckProvoked : public ::testing::TestWithParam<ProvokedError>
{
};
} // namespace

TEST_P(GLCheckProvoked, WarnsOnStdoutAndThrowsTheMessage)
{
    TavrinTest::drainGLErrors();
    GetParam().provoke();
    const Outcome outcome = checkAt("Texture2D.cpp", 41);
    EXPECT_EQ(outcome.out, std::string("WARNING: Texture2D.cpp (line 41) ") + GetParam().message);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.thrown, GetParam().message);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

INSTANTIATE_TEST_SUITE_P(
    RealGL, GLCheckProvoked,
    ::testing::Values(ProvokedError{"InvalidEnum", [] { glEnable(0xFFFF); }, "GLCheck: Invalid enum"},
                      ProvokedError{"InvalidValue", [] { glLineWidth(-1.0f); }, "GLCheck: Invalid value"},
                      ProvokedError{"InvalidOperation", [] { glEnd(); }, "GLCheck: Invalid operation"},
                      ProvokedError{"StackUnderflow",
                                    [] {
                                        glMatrixMode(GL_MODELVIEW);
                                        glPopMatrix();
                                    },
                                    "GLCheck: Stack underflow"},
                      ProvokedError{"InvalidFramebufferOperation",
                                    [] {
                                        GLuint framebuffer = 0;
                                        glGenFramebuffers(1, &framebuffer);
                                        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
                                        glClear(GL_COLOR_BUFFER_BIT);
                                        glBindFramebuffer(GL_FRAMEBUFFER, 0);
                                        glDeleteFramebuffers(1, &framebuffer);
                                    },
                                    "GLCheck: Invalid framebuffer operation"}),
    [](const ::testing::TestParamInfo<ProvokedError>& info) { return std::string(info.param.name); });

TEST(GLCheck, StackOverflowWritesTheThreeDepthLines)
{
    TavrinTest::drainGLErrors();
    glMatrixMode(GL_PROJECTION);
    GLint maxDepth = 0;
    glGetIntegerv(GL_MAX_PROJECTION_STACK_DEPTH, &maxDepth);
    for (GLint i = 0; i < maxDepth; ++i) // one push more than fits
        glPushMatrix();
    const Outcome outcome = checkAt("Shader.cpp", 164);
    for (GLint i = 1; i < maxDepth; ++i)
        glPopMatrix();
    glMatrixMode(GL_MODELVIEW);

    GLint textureDepth = 0;
    glGetIntegerv(GL_TEXTURE_STACK_DEPTH, &textureDepth);
    EXPECT_EQ(outcome.out, "WARNING: Shader.cpp (line 164) Projection matrix stack depth: " + std::to_string(maxDepth) +
                               "WARNING: Shader.cpp (line 164) Modelview matrix stack depth: 1"
                               "WARNING: Shader.cpp (line 164) Texture matrix stack depth: " +
                               std::to_string(textureDepth));
    EXPECT_EQ(outcome.thrown, "GLCheck: Stack overflow");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST(GLCheck, ConsumesOneErrorPerCheckAndStaysQuietWhenSwitchedOff)
{
    TavrinTest::drainGLErrors();
    EXPECT_EQ(checkAt("a.cpp", 1).thrown, ""); // nothing pending: silent

    // Switched off: no glGetError, the error stays pending for a later check.
    glLineWidth(-1.0f);
    GLCheck::enableGLCheck = false;
    const Outcome off = checkAt("Off.cpp", 7);
    TAVRIN_GL_CHECK();
    GLCheck::enableGLCheck = true;
    EXPECT_EQ(off.out + off.thrown, "");
    EXPECT_EQ(checkAt("Later.cpp", 99).out, "WARNING: Later.cpp (line 99) GLCheck: Invalid value");

    // Two different errors queued (Mesa keeps only the first; a driver may keep both): the
    // first check reports only the first.
    glLineWidth(-1.0f);
    glEnable(0xFFFF);
    EXPECT_EQ(checkAt("Two.cpp", 2).thrown, "GLCheck: Invalid value");
    TavrinTest::drainGLErrors();
}

TEST(GLCheck, MacroReportsThisFileAndLine)
{
    TavrinTest::drainGLErrors();
    glEnd();
    StreamCapture out(std::cout);
    const int line = __LINE__ + 1;
    EXPECT_THROW(TAVRIN_GL_CHECK(), std::runtime_error);
    EXPECT_EQ(out.text(), "WARNING: GLCheckTest.cpp (line " + std::to_string(line) + ") GLCheck: Invalid operation");
}
