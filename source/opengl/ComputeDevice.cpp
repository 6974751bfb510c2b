#include <opengl/ComputeDevice.h>

#include "DeviceUpdateStart.h"

#include <opengl/GLCheck.h>

#include <GL/glew.h>

#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
int atLeastOne(int value)
{
    return value < 1 ? 1 : value;
}
} // namespace

ComputeDevice::ComputeDevice() = default;
ComputeDevice::ComputeDevice(const ComputeDevice& other) = default;
ComputeDevice& ComputeDevice::operator=(const ComputeDevice& other) = default;
ComputeDevice::~ComputeDevice() = default;

bool ComputeDevice::update()
{
    if (!Detail::readyToUpdate(outputTextures, program))
        return false;

    program->use();
    beforeRendering();

    const Program* const activeProgram = program.get();
    for (std::size_t i = 0; i < inputTextures.size(); ++i)
        if (const Texture2D* const texture = inputTextures[i].texture.get())
            texture->pushToProgram(activeProgram, getInputSamplerName(int(i)));

    // The uniform names its unit before the image is bound there.
    for (std::size_t j = 0; j < outputTextures.size(); ++j)
    {
        program->uniform(getOutputTextureName(int(j)), int(j));
        if (const Texture2D* const texture = outputTextures[j].texture.get())
            texture->bindImage(unsigned(j), 0, 0, GL_READ_WRITE);
    }

    const Eigen::Vector3i groups = getGroupCount();
    glDispatchCompute(GLuint(atLeastOne(groups.x())), GLuint(atLeastOne(groups.y())), GLuint(atLeastOne(groups.z())));
    TAVRIN_GL_CHECK();

    for (std::size_t j = outputTextures.size(); j-- > 0;)
        Texture2D::unbindImage(unsigned(j));
    for (const auto& input : inputTextures)
        if (input.texture)
            input.texture->popFromProgram();

    afterRendering();
    Framebuffer::unbind();
    Program::useFixed();
    // Callers read the outputs right after update(); the finish is the only synchronisation.
    glFinish();
    return true;
}

const Eigen::Vector3i ComputeDevice::getGroupCount() const
{
    return Eigen::Vector3i(64, 64, 1);
}

void ComputeDevice::setInputTexture(int i, std::shared_ptr<const Texture2D> texture)
{
    inputTextures.at(std::size_t(i)).texture = std::move(texture);
}

const std::shared_ptr<const Texture2D> ComputeDevice::getInputTexture(int i) const
{
    return inputTextures.at(std::size_t(i)).texture;
}

int ComputeDevice::getInputTextureCount() const
{
    return int(inputTextures.size());
}

void ComputeDevice::setOutputTexture(int i, std::shared_ptr<Texture2D> texture)
{
    outputTextures.at(std::size_t(i)).texture = std::move(texture);
}

const std::shared_ptr<Texture2D> ComputeDevice::getOutputTexture(int i) const
{
    return outputTextures.at(std::size_t(i)).texture;
}

int ComputeDevice::getOutputTextureCount() const
{
    return int(outputTextures.size());
}

std::string ComputeDevice::getInputSamplerName(int) const
{
    return std::string();
}

std::string ComputeDevice::getOutputTextureName(int) const
{
    return std::string();
}

void ComputeDevice::beforeRendering() {}

void ComputeDevice::afterRendering() {}

void ComputeDevice::clearOutput(int index, const Eigen::Vector4f& colour) const
{
    const std::shared_ptr<Texture2D> texture = outputTextures.at(std::size_t(index)).texture;
    if (!texture || texture->getSize() == Eigen::Vector2i(0, 0))
        return;

    const GLenum attachment = GLenum(GL_COLOR_ATTACHMENT0 + index);
    framebuffer->attachTexture2D(texture.get(), attachment, 0);
    glFramebufferDrawBufferEXT(framebuffer->getHandle(), attachment);
    framebuffer->checkStatus();
    framebuffer->bind();
    // Draw buffer 0 is the attachment just selected.
    glClearBufferfv(GL_COLOR, 0, colour.data());
    framebuffer->detachTexture2D(attachment);
    Framebuffer::unbind();
}
} // namespace OpenGL
} // namespace Tavrin
