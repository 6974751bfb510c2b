// Texture units as a stack on GL_ACTIVE_TEXTURE with sampler uniforms read back, and image units.
#include "support/TestSupport.h"

#include <opengl/Program.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <stdexcept>

using Tavrin::OpenGL::Program;
using Tavrin::OpenGL::Texture2D;
using TavrinTest::thrownBy;

namespace
{
class TextureUnits : public ::testing::Test
{
protected:
    void SetUp() override
    {
        glActiveTexture(GL_TEXTURE0);
        program.reset(Program::loadFromSource(
            "#version 430\nvoid main() { gl_Position = vec4(0.0); }\n", "", "", "",
            "#version 430\nuniform sampler2D first, second, third, many[2];\n"
            "layout(rgba32f) uniform image2D picture;\nout vec4 color;\n"
            "void main() { color = texture(first, vec2(0.0)) + texture(second, vec2(0.0)) +\n"
            "  texture(third, vec2(0.0)) + texture(many[1], vec2(0.0)) + imageLoad(picture, ivec2(0)); }\n",
            ""));
        for (const char* name : {"first", "second", "third", "many[1]"})
            glProgramUniform1i(program->getHandle(), glGetUniformLocation(program->getHandle(), name), 9);
    }
    void TearDown() override
    {
        glActiveTexture(GL_TEXTURE0);
        TavrinTest::drainGLErrors();
    }
    GLint uniform(const char* name) const
    {
        GLint value = -1;
        glGetUniformiv(program->getHandle(), glGetUniformLocation(program->getHandle(), name), &value);
        return value;
    }
    static GLuint boundOn(int unit)
    {
        GLint active = 0, bound = 0;
        glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
        glActiveTexture(GLenum(GL_TEXTURE0 + unit));
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
        glActiveTexture(GLenum(active));
        return GLuint(bound);
    }
    Texture2D textures[3];
    std::unique_ptr<Program> program;
};
} // namespace

TEST_F(TextureUnits, PushesPlaceTexturesOnConsecutiveUnitsAndPopsStepBack)
{
    const char* names[] = {"first", "second", "third"};
    for (int i = 0; i < 3; ++i)
        textures[i].pushToProgram(program.get(), names[i]);
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 3);
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(uniform(names[i]), i);
        EXPECT_EQ(boundOn(i), textures[i].getHandle());
    }
    // An array element is bound as a sampler; an unknown or empty name binds and sets nothing.
    textures[0].pushToProgram(program.get(), "many[1]");
    textures[1].pushToProgram(program.get(), "absent");
    textures[2].pushToProgram(program.get(), "");
    EXPECT_EQ(uniform("many[1]"), 3);
    EXPECT_EQ(boundOn(5), textures[2].getHandle());
    for (int i = 0; i < 6; ++i)
        textures[0].popFromProgram();
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 0);
    EXPECT_EQ(boundOn(2), textures[2].getHandle());                                      // pops unbind nothing
    EXPECT_EQ(thrownBy([&] { textures[0].popFromProgram(); }), "GLCheck: Invalid enum"); // no lower bound
}

TEST_F(TextureUnits, TooManyTexturesAtTheRealUnitLimit)
{
    GLint limit = 0, combined = 0;
    glGetIntegerv(GL_MAX_TEXTURE_IMAGE_UNITS, &limit);
    glGetIntegerv(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS, &combined);
    ASSERT_GT(combined, limit) << "the push from the last unit selects one unit more";
    glActiveTexture(GLenum(GL_TEXTURE0 + limit - 1));
    textures[0].pushToProgram(program.get(), "first"); // from the last unit: allowed
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), limit);
    EXPECT_EQ(thrownBy([] { Texture2D::pushActiveTexture(); }), "Too many textures");
    // Through a program, the binding and the uniform stay set when the push throws.
    EXPECT_EQ(thrownBy([&] { textures[1].pushToProgram(program.get(), "second"); }), "Too many textures");
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), limit);
    EXPECT_EQ(uniform("second"), limit);
    EXPECT_EQ(boundOn(limit), textures[1].getHandle());
}

TEST_F(TextureUnits, ImageUniformsAreRefusedAndImageUnitsBindAndRelease)
{
    EXPECT_EQ(thrownBy([&] { textures[0].pushToProgram(program.get(), "picture"); }), "Unsupported bindImage");
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 0);
    EXPECT_EQ(boundOn(0), 0u);

    textures[0].reserveStorage(1, Eigen::Vector2i(4, 4), GL_RGBA32F);
    textures[0].bindImage(2, 0, 0, GL_WRITE_ONLY);
    GLint name = 0, format = 0, access = 0;
    glGetIntegeri_v(GL_IMAGE_BINDING_NAME, 2, &name);
    glGetIntegeri_v(GL_IMAGE_BINDING_FORMAT, 2, &format);
    glGetIntegeri_v(GL_IMAGE_BINDING_ACCESS, 2, &access);
    EXPECT_EQ(GLuint(name), textures[0].getHandle());
    EXPECT_EQ(format, GL_RGBA32F);
    EXPECT_EQ(access, GL_WRITE_ONLY);
    Texture2D::unbindImage(2);
    glGetIntegeri_v(GL_IMAGE_BINDING_NAME, 2, &name);
    EXPECT_EQ(name, 0);
}
