// The render-to-texture device against real shaders: a reduction pyramid over every level
// compared with a CPU reference, the step uniforms and viewports the shader sees, draw buffers,
// depth outputs, the configuration defaults, and the allocation and attachment work it does
// (or, steady, does not do) across updates.
#include "DeviceTestSupport.h"

#include <opengl/Framebuffer.h>
#include <opengl/FramebufferTexture2DDevice.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <tuple>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
const char* const vertexShader = R"(#version 430 compatibility
void main() { gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex; }
)";

const char* const stepDeclaration = R"(#version 430 compatibility
struct FramebufferDeviceStep
{
    int mipLevelCount;
    int stepCount;
    int layerCount;
    int index;
    ivec2 resolution;
    int mipLevelIndex;
};
uniform FramebufferDeviceStep framebufferDeviceStep;
)";

// Level 0 copies the input; every further level is the per-channel maximum of the 2x2 texels
// of the level below (clamped at its edge). The other outputs show the step uniforms.
const char* const pyramidShader = R"(
uniform sampler2D source;
uniform sampler2D pyramidTexture2DFramebufferTexture2D;
layout(location = 0) out vec4 pyramid;
layout(location = 1) out vec4 steps;
layout(location = 2) out vec4 level;
vec4 below(ivec2 p, int mipLevel)
{
    ivec2 last = textureSize(pyramidTexture2DFramebufferTexture2D, mipLevel) - 1;
    return texelFetch(pyramidTexture2DFramebufferTexture2D, min(p, last), mipLevel);
}
void main()
{
    ivec2 p = ivec2(gl_FragCoord.xy);
    int mipLevel = framebufferDeviceStep.mipLevelIndex;
    if (mipLevel == 0)
        pyramid = texelFetch(source, p, 0);
    else
        pyramid = max(max(below(2 * p, mipLevel - 1), below(2 * p + ivec2(1, 0), mipLevel - 1)),
                      max(below(2 * p + ivec2(0, 1), mipLevel - 1), below(2 * p + ivec2(1, 1), mipLevel - 1)));
    steps = vec4(framebufferDeviceStep.mipLevelCount, framebufferDeviceStep.stepCount,
                 framebufferDeviceStep.layerCount, framebufferDeviceStep.index);
    level = vec4(framebufferDeviceStep.resolution, mipLevel, 1.0);
}
)";

std::shared_ptr<Program> fragmentProgram(const std::string& fragment)
{
    return std::shared_ptr<Program>(
        Program::loadFromSource(vertexShader, "", "", "", std::string(stepDeclaration) + fragment, ""));
}

Eigen::Vector2i halved(const Eigen::Vector2i& size)
{
    return Eigen::Vector2i(std::max(size.x() >> 1, 1), std::max(size.y() >> 1, 1));
}

// The pyramid the shader should build, level by level.
std::vector<Level> referencePyramid(const Level& input, int levels)
{
    std::vector<Level> pyramid{input};
    for (int l = 1; l < levels; ++l)
    {
        const Level& lower = pyramid.back();
        Level next(halved(lower.size));
        for (int y = 0; y < next.size.y(); ++y)
            for (int x = 0; x < next.size.x(); ++x)
                for (int c = 0; c < 4; ++c)
                {
                    float m = lower.at(std::min(2 * x, lower.size.x() - 1), std::min(2 * y, lower.size.y() - 1))[c];
                    for (int dy = 0; dy < 2; ++dy)
                        for (int dx = 0; dx < 2; ++dx)
                            m = std::max(m, lower.at(std::min(2 * x + dx, lower.size.x() - 1),
                                                     std::min(2 * y + dy, lower.size.y() - 1))[c]);
                    next.at(x, y)[c] = m;
                }
        pyramid.push_back(next);
    }
    return pyramid;
}

// A host's device: configuration, names and hooks are set by the test; every pass records its
// viewport.
class TestDevice : public FramebufferTexture2DDevice
{
public:
    TestDevice(std::shared_ptr<Program> shader, int inputs, int outputs)
    {
        program = std::move(shader);
        inputTextures.resize(std::size_t(inputs));
        outputTextures.resize(std::size_t(outputs));
    }

