#include <opengl/FramebufferTexture2DDevice.h>

#include "DeviceUpdateStart.h"

#include <opengl/DebugOutput.h>
#include <opengl/GLCheck.h>
#include <opengl/OpenGLTools.h>

#include <GL/glew.h>

#include <algorithm>
#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
// The uniform names are fixed; made once so that an update builds no string for them.
const std::string mipLevelCountName = "framebufferDeviceStep.mipLevelCount";
const std::string stepCountName = "framebufferDeviceStep.stepCount";
const std::string layerCountName = "framebufferDeviceStep.layerCount";
const std::string indexName = "framebufferDeviceStep.index";
const std::string resolutionName = "framebufferDeviceStep.resolution";
const std::string mipLevelIndexName = "framebufferDeviceStep.mipLevelIndex";
const char* const outputSamplerSuffix = "Texture2DFramebufferTexture2D";

// Takes the device's sampler names for the update in progress and gives them back when it ends,
// thrown or not. A steady device reuses their storage; a nested update of the same device (run
// from a hook) finds the member empty and composes names of its own.
class BorrowedNames
{
public:
    explicit BorrowedNames(std::vector<std::string>& owner) : owner(owner), names(std::move(owner)) {}
    ~BorrowedNames() { owner = std::move(names); }
    BorrowedNames(const BorrowedNames&) = delete;
    BorrowedNames& operator=(const BorrowedNames&) = delete;

    std::vector<std::string>& owner;
    std::vector<std::string> names;
};

int atLeastOne(int value)
{
    return value < 1 ? 1 : value;
}

const Texture2D& firstInput(const std::vector<Texture2DBaseContext<std::shared_ptr<const Texture2D>>>& inputs)
{
    if (inputs.empty() || !inputs.front().texture)
        throw std::runtime_error("No input texture.");
    return *inputs.front().texture;
}
} // namespace

FramebufferTexture2DDevice::FramebufferTexture2DDevice() = default;
FramebufferTexture2DDevice::FramebufferTexture2DDevice(const FramebufferTexture2DDevice& other) = default;
FramebufferTexture2DDevice& FramebufferTexture2DDevice::operator=(const FramebufferTexture2DDevice& other) = default;
FramebufferTexture2DDevice::~FramebufferTexture2DDevice() = default;

