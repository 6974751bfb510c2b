// Texture units as a stack on GL_ACTIVE_TEXTURE, sampler uniforms read back, and image units.
#include "support/TestSupport.h"

#include <opengl/Program.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>

using Tavrin::OpenGL::Program;
using Tavrin::OpenGL::Texture2D;
using TavrinTest::StreamCapture;

namespace
{
const char* const vertexSource = "#version 430\nvoid main() { gl_Position = vec4(0.0); }\n";
const char* const fragmentSource = "#version 430\n"
                                   "uniform sampler2D first, second, third;\n"
                                   "uniform sampler2D many[2];\n"
                                   "layout(rgba32f) uniform image2D picture;\n"
                                   "out vec4 color;\n"
                                   "void main() {\n"
                                   "  color = texture(first, vec2(0.0)) + texture(second, vec2(0.0)) +\n"
                                   "          texture(third, vec2(0.0)) + texture(many[1], vec2(0.0)) +\n"
                                   "          imageLoad(picture, ivec2(0));\n"
                                   "}\n";

class TextureUnits : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TavrinTest::drainGLErrors();
        glActiveTexture(GL_TEXTURE0);
        program.reset(Program::loadFromSource(vertexSource, "", "", "", fragmentSource, ""));
        for (const char* name : {"first", "second", "third", "many[1]"})
            glProgramUniform1i(program->getHandle(), location(name), 9);
    }
    void TearDown() override
    {
        glActiveTexture(GL_TEXTURE0);
        program.reset();
        TavrinTest::drainGLErrors();
    }

    int location(const char* name) const { return glGetUniformLocation(program->getHandle(), name); }
    GLint uniformValue(const char* name) const
    {
        GLint value = -1;
        glGetUniformiv(program->getHandle(), location(name), &value);
        return value;
    }
    static GLuint boundOnUnit(int unit)
    {
        GLint active = 0, bound = 0;
        glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
        glActiveTexture(GLenum(GL_TEXTURE0 + unit));
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
        glActiveTexture(GLenum(active));
        return GLuint(bound);
    }
    // Runs `action` and returns the exception text ("" if none), capturing std::cout into `out`.
    template <typename Action> static std::string thrownBy(Action action, std::string* out = nullptr)
    {
        StreamCapture capture(std::cout);
        std::string text;
        try
        {
            action();
        }
        catch (const std::runtime_error& error)
        {
            text = error.what();
        }
        if (out)
            *out = capture.text();
        return text;
    }

    std::unique_ptr<Program> program;
    Texture2D textures[4];
};
} // namespace

TEST_F(TextureUnits, PushesPlaceTexturesOnConsecutiveUnitsAndPopsStepBack)
{
    textures[0].pushToProgram(program.get(), "first");
    textures[1].pushToProgram(program.get(), "second");
    textures[2].pushToProgram(program.get(), "third");
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 3);
    EXPECT_EQ(uniformValue("first"), 0);
    EXPECT_EQ(uniformValue("second"), 1);
    EXPECT_EQ(uniformValue("third"), 2);
    for (int unit = 0; unit < 3; ++unit)
        EXPECT_EQ(boundOnUnit(unit), textures[unit].getHandle());

    // An array element is bound as a sampler; an unknown or empty name binds and sets nothing.
    textures[3].pushToProgram(program.get(), "many[1]");
    EXPECT_EQ(uniformValue("many[1]"), 3);
    textures[0].pushToProgram(program.get(), "absent");
    textures[1].pushToProgram(program.get(), "");
    EXPECT_EQ(boundOnUnit(5), textures[1].getHandle());
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 6);

    for (int i = 0; i < 6; ++i)
        textures[0].popFromProgram();
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 0);
    EXPECT_EQ(boundOnUnit(2), textures[2].getHandle()); // pops unbind nothing
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));

    // No lower bound: popping unit 0 is GL's error, reported by the check.
    std::string out;
    EXPECT_EQ(thrownBy([&] { textures[0].popFromProgram(); }, &out), "GLCheck: Invalid enum");
    EXPECT_TRUE(std::regex_match(out, std::regex("WARNING: Texture2D\\.cpp \\(line [0-9]+\\) GLCheck: Invalid enum")))
        << out;
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 0);
}

TEST_F(TextureUnits, TooManyTexturesAtTheRealUnitLimit)
{
    GLint limit = 0, combined = 0;
    glGetIntegerv(GL_MAX_TEXTURE_IMAGE_UNITS, &limit);
    glGetIntegerv(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS, &combined);
    ASSERT_GT(combined, limit) << "the push from the last unit needs a further combined unit";

    glActiveTexture(GLenum(GL_TEXTURE0 + limit - 1));
    textures[0].pushToProgram(program.get(), "first"); // from the last unit: allowed
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), limit);
    EXPECT_EQ(uniformValue("first"), limit - 1);

    EXPECT_EQ(thrownBy([] { Texture2D::pushActiveTexture(); }), "Too many textures");
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), limit);
    // Through a program, the binding and the uniform stay set when the push throws.
    EXPECT_EQ(thrownBy([&] { textures[1].pushToProgram(program.get(), "second"); }), "Too many textures");
    EXPECT_EQ(uniformValue("second"), limit);
    EXPECT_EQ(boundOnUnit(limit), textures[1].getHandle());
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), limit);
    glBindTexture(GL_TEXTURE_2D, 0);
    glActiveTexture(GLenum(GL_TEXTURE0 + limit - 1));
    glBindTexture(GL_TEXTURE_2D, 0);
}

TEST_F(TextureUnits, ImageUniformsAreRefusedAndImageUnitsBindAndRelease)
{
    EXPECT_EQ(thrownBy([&] { textures[0].pushToProgram(program.get(), "picture"); }), "Unsupported bindImage");
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 0);
    EXPECT_EQ(boundOnUnit(0), 0u);
    EXPECT_EQ(uniformValue("picture"), 0);

    Texture2D& image = textures[0];
    image.reserveStorage(1, Eigen::Vector2i(4, 4), GL_RGBA32F);
    image.bindImage(2, 0, 0, GL_WRITE_ONLY);
    GLint name = 0, format = 0, access = 0, layered = -1;
    glGetIntegeri_v(GL_IMAGE_BINDING_NAME, 2, &name);
    glGetIntegeri_v(GL_IMAGE_BINDING_FORMAT, 2, &format);
    glGetIntegeri_v(GL_IMAGE_BINDING_ACCESS, 2, &access);
    glGetIntegeri_v(GL_IMAGE_BINDING_LAYERED, 2, &layered);
    EXPECT_EQ(GLuint(name), image.getHandle());
    EXPECT_EQ(format, GL_RGBA32F);
    EXPECT_EQ(access, GL_WRITE_ONLY);
    EXPECT_EQ(layered, GL_FALSE);
    Texture2D::unbindImage(2);
    glGetIntegeri_v(GL_IMAGE_BINDING_NAME, 2, &name);
    EXPECT_EQ(name, 0);

    GLint imageUnits = 0;
    glGetIntegerv(GL_MAX_IMAGE_UNITS, &imageUnits);
    EXPECT_EQ(thrownBy([&] { image.bindImage(unsigned(imageUnits), 0, 0, GL_READ_ONLY); }), "GLCheck: Invalid value");
}