    const Eigen::Vector2i getResolution() const override
    {
        return resolution ? *resolution : FramebufferTexture2DDevice::getResolution();
    }
    int getMipLevelCount() const override { return levels; }
    unsigned int getOutputFormat(int index) const override
    {
        const auto format = formats.find(index);
        return format != formats.end() ? format->second : FramebufferTexture2DDevice::getOutputFormat(index);
    }
    unsigned int defaultOutputFormat(int index) const { return FramebufferTexture2DDevice::getOutputFormat(index); }
    std::string getInputSamplerName(int i) const override { return i < int(inputNames.size()) ? inputNames[i] : ""; }
    std::string getOutputTextureName(int i) const override { return i < int(outputNames.size()) ? outputNames[i] : ""; }
    void beforeRendering() override
    {
        if (before)
            before();
    }
    void drawGeometry() override
    {
        Eigen::Vector4i viewport;
        glGetIntegerv(GL_VIEWPORT, viewport.data());
        viewports.push_back(viewport);
        FramebufferTexture2DDevice::drawGeometry();
    }
    void afterRendering() override
    {
        if (after)
            after();
    }

    using FramebufferTexture2DDevice::framebuffers;
    using FramebufferTexture2DDevice::getOutputTexture;
    using FramebufferTexture2DDevice::outputTextures;
    using FramebufferTexture2DDevice::program;
    using FramebufferTexture2DDevice::setInputTexture;
    using FramebufferTexture2DDevice::setOutputTexture;

    int levels = 1;
    std::optional<Eigen::Vector2i> resolution;
    std::map<int, unsigned int> formats;
    std::vector<std::string> inputNames, outputNames;
    std::function<void()> before, after;
    std::vector<Eigen::Vector4i> viewports;
};

class PlainDevice : public FramebufferTexture2DDevice
{
public:
    using FramebufferTexture2DDevice::framebuffers;
    using FramebufferTexture2DDevice::getInputSamplerName;
    using FramebufferTexture2DDevice::getInputTextureCount;
    using FramebufferTexture2DDevice::getMipLevelCount;
    using FramebufferTexture2DDevice::getOutputTextureCount;
    using FramebufferTexture2DDevice::getOutputTextureName;
};

class FramebufferDevice : public ::testing::Test
{
protected:
    void TearDown() override
    {
        glActiveTexture(GL_TEXTURE0);
        glDisable(GL_TEXTURE_2D);
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        TavrinTest::drainGLErrors();
    }

    // The three-output pyramid device over `input`.
    static std::unique_ptr<TestDevice> pyramidDevice(const std::shared_ptr<const Texture2D>& input, int levels)
    {
        auto device = std::make_unique<TestDevice>(fragmentProgram(pyramidShader), 1, 3);
        device->inputNames = {"source"};
        device->outputNames = {"pyramid", "steps", "level"};
        device->levels = levels;
        device->setInputTexture(0, input);
        for (int i = 0; i < 3; ++i)
            device->setOutputTexture(i, std::make_shared<Texture2D>());
        return device;
    }

    static void expectPyramid(const Texture2D& output, const std::vector<Level>& reference)
    {
        for (int l = 0; l < int(reference.size()); ++l)
        {
            const Level level = download(output, l);
            ASSERT_EQ(level.size, reference[std::size_t(l)].size) << "level " << l;
            for (int y = 0; y < level.size.y(); ++y)
                for (int x = 0; x < level.size.x(); ++x)
                    ASSERT_EQ(level.at(x, y), reference[std::size_t(l)].at(x, y))
                        << "level " << l << ", texel " << x << ", " << y;
        }
    }

    static GLint drawBuffer(const Framebuffer& framebuffer, int i)
    {
        framebuffer.bind();
        const GLint buffer = integer(GLenum(GL_DRAW_BUFFER0 + i));
        Framebuffer::unbind();
        return buffer;
    }

