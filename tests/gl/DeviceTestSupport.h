// Shared by the device tests: RGBA float levels in and out of textures, GL queries, a host's device.
#pragma once

#include "support/TestSupport.h"

#include <opengl/Framebuffer.h>
#include <opengl/Program.h>
#include <opengl/Texture2D.h>

#include <Eigen/Core>
#include <GL/glew.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <vector>

namespace DeviceTest
{
using Texel = std::array<float, 4>;
using TavrinTest::thrownBy;

/// Texels of one RGBA32F level, row by row from the bottom, as GL lays them out.
struct Level
{
    Eigen::Vector2i size{0, 0};
    std::vector<Texel> texels;

    Level() = default;
    explicit Level(const Eigen::Vector2i& size, Texel fill = {}) : size(size), texels(std::size_t(size.prod()), fill) {}
    Texel& at(int x, int y) { return texels[std::size_t(y * size.x() + x)]; }
    const Texel& at(int x, int y) const { return texels[std::size_t(y * size.x() + x)]; }
};

/// An irregular level; every value is exact in float.
inline Level patternLevel(const Eigen::Vector2i& size, unsigned int seed)
{
    Level level(size);
    unsigned int state = seed * 2654435761u + 1u;
    for (Texel& texel : level.texels)
        for (float& channel : texel)
            channel = float(((state = state * 1664525u + 1013904223u) >> 8) % 1000u) / 8.0f - 60.0f;
    return level;
}

inline std::shared_ptr<Tavrin::OpenGL::Texture2D> textureWith(const Level& level)
{
    auto texture = std::make_shared<Tavrin::OpenGL::Texture2D>();
    texture->reserveStorage(1, level.size, GL_RGBA32F);
    texture->uploadData(level.size, level.texels.data(), GL_RGBA, GL_FLOAT, 0, GL_TEXTURE_2D);
    return texture;
}

inline Eigen::Vector2i levelSize(const Tavrin::OpenGL::Texture2D& texture, int level)
{
    GLint width = 0, height = 0;
    glGetTextureLevelParameterivEXT(texture.getHandle(), GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, &width);
    glGetTextureLevelParameterivEXT(texture.getHandle(), GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, &height);
    return Eigen::Vector2i(width, height);
}

inline Level download(const Tavrin::OpenGL::Texture2D& texture, int level)
{
    Level result(levelSize(texture, level));
    texture.downloadData(level, GL_RGBA, GL_FLOAT, result.texels.data(), int(result.texels.size() * sizeof(Texel)));
    return result;
}

inline GLint integer(GLenum name, int index = -1)
{
    GLint value = -1;
    index < 0 ? glGetIntegerv(name, &value) : glGetIntegeri_v(name, GLuint(index), &value);
    return value;
}

inline GLint uniformInt(const Tavrin::OpenGL::Program& program, const char* name)
{
    GLint value = -1;
    glGetUniformiv(program.getHandle(), glGetUniformLocation(program.getHandle(), name), &value);
    return value;
}

inline GLint attachedName(const Tavrin::OpenGL::Framebuffer& framebuffer, GLenum attachment)
{
    GLint name = -1;
    glGetNamedFramebufferAttachmentParameterivEXT(framebuffer.getHandle(), attachment,
                                                  GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
    return name;
}

/// A host's device of either kind with the test's program, slot counts, sampler names and hooks.
template <class Device> class HostDevice : public Device
{
public:
    HostDevice(std::shared_ptr<Tavrin::OpenGL::Program> shader, int inputs, int outputs)
    {
        this->program = std::move(shader);
        this->inputTextures.resize(std::size_t(inputs));
        this->outputTextures.resize(std::size_t(outputs));
    }
    std::string getInputSamplerName(int i) const override { return i < int(inputNames.size()) ? inputNames[i] : ""; }
    std::string getOutputTextureName(int i) const override { return i < int(outputNames.size()) ? outputNames[i] : ""; }
    void beforeRendering() override { before(); }
    void afterRendering() override { after(); }
    using Device::outputTextures;
    using Device::program;

    std::vector<std::string> inputNames, outputNames;
    std::function<void()> before = [] {}, after = [] {};
};

class DeviceFixture : public ::testing::Test
{
protected:
    void TearDown() override
    {
        glActiveTexture(GL_TEXTURE0);
        glDisable(GL_TEXTURE_2D);
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
};
} // namespace DeviceTest
