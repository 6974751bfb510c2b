// The GL error check against errors that real GL raises (every code's text: GLLogicTest).
#include "support/TestSupport.h"

#include <opengl/GLCheck.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

using Tavrin::OpenGL::GLCheck;

namespace
{
std::string checkAt(const char* file, int line) // what a host sees: stdout|stderr|thrown
{
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] { GLCheck::check(file, line); });
    return outcome.out + "|" + outcome.err + "|" + outcome.thrown;
}
} // namespace

TEST(GLCheck, WarnsOnStdoutAndThrowsTheErrorGLRaised)
{
    TavrinTest::drainGLErrors();
    EXPECT_EQ(checkAt("a.cpp", 1), "||"); // nothing pending: silent
    glPopAttrib();
    EXPECT_EQ(checkAt("Texture2D.cpp", 41),
              "WARNING: Texture2D.cpp (line 41) GLCheck: Stack underflow||GLCheck: Stack underflow");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    // A stack overflow adds the three depths.
    GLint depth = 0;
    glGetIntegerv(GL_MAX_PROJECTION_STACK_DEPTH, &depth);
    glMatrixMode(GL_PROJECTION);
    for (GLint i = 0; i < depth; ++i) // one push more than fits
        glPushMatrix();
    const std::string seen = checkAt("Shader.cpp", 164);
    for (GLint i = 1; i < depth; ++i)
        glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    EXPECT_EQ(seen, "WARNING: Shader.cpp (line 164) Projection matrix stack depth: " + std::to_string(depth) +
                        "WARNING: Shader.cpp (line 164) Modelview matrix stack depth: 1"
                        "WARNING: Shader.cpp (line 164) Texture matrix stack depth: 1||GLCheck: Stack overflow");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    // Switched off, a check leaves the error; the macro reports its own place.
    glLineWidth(-1.0f);
    GLCheck::enableGLCheck = false;
    const TavrinTest::Outcome off = TavrinTest::outcomeOf([] {
        GLCheck::check("Off.cpp", 7);
        TAVRIN_GL_CHECK();
    });
    GLCheck::enableGLCheck = true;
    EXPECT_EQ(off.out + off.thrown, "");
    glEnable(0xFFFF); // a second error: one check reports the first only
    const int line = __LINE__ + 1;
    const TavrinTest::Outcome on = TavrinTest::outcomeOf([] { TAVRIN_GL_CHECK(); });
    EXPECT_EQ(on.out + "|" + on.thrown, "WARNING: GLCheckTest.cpp (line " + std::to_string(line) +
                                            ") GLCheck: Invalid value|GLCheck: Invalid value");
    TavrinTest::drainGLErrors();
}