    static GLint attached(const Framebuffer& framebuffer, GLenum attachment)
    {
        return attachmentParameter(framebuffer.getHandle(), attachment, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME);
    }
    // -1 for an empty attachment (GL refuses the level query there).
    static GLint attachedLevel(const Framebuffer& framebuffer, GLenum attachment)
    {
        if (attached(framebuffer, attachment) == 0)
            return -1;
        return attachmentParameter(framebuffer.getHandle(), attachment, GL_FRAMEBUFFER_ATTACHMENT_TEXTURE_LEVEL);
    }
};

class Pyramid : public FramebufferDevice, public ::testing::WithParamInterface<std::tuple<int, int, int>>
{
};
} // namespace

TEST_P(Pyramid, EveryLevelMatchesTheCpuReductionAndSeesItsStepUniforms)
{
    const Eigen::Vector2i size(std::get<0>(GetParam()), std::get<1>(GetParam()));
    const int levels = std::get<2>(GetParam());
    const Level input = patternLevel(size, unsigned(size.x() * 100 + size.y()));
    const auto device = pyramidDevice(textureWith(input), levels);

    // State the device must override for its passes.
    glMatrixMode(GL_PROJECTION);
    glOrtho(0.0, 100.0, 0.0, 100.0, -1.0, 1.0);
    glMatrixMode(GL_MODELVIEW);
    glTranslatef(0.5f, 0.5f, 0.0f);
    glEnable(GL_CULL_FACE); // the viewport quad is wound clockwise: culled as a back face
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_ZERO);
    glEnable(GL_DEPTH_TEST);
    glClearColor(1.0f, 1.0f, 1.0f, 1.0f);
    glActiveTexture(GL_TEXTURE1);

    GLint programBefore = 0, unitBefore = -1, levelCountBefore = -1, unitAfter = -1, framebufferAfter = -1;
    device->before = [&] {
        programBefore = integer(GL_CURRENT_PROGRAM);
        unitBefore = Texture2D::getActiveTextureIndex();
        levelCountBefore = uniformInt(*device->program, "framebufferDeviceStep.mipLevelCount");
    };
    device->after = [&] {
        unitAfter = Texture2D::getActiveTextureIndex();
        framebufferAfter = integer(GL_FRAMEBUFFER_BINDING);
    };
    ASSERT_TRUE(device->update());

    const std::vector<Level> reference = referencePyramid(input, levels);
    expectPyramid(*device->getOutputTexture(0), reference);
    std::vector<Eigen::Vector4i> expectedViewports;
    for (int l = 0; l < levels; ++l)
    {
        const Eigen::Vector2i levelSize = reference[std::size_t(l)].size;
        expectedViewports.emplace_back(0, 0, levelSize.x(), levelSize.y());
        for (const Texel& texel : download(*device->getOutputTexture(1), l).texels)
            ASSERT_EQ(texel, Texel({float(levels), 1.0f, 1.0f, 0.0f})) << "level " << l;
        for (const Texel& texel : download(*device->getOutputTexture(2), l).texels)
            ASSERT_EQ(texel, Texel({float(levelSize.x()), float(levelSize.y()), float(l), 1.0f})) << "level " << l;
    }
    EXPECT_EQ(device->viewports, expectedViewports);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(device->getOutputTexture(i)->getMipLevelCount(), levels);

    // Hooks: program in use, the input on unit 1, the outputs' units released again.
    EXPECT_EQ(GLuint(programBefore), device->program->getHandle());
    EXPECT_EQ(unitBefore, 2);
    EXPECT_EQ(levelCountBefore, levels);
    EXPECT_EQ(unitAfter, 2);
    EXPECT_EQ(GLuint(framebufferAfter), device->framebuffers.back()->getHandle());
    EXPECT_EQ(uniformInt(*device->program, "source"), 1);
    EXPECT_EQ(uniformInt(*device->program, "pyramidTexture2DFramebufferTexture2D"), levels > 1 ? 2 : 0);

    // What update() leaves behind.
    const Eigen::Vector2i last = reference.back().size;
    Eigen::Vector4i viewport;
    glGetIntegerv(GL_VIEWPORT, viewport.data());
    EXPECT_EQ(viewport, Eigen::Vector4i(0, 0, last.x(), last.y()));
    EXPECT_EQ(integer(GL_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 1);
    EXPECT_FALSE(glIsEnabled(GL_CULL_FACE));
    EXPECT_FALSE(glIsEnabled(GL_BLEND));
    EXPECT_FALSE(glIsEnabled(GL_DEPTH_TEST));
    EXPECT_TRUE(glIsEnabled(GL_TEXTURE_2D));
    Eigen::Matrix4f projection, modelView;
    glGetFloatv(GL_PROJECTION_MATRIX, projection.data());
    glGetFloatv(GL_MODELVIEW_MATRIX, modelView.data());
    EXPECT_EQ(projection, Eigen::Matrix4f::Identity());
    EXPECT_EQ(modelView, Eigen::Matrix4f::Identity());
    Eigen::Vector4f clearColour;
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clearColour.data());
    EXPECT_EQ(clearColour, Eigen::Vector4f::Zero());
    glBlendFunc(GL_ONE, GL_ZERO);
}

