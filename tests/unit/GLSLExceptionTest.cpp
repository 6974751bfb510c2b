#include <opengl/GLCheck.h>
#include <opengl/GLSLException.h>

#include <gtest/gtest.h>

using Tavrin::OpenGL::GLCheck;
using Tavrin::OpenGL::GLSLException;

TEST(GLSLException, CarriesItsOwnCopyOfTheLog)
{
    GLSLException original("0(3) : error C0000: syntax error");
    GLSLException copy(original);
    EXPECT_STREQ(copy.what(), "0(3) : error C0000: syntax error");
    EXPECT_NE(copy.what(), original.what()); // independent storage

    GLSLException assigned("other");
    assigned = original;
    EXPECT_EQ(assigned.getInfoLogText(), original.getInfoLogText());
    assigned = assigned;
    EXPECT_EQ(assigned.getInfoLogText(), "0(3) : error C0000: syntax error");

    EXPECT_STREQ(GLSLException("").what(), "");
    const std::exception& base = original;
    EXPECT_STREQ(base.what(), "0(3) : error C0000: syntax error");
}

TEST(GLCheck, MessageSelectionCoversEveryCode)
{
    EXPECT_STREQ(GLCheck::errorMessage(0x0500), "GLCheck: Invalid enum");
    EXPECT_STREQ(GLCheck::errorMessage(0x0501), "GLCheck: Invalid value");
    EXPECT_STREQ(GLCheck::errorMessage(0x0502), "GLCheck: Invalid operation");
    EXPECT_STREQ(GLCheck::errorMessage(0x0503), "GLCheck: Stack overflow");
    EXPECT_STREQ(GLCheck::errorMessage(0x0504), "GLCheck: Stack underflow");
    EXPECT_STREQ(GLCheck::errorMessage(0x0505), "GLCheck: Out of memory");
    EXPECT_STREQ(GLCheck::errorMessage(0x0506), "GLCheck: Invalid framebuffer operation");
    EXPECT_STREQ(GLCheck::errorMessage(0x0507), "GLCheck: Unknown error"); // GL_CONTEXT_LOST
    EXPECT_STREQ(GLCheck::errorMessage(0x04FF), "GLCheck: Unknown error");
}

TEST(GLCheck, MacroPassesTheBareFileName)
{
    static_assert(Tavrin::OpenGL::Detail::bareFileName("a/b/Texture2D.cpp")[0] == 'T', "");
    EXPECT_STREQ(Tavrin::OpenGL::Detail::bareFileName("C:\\src\\opengl\\Program.cpp"), "Program.cpp");
    EXPECT_STREQ(Tavrin::OpenGL::Detail::bareFileName("Shader.cpp"), "Shader.cpp");
}