bool FramebufferTexture2DDevice::update()
{
    if (!Detail::readyToUpdate(outputTextures, program))
        return false;

    // One value sizes the framebuffer list and counts the passes, so they cannot disagree.
    const int mipLevelCount = getMipLevelCount();
    const std::size_t framebufferCount = mipLevelCount < 0 ? 0 : std::size_t(mipLevelCount);
    if (framebuffers.size() != framebufferCount)
        framebuffers.resize(framebufferCount);
    // Framebuffers from this index on are new since the last update that attached every output
    // (one that grew the list may have thrown before getting there).
    const std::size_t firstBare = std::min(attachedFramebufferCount, framebufferCount);
    attachedFramebufferCount = firstBare;

    const Eigen::Vector2i requested = getResolution();
    const Eigen::Vector2i resolution(atLeastOne(requested.x()), atLeastOne(requested.y()));

    int drawBufferCount = 0;
    bool countingDrawBuffers = true;
    for (std::size_t i = 0; i < outputTextures.size(); ++i)
    {
        Texture2DBaseContext<std::shared_ptr<Texture2D>>& slot = outputTextures[i];
        Texture2D* const texture = slot.texture.get();
        const GLenum colourAttachment = GLenum(GL_COLOR_ATTACHMENT0 + i);
        if (!texture)
        {
            for (std::size_t k = 0; k < framebufferCount; ++k)
                framebuffers[k]->detachTexture2D(colourAttachment);
            countingDrawBuffers = false;
            continue;
        }

        // Read before any re-allocation: a fresh texture counts with its storage-less format.
        int format = 0;
        bool formatKnown = false;
        if (countingDrawBuffers)
        {
            format = texture->getInternalFormat();
            formatKnown = true;
            if (format != GL_DEPTH_COMPONENT32)
                ++drawBufferCount;
        }

        const unsigned int outputFormat = getOutputFormat(int(i));
        bool fits = texture->getSize() == resolution;
        if (fits)
        {
            if (!formatKnown)
                format = texture->getInternalFormat();
            fits = unsigned(format) == outputFormat && texture->getMipLevelCount() >= mipLevelCount;
        }
        if (!fits)
        {
            texture->reserveStorage(mipLevelCount, resolution, outputFormat);
            if (DebugOutput::isEnabled())
                DebugOutput::setLabel(*texture, getOutputTextureName(int(i)));
        }

        // A new name or storage goes onto every framebuffer; a steady slot only onto bare ones.
        const std::size_t firstToAttach = slot.isConsistent() ? firstBare : 0;
        if (firstToAttach < framebufferCount)
        {
            const bool depth = texture->getInternalFormat() == GL_DEPTH_COMPONENT32;
            for (std::size_t k = firstToAttach; k < framebufferCount; ++k)
            {
                if (depth)
                {
                    glNamedFramebufferTexture2DEXT(framebuffers[k]->getHandle(), GL_DEPTH_ATTACHMENT, GL_TEXTURE_2D,
                                                   texture->getHandle(), GLint(k));
                    TAVRIN_GL_CHECK();
                }
                else
                    framebuffers[k]->attachTexture2D(texture, colourAttachment, int(k));
            }
        }
        slot.makeConsistent();
    }
    attachedFramebufferCount = framebufferCount;

    const Program* const activeProgram = program.get();
    activeProgram->use();
    activeProgram->uniform(mipLevelCountName, mipLevelCount);
    activeProgram->uniform(stepCountName, 1);
    activeProgram->uniform(layerCountName, 1);
    activeProgram->uniform(indexName, 0);

    // Left as set: the caller gets them as the passes needed them.
    glDisable(GL_CULL_FACE);
    glDisable(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_TEXTURE_2D);

    for (std::size_t i = 0; i < inputTextures.size(); ++i)
        if (const Texture2D* const texture = inputTextures[i].texture.get())
            texture->pushToProgram(activeProgram, getInputSamplerName(int(i)));

    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glClearColor(0.0f, 0.0f, 0.0f, 0.0f);

    beforeRendering();

    BorrowedNames samplers(outputSamplerNames);
    std::vector<std::string>& names = samplers.names;
    if (mipLevelCount >= 2)
    {
        names.resize(outputTextures.size());
        for (std::size_t j = 0; j < outputTextures.size(); ++j)
        {
            // Copied into the kept string (not moved), so its storage from the last update is reused.
            const std::string stem = getOutputTextureName(int(j));
            names[j].assign(stem.data(), stem.size());
            names[j].append(outputSamplerSuffix);
        }
    }

    Eigen::Vector2i levelSize = resolution;
    for (int level = 0; level < mipLevelCount; ++level)
    {
        if (level >= 1)
        {
            for (std::size_t j = 0; j < outputTextures.size(); ++j)
                if (const Texture2D* const texture = outputTextures[j].texture.get())
                    texture->pushToProgram(activeProgram, names[j]);
        }
        // The vector overload acts on the program in use, which this one is.
        activeProgram->uniform(resolutionName, levelSize);
        activeProgram->uniform(mipLevelIndexName, level);
        glViewport(0, 0, levelSize.x(), levelSize.y());
        const Framebuffer* const framebuffer = framebuffers[std::size_t(level)].get();
        framebuffer->bind();
        OpenGLTools::sequentialDrawBuffers(framebuffer, drawBufferCount);
        drawGeometry();
        if (level >= 1)
        {
            for (const auto& output : outputTextures)
                if (output.texture)
                    output.texture->popFromProgram();
        }
        levelSize = Eigen::Vector2i(atLeastOne(levelSize.x() >> 1), atLeastOne(levelSize.y() >> 1));
    }

    afterRendering();

    for (const auto& input : inputTextures)
        if (input.texture)
            input.texture->popFromProgram();

    Framebuffer::unbind();
    Program::useFixed();
    return true;
}

const Eigen::Vector2i FramebufferTexture2DDevice::getResolution() const
{
    // Texture2D::getSize is not const, and the inputs are; ask GL the same two questions.
    const Texture2D& input = firstInput(inputTextures);
    GLint width = 0, height = 0;
    glGetTextureLevelParameterivEXT(input.getHandle(), GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    glGetTextureLevelParameterivEXT(input.getHandle(), GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    return Eigen::Vector2i(width, height);
}

int FramebufferTexture2DDevice::getMipLevelCount() const
{
    return 1;
}

unsigned int FramebufferTexture2DDevice::getOutputFormat(int) const
{
    return unsigned(firstInput(inputTextures).getInternalFormat());
}

std::string FramebufferTexture2DDevice::getInputSamplerName(int) const
{
    return std::string();
}

std::string FramebufferTexture2DDevice::getOutputTextureName(int) const
{
    return std::string();
}

void FramebufferTexture2DDevice::beforeRendering() {}

void FramebufferTexture2DDevice::drawGeometry()
{
    OpenGLTools::drawViewportQuad(Eigen::Vector2f(0.0f, 0.0f), Eigen::Vector2f(1.0f, 1.0f));
}

void FramebufferTexture2DDevice::afterRendering() {}

void FramebufferTexture2DDevice::setInputTexture(int i, std::shared_ptr<const Texture2D> texture)
{
    inputTextures.at(std::size_t(i)).texture = std::move(texture);
}

std::shared_ptr<const Texture2D> FramebufferTexture2DDevice::getInputTexture(int i) const
{
    return inputTextures.at(std::size_t(i)).texture;
}

int FramebufferTexture2DDevice::getInputTextureCount() const
{
    return int(inputTextures.size());
}

void FramebufferTexture2DDevice::setOutputTexture(int i, std::shared_ptr<Texture2D> texture)
{
    outputTextures.at(std::size_t(i)).texture = std::move(texture);
}

std::shared_ptr<Texture2D> FramebufferTexture2DDevice::getOutputTexture(int i) const
{
    return outputTextures.at(std::size_t(i)).texture;
}

int FramebufferTexture2DDevice::getOutputTextureCount() const
{
    return int(outputTextures.size());
}
} // namespace OpenGL
} // namespace Tavrin