INSTANTIATE_TEST_SUITE_P(Levels, Pyramid,
                         ::testing::Values(std::make_tuple(37, 23, 4), std::make_tuple(5, 1, 3),
                                           std::make_tuple(16, 3, 5), std::make_tuple(4, 4, 1)));

TEST_F(FramebufferDevice, DrawBuffersStopAtTheFirstEmptySlot)
{
    auto device = std::make_unique<TestDevice>(fragmentProgram(R"(
layout(location = 0) out vec4 a;
layout(location = 1) out vec4 b;
layout(location = 2) out vec4 c;
layout(location = 3) out vec4 d;
void main() { a = vec4(1.0); b = vec4(2.0); c = vec4(3.0); d = vec4(4.0); }
)"),
                                               1, 4);
    device->resolution = Eigen::Vector2i(0, -2); // raised to (1, 1)
    device->setInputTexture(0, textureWith(Level(Eigen::Vector2i(3, 3))));
    std::shared_ptr<Texture2D> outputs[4];
    for (int i : {0, 1, 3})
        device->setOutputTexture(i, outputs[i] = std::make_shared<Texture2D>());
    ASSERT_TRUE(device->update());

    const Framebuffer& framebuffer = *device->framebuffers.at(0);
    EXPECT_EQ(drawBuffer(framebuffer, 0), GL_COLOR_ATTACHMENT0);
    EXPECT_EQ(drawBuffer(framebuffer, 1), GL_COLOR_ATTACHMENT1);
    EXPECT_EQ(drawBuffer(framebuffer, 2), GL_NONE);
    EXPECT_EQ(GLuint(attached(framebuffer, GL_COLOR_ATTACHMENT3)), outputs[3]->getHandle()) << "attached, not drawn";
    EXPECT_EQ(attached(framebuffer, GL_COLOR_ATTACHMENT2), 0);
    EXPECT_EQ(outputs[3]->getSize(), Eigen::Vector2i(1, 1));
    EXPECT_EQ(outputs[3]->getInternalFormat(), GL_RGBA32F);
    EXPECT_EQ(download(*outputs[0], 0).at(0, 0), Texel({1.0f, 1.0f, 1.0f, 1.0f}));
    EXPECT_EQ(download(*outputs[1], 0).at(0, 0), Texel({2.0f, 2.0f, 2.0f, 2.0f}));

    // Filling the gap makes all four drawn; emptying it again detaches it and stops at two.
    device->setOutputTexture(2, outputs[2] = std::make_shared<Texture2D>());
    ASSERT_TRUE(device->update());
    EXPECT_EQ(drawBuffer(framebuffer, 3), GL_COLOR_ATTACHMENT3);
    EXPECT_EQ(GLuint(attached(framebuffer, GL_COLOR_ATTACHMENT2)), outputs[2]->getHandle());
    EXPECT_EQ(download(*outputs[2], 0).at(0, 0), Texel({3.0f, 3.0f, 3.0f, 3.0f}));
    EXPECT_EQ(download(*outputs[3], 0).at(0, 0), Texel({4.0f, 4.0f, 4.0f, 4.0f}));
    device->setOutputTexture(2, nullptr);
    ASSERT_TRUE(device->update());
    EXPECT_EQ(attached(framebuffer, GL_COLOR_ATTACHMENT2), 0);
    EXPECT_EQ(drawBuffer(framebuffer, 1), GL_COLOR_ATTACHMENT1);
    EXPECT_EQ(drawBuffer(framebuffer, 2), GL_NONE);
}

