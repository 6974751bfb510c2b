// The GL error check against errors that real GL raises.
#include "support/TestSupport.h"

#include <opengl/GLCheck.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

using Tavrin::OpenGL::GLCheck;

namespace
{
// What a host sees of one check at a known position.
TavrinTest::Outcome checkAt(const char* file, int line)
{
    return TavrinTest::outcomeOf([&] { GLCheck::check(file, line); });
}
} // namespace

TEST(GLCheck, WarnsOnStdoutAndThrowsTheErrorGLRaised)
{
    const std::pair<void (*)(), const char*> provoked[] = {{[] { glEnable(0xFFFF); }, "Invalid enum"},
                                                           {[] { glLineWidth(-1.0f); }, "Invalid value"},
                                                           {[] { glEnd(); }, "Invalid operation"},
                                                           {[] { glPopAttrib(); }, "Stack underflow"},
                                                           {[] {
                                                                GLuint framebuffer = 0;
                                                                glGenFramebuffers(1, &framebuffer);
                                                                glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
                                                                glClear(GL_COLOR_BUFFER_BIT);
                                                                glBindFramebuffer(GL_FRAMEBUFFER, 0);
                                                                glDeleteFramebuffers(1, &framebuffer);
                                                            },
                                                            "Invalid framebuffer operation"}};
    TavrinTest::drainGLErrors();
    EXPECT_EQ(checkAt("a.cpp", 1).out + checkAt("a.cpp", 1).thrown, ""); // nothing pending: silent
    for (const auto& error : provoked)
    {
        error.first();
        const TavrinTest::Outcome outcome = checkAt("Texture2D.cpp", 41);
        EXPECT_EQ(outcome.out + "|" + outcome.err,
                  "WARNING: Texture2D.cpp (line 41) GLCheck: " + std::string(error.second) + "|");
        EXPECT_EQ(outcome.thrown, "GLCheck: " + std::string(error.second));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
}

TEST(GLCheck, StackOverflowWritesTheThreeDepthLines)
{
    TavrinTest::drainGLErrors();
    GLint depth = 0;
    glGetIntegerv(GL_MAX_PROJECTION_STACK_DEPTH, &depth);
    glMatrixMode(GL_PROJECTION);
    for (GLint i = 0; i < depth; ++i) // one push more than fits
        glPushMatrix();
    const TavrinTest::Outcome outcome = checkAt("Shader.cpp", 164);
    for (GLint i = 1; i < depth; ++i)
        glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    EXPECT_EQ(outcome.out, "WARNING: Shader.cpp (line 164) Projection matrix stack depth: " + std::to_string(depth) +
                               "WARNING: Shader.cpp (line 164) Modelview matrix stack depth: 1"
                               "WARNING: Shader.cpp (line 164) Texture matrix stack depth: 1");
    EXPECT_EQ(outcome.thrown, "GLCheck: Stack overflow");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST(GLCheck, SwitchedOffLeavesTheErrorAndTheMacroReportsItsPlace)
{
    TavrinTest::drainGLErrors();
    glLineWidth(-1.0f);
    GLCheck::enableGLCheck = false;
    const TavrinTest::Outcome off = TavrinTest::outcomeOf([] {
        GLCheck::check("Off.cpp", 7);
        TAVRIN_GL_CHECK();
    });
    GLCheck::enableGLCheck = true;
    EXPECT_EQ(off.out + off.thrown, "");
    // Two errors queued (Mesa keeps only the first; a driver may keep both): one check reports
    // the first only.
    glEnable(0xFFFF);
    const int line = __LINE__ + 1;
    const TavrinTest::Outcome on = TavrinTest::outcomeOf([] { TAVRIN_GL_CHECK(); });
    EXPECT_EQ(on.out, "WARNING: GLCheckTest.cpp (line " + std::to_string(line) + ") GLCheck: Invalid value");
    EXPECT_EQ(on.thrown, "GLCheck: Invalid value");
    TavrinTest::drainGLErrors();
}