TEST_F(FramebufferDevice, ADepthOutputIsAttachedAsDepthAndNotDrawn)
{
    auto device = std::make_unique<TestDevice>(fragmentProgram(R"(
uniform sampler2D source;
layout(location = 0) out vec4 colour;
void main() { colour = texelFetch(source, ivec2(gl_FragCoord.xy), 0) + 1.0; }
)"),
                                               1, 2);
    const Level input = patternLevel(Eigen::Vector2i(6, 5), 3);
    device->inputNames = {"source"};
    device->formats[1] = GL_DEPTH_COMPONENT32;
    device->setInputTexture(0, textureWith(input));
    const auto colour = std::make_shared<Texture2D>(), depth = std::make_shared<Texture2D>();
    device->setOutputTexture(0, colour);
    device->setOutputTexture(1, depth);
    ASSERT_TRUE(device->update());

    const Framebuffer& framebuffer = *device->framebuffers.at(0);
    EXPECT_EQ(depth->getInternalFormat(), GL_DEPTH_COMPONENT32);
    EXPECT_EQ(depth->getSize(), Eigen::Vector2i(6, 5));
    EXPECT_EQ(GLuint(attached(framebuffer, GL_DEPTH_ATTACHMENT)), depth->getHandle());
    EXPECT_EQ(attached(framebuffer, GL_COLOR_ATTACHMENT1), 0);
    // The first update counted the depth texture by the format it had before its storage.
    EXPECT_EQ(drawBuffer(framebuffer, 1), GL_COLOR_ATTACHMENT1);
    const Level drawn = download(*colour, 0);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(drawn.at(x, y)[2], input.at(x, y)[2] + 1.0f);

    ASSERT_TRUE(device->update());
    EXPECT_EQ(drawBuffer(framebuffer, 0), GL_COLOR_ATTACHMENT0);
    EXPECT_EQ(drawBuffer(framebuffer, 1), GL_NONE);
    EXPECT_EQ(GLuint(attached(framebuffer, GL_DEPTH_ATTACHMENT)), depth->getHandle());
    // An empty depth slot detaches colour attachment 1, never the depth attachment.
    device->setOutputTexture(1, nullptr);
    ASSERT_TRUE(device->update());
    EXPECT_EQ(GLuint(attached(framebuffer, GL_DEPTH_ATTACHMENT)), depth->getHandle());
}

TEST_F(FramebufferDevice, DefaultsComeFromInputZeroOrThrowNoInputTexture)
{
    PlainDevice plain;
    EXPECT_EQ(plain.getInputTextureCount(), 0);
    EXPECT_EQ(plain.getOutputTextureCount(), 0);
    EXPECT_TRUE(plain.framebuffers.empty());
    EXPECT_EQ(plain.getMipLevelCount(), 1);
    EXPECT_EQ(plain.getInputSamplerName(5), "");
    EXPECT_EQ(plain.getOutputTextureName(0), "");
    EXPECT_EQ(thrownBy([&] { plain.getResolution(); }), "No input texture.");

    TestDevice device(fragmentProgram("out vec4 colour;\nvoid main() { colour = vec4(0.0); }\n"), 2, 1);
    const auto input = std::make_shared<Texture2D>();
    input->reserveStorage(1, Eigen::Vector2i(640, 480), GL_RGBA16F);
    device.setInputTexture(0, input);
    EXPECT_EQ(device.getResolution(), Eigen::Vector2i(640, 480));
    EXPECT_EQ(device.defaultOutputFormat(0), unsigned(GL_RGBA16F));
    EXPECT_EQ(device.defaultOutputFormat(7), unsigned(GL_RGBA16F)) << "any index, even past the outputs";

    // No input in slot 0 (slot 1 does not count): update() throws after sizing its framebuffers.
    device.setInputTexture(0, nullptr);
    device.setInputTexture(1, input);
    device.levels = 2;
    const auto output = std::make_shared<Texture2D>();
    device.setOutputTexture(0, output);
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No input texture.");
    EXPECT_EQ(device.framebuffers.size(), 2u);
    EXPECT_EQ(output->getSize(), Eigen::Vector2i(0, 0));
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(thrownBy([&] { device.defaultOutputFormat(0); }), "No input texture.");
    // An explicit resolution alone is not enough: the default format needs input 0 too.
    device.resolution = Eigen::Vector2i(2, 2);
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No input texture.");
}

TEST_F(FramebufferDevice, WithoutAnOutputItReportsAndReturnsFalseWithoutTouchingGL)
{
    TestDevice device(fragmentProgram("out vec4 colour;\nvoid main() { colour = vec4(0.0); }\n"), 1, 0);
    device.setInputTexture(0, textureWith(Level(Eigen::Vector2i(2, 2))));
    for (int outputs : {0, 2})
    {
        device.outputTextures.resize(std::size_t(outputs));
        if (outputs == 2)
            device.setOutputTexture(1, std::make_shared<Texture2D>()); // slot 0 empty
        leaveErrorPending();
        bool result = true;
        {
            TavrinTest::StreamCapture err(std::cerr);
            result = device.update();
            EXPECT_EQ(err.text(), "ERROR: No output texture.");
        }
        EXPECT_FALSE(result);
        EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM)) << "no checked GL call ran";
        EXPECT_TRUE(device.framebuffers.empty());
        EXPECT_TRUE(device.viewports.empty());
    }

    // An output but no program: refused before any GL call.
    device.program.reset();
    device.setOutputTexture(0, std::make_shared<Texture2D>());
    leaveErrorPending();
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No program.");
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
    EXPECT_TRUE(device.framebuffers.empty());
}

TEST_F(FramebufferDevice, ReallocatesAndReattachesOnlyWhenOutputsNoLongerFit)
{
    const Eigen::Vector2i size(9, 6);
    Level input = patternLevel(size, 11);
    const auto inputTexture = textureWith(input);
    const auto device = pyramidDevice(inputTexture, 2);
    ASSERT_TRUE(device->update());

    struct Snapshot
    {
        std::vector<GLuint> names, versions;
        std::vector<GLint> attachments; // per framebuffer, per output
        bool operator==(const Snapshot& other) const
        {
            return names == other.names && versions == other.versions && attachments == other.attachments;
        }
    };
    auto snapshot = [&] {
        Snapshot s;
        for (int i = 0; i < 3; ++i)
        {
            s.names.push_back(device->getOutputTexture(i)->getHandle());
            s.versions.push_back(device->getOutputTexture(i)->getVersion());
        }
        for (const auto& framebuffer : device->framebuffers)
            for (int i = 0; i < 3; ++i)
            {
                s.attachments.push_back(attached(*framebuffer, GLenum(GL_COLOR_ATTACHMENT0 + i)));
                s.attachments.push_back(attachedLevel(*framebuffer, GLenum(GL_COLOR_ATTACHMENT0 + i)));
            }
        return s;
    };
    auto expectAttachedEverywhere = [&] {
        for (std::size_t k = 0; k < device->framebuffers.size(); ++k)
            for (int i = 0; i < 3; ++i)
            {
                const GLenum attachment = GLenum(GL_COLOR_ATTACHMENT0 + i);
                EXPECT_EQ(GLuint(attached(*device->framebuffers[k], attachment)),
                          device->getOutputTexture(i)->getHandle());
                EXPECT_EQ(attachedLevel(*device->framebuffers[k], attachment), GLint(k));
            }
    };
    const Snapshot first = snapshot();
    EXPECT_EQ(first.versions, (std::vector<GLuint>{1, 1, 1}));
    expectAttachedEverywhere();

    // Steady: new input content, same textures, names, versions and attachments.
    input = patternLevel(size, 12);
    inputTexture->uploadData(size, input.texels.data(), GL_RGBA, GL_FLOAT, 0, GL_TEXTURE_2D);
    ASSERT_TRUE(device->update());
    EXPECT_TRUE(snapshot() == first);
    expectPyramid(*device->getOutputTexture(0), referencePyramid(input, 2));

    // Nothing is attached again: an attachment removed behind the device's back stays removed.
    glNamedFramebufferTexture2DEXT(device->framebuffers[1]->getHandle(), GL_COLOR_ATTACHMENT2, GL_TEXTURE_2D, 0, 0);
    ASSERT_TRUE(device->update());
    EXPECT_EQ(attached(*device->framebuffers[1], GL_COLOR_ATTACHMENT2), 0);
    EXPECT_EQ(snapshot().versions, first.versions);

    // Three levels: two more framebuffers, every output re-allocated (too few levels) and
    // attached level by level.
    device->levels = 3;
    ASSERT_TRUE(device->update());
    EXPECT_EQ(device->framebuffers.size(), 3u);
    EXPECT_EQ(snapshot().versions, (std::vector<GLuint>{2, 2, 2}));
    expectAttachedEverywhere();
    expectPyramid(*device->getOutputTexture(0), referencePyramid(input, 3));

    // Back to two: the three-level storage still fits; the surplus framebuffer goes.
    device->levels = 2;
    ASSERT_TRUE(device->update());
    EXPECT_EQ(device->framebuffers.size(), 2u);
    EXPECT_EQ(snapshot().versions, (std::vector<GLuint>{2, 2, 2}));

    // And three again: no re-allocation, but the new framebuffer gets every output attached.
    device->levels = 3;
    ASSERT_TRUE(device->update());
    EXPECT_EQ(snapshot().versions, (std::vector<GLuint>{2, 2, 2}));
    expectAttachedEverywhere();
    input = patternLevel(size, 13);
    inputTexture->uploadData(size, input.texels.data(), GL_RGBA, GL_FLOAT, 0, GL_TEXTURE_2D);
    ASSERT_TRUE(device->update());
    expectPyramid(*device->getOutputTexture(0), referencePyramid(input, 3));

    // A different texture in a slot, or a new size, is attached on the next update.
    device->setOutputTexture(1, std::make_shared<Texture2D>());
    ASSERT_TRUE(device->update());
    EXPECT_EQ(device->getOutputTexture(1)->getVersion(), 1u);
    expectAttachedEverywhere();
    device->resolution = Eigen::Vector2i(4, 4);
    ASSERT_TRUE(device->update());
    EXPECT_EQ(snapshot().versions, (std::vector<GLuint>{3, 2, 3}));
    expectAttachedEverywhere();
}

TEST_F(FramebufferDevice, ACopyKeepsWorkingWhenTheOriginalIsGone)
{
    const Level input = patternLevel(Eigen::Vector2i(8, 8), 21);
    auto original = pyramidDevice(textureWith(input), 2);
    ASSERT_TRUE(original->update());
    std::vector<GLuint> framebufferNames;
    for (const auto& framebuffer : original->framebuffers)
        framebufferNames.push_back(framebuffer->getHandle());

    TestDevice copy(*original);
    const GLuint programName = copy.program->getHandle();
    original.reset();

    EXPECT_TRUE(glIsProgram(programName));
    ASSERT_TRUE(copy.update());
    for (std::size_t k = 0; k < framebufferNames.size(); ++k)
    {
        EXPECT_EQ(copy.framebuffers[k]->getHandle(), framebufferNames[k]);
        EXPECT_TRUE(glIsFramebuffer(framebufferNames[k]));
    }
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(copy.getOutputTexture(i)->getVersion(), 1u) << "the copied slot records still match";
    expectPyramid(*copy.getOutputTexture(0), referencePyramid(input, 2));

    TestDevice assigned(nullptr, 0, 0);
    assigned = copy;
    EXPECT_EQ(assigned.framebuffers[1].get(), copy.framebuffers[1].get());
    EXPECT_EQ(assigned.program, copy.program);
}
