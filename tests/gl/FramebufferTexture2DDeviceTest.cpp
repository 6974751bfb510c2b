// The render-to-texture device against real shaders and a CPU reference. (Refusals: the bad-input table.)
#include "DeviceTestSupport.h"
#include "support/ProcessMemory.h"

#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/GLSLException.h>
#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <algorithm>
#include <future>
#include <map>
#include <optional>
#include <thread>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
// Level 0 copies the input, every further level is the level below at 2p plus one; then the step uniforms.
const char* const pyramidShader = R"(#version 430 compatibility
struct Step { int mipLevelCount; int stepCount; int layerCount; int index; ivec2 resolution; int mipLevelIndex; };
uniform Step framebufferDeviceStep;
uniform sampler2D source;
uniform sampler2D pyramidTexture2DFramebufferTexture2D;
layout(location = 0) out vec4 pyramid;
layout(location = 1) out vec4 steps;
layout(location = 2) out vec4 level;
void main()
{
    ivec2 p = ivec2(gl_FragCoord.xy);
    int below = framebufferDeviceStep.mipLevelIndex - 1;
    pyramid = below < 0 ? texelFetch(source, p, 0) : texelFetch(pyramidTexture2DFramebufferTexture2D, 2 * p, below) + 1.0;
    steps = vec4(framebufferDeviceStep.mipLevelCount, framebufferDeviceStep.stepCount,
                 framebufferDeviceStep.layerCount, framebufferDeviceStep.index);
    level = vec4(framebufferDeviceStep.resolution, framebufferDeviceStep.mipLevelIndex, 1.0);
})";

// Fresh outputs; the defaults where the test sets nothing. Passes record their viewport.
struct TestDevice final : HostDevice<FramebufferTexture2DDevice>
{
    TestDevice(const Level& input, std::optional<int> levels)
        : HostDevice(std::shared_ptr<Program>(Program::loadFromSource("", "", "", "", pyramidShader, "")), 1, 3),
          levels(levels)
    {
        inputNames = {"source"};
        outputNames = {"pyramid", "steps", "level"};
        setInputTexture(0, textureWith(input));
        for (int i = 0; i < 3; ++i)
            setOutputTexture(i, std::make_shared<Texture2D>());
    }
    const Eigen::Vector2i getResolution() const override
    {
        return resolution ? *resolution : FramebufferTexture2DDevice::getResolution();
    }
    int getMipLevelCount() const override { return levels ? *levels : FramebufferTexture2DDevice::getMipLevelCount(); }
    void drawGeometry() override
    {
        glGetIntegerv(GL_VIEWPORT, viewports.emplace_back().data());
        during();
        FramebufferTexture2DDevice::drawGeometry();
    }
    using FramebufferTexture2DDevice::framebuffers;
    using FramebufferTexture2DDevice::getOutputTexture;
    using FramebufferTexture2DDevice::setInputTexture;
    using FramebufferTexture2DDevice::setOutputTexture;

    std::optional<int> levels;
    std::optional<Eigen::Vector2i> resolution;
    std::function<void()> during = [] {};
    std::vector<Eigen::Vector4i> viewports;
};

void expectPyramid(const Texture2D& output, Level level, int levels)
{
    for (int l = 0; l < levels; ++l)
    {
        EXPECT_EQ(download(output, l).texels, level.texels) << "level " << l;
        Level next(level.size.cwiseQuotient(Eigen::Vector2i(2, 2)).cwiseMax(1));
        for (int i = 0; i < next.size.prod(); ++i)
            for (int c = 0; c < 4; ++c)
                next.texels[std::size_t(i)][c] = level.at(2 * (i % next.size.x()), 2 * (i / next.size.x()))[c] + 1.0f;
        level = next;
    }
}

using FramebufferDevice = DeviceFixture;
} // namespace

TEST_F(FramebufferDevice, RendersEveryLevelAndAllocatesAndAttachesOnlyWhatItsOutputsAndFramebuffersLack)
{
    auto device = std::make_unique<TestDevice>(Level(Eigen::Vector2i(1, 1)), 1);
    glMatrixMode(GL_PROJECTION);
    glOrtho(0.0, 100.0, 0.0, 100.0, -1.0, 1.0);
    glMatrixMode(GL_MODELVIEW);
    glTranslatef(0.5f, 0.5f, 0.0f);
    glEnable(GL_CULL_FACE); // the viewport quad is wound clockwise: culled as a back face
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_ZERO);
    glEnable(GL_DEPTH_TEST);
    glActiveTexture(GL_TEXTURE1);
    device->program->uniform("framebufferDeviceStep.index", 7); // the device sets 0
    const struct
    {
        int levels, width, height;
        bool throwsFirst, replacesOutput1;
        std::vector<GLuint> versions;
    } steps[] = {
        {4, 37, 23, false, false, {1, 1, 1}}, // first update: every output allocated
        {4, 37, 23, false, false, {1, 1, 1}}, // steady: nothing allocated
        {5, 37, 23, false, false, {2, 2, 2}}, // more levels than the storage has
        {3, 37, 23, false, false, {2, 2, 2}}, // fewer: the storage still fits, framebuffers go
        {5, 37, 23, true, false, {2, 2, 2}},  // more again, after an update that grew the list and threw
        {5, 37, 23, false, true, {2, 1, 2}},  // a new texture in a slot
        {3, 5, 1, false, false, {3, 2, 3}},   // a new size
        {0, 4, 4, false, false, {4, 3, 4}},   // the default: one level
    };
    for (const auto& step : steps)
    {
        SCOPED_TRACE(&step - steps);
        const int levels = std::max(step.levels, 1);
        device->levels = step.levels ? std::optional<int>(step.levels) : std::nullopt;
        if (step.throwsFirst)
        {
            device->setInputTexture(0, nullptr);
            EXPECT_EQ(thrownBy([&] { device->update(); }), "No input texture.");
        }
        const Level input = patternLevel(Eigen::Vector2i(step.width, step.height), unsigned(&step - steps));
        device->setInputTexture(0, textureWith(input));
        if (step.replacesOutput1)
            device->setOutputTexture(1, std::make_shared<Texture2D>());
        device->viewports.clear();
        ASSERT_TRUE(device->update());
        expectPyramid(*device->getOutputTexture(0), input, levels);
        ASSERT_EQ(device->framebuffers.size(), std::size_t(levels));
        for (int l = 0; l < levels; ++l)
        {
            const Eigen::Vector2i size(std::max(step.width >> l, 1), std::max(step.height >> l, 1));
            EXPECT_EQ(device->viewports.at(std::size_t(l)), Eigen::Vector4i(0, 0, size.x(), size.y()));
            EXPECT_EQ(download(*device->getOutputTexture(1), l).texels,
                      std::vector<Texel>(std::size_t(size.prod()), {float(levels), 1.0f, 1.0f, 0.0f}));
            EXPECT_EQ(download(*device->getOutputTexture(2), l).texels,
                      std::vector<Texel>(std::size_t(size.prod()), {float(size.x()), float(size.y()), float(l), 1.0f}));
        }
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(device->getOutputTexture(i)->getVersion(), step.versions[std::size_t(i)]) << "output " << i;
    }
    glBlendFunc(GL_ONE, GL_ZERO);
    EXPECT_EQ((std::vector<GLint>{integer(GL_FRAMEBUFFER_BINDING), integer(GL_CURRENT_PROGRAM),
                                  Texture2D::getActiveTextureIndex(), glIsEnabled(GL_CULL_FACE), glIsEnabled(GL_BLEND),
                                  glIsEnabled(GL_DEPTH_TEST), glIsEnabled(GL_TEXTURE_2D)}),
              (std::vector<GLint>{0, 0, 1, 0, 0, 0, 1}));

    // A steady device attaches nothing: an attachment removed behind its back stays removed.
    device->levels = 2;
    ASSERT_TRUE(device->update());
    glNamedFramebufferTexture2DEXT(device->framebuffers[1]->getHandle(), GL_COLOR_ATTACHMENT2, GL_TEXTURE_2D, 0, 0);
    ASSERT_TRUE(device->update());
    EXPECT_EQ(attachedName(*device->framebuffers[1], GL_COLOR_ATTACHMENT2), 0);
}

TEST_F(FramebufferDevice, DevicesOnTwoThreadsOrRunFromAPassKeepTheirOwnSamplerNames)
{
    // Level 1 runs a nested two-level update, then waits for another thread's device to swap its names.
    const Level input = patternLevel(Eigen::Vector2i(16, 12), 31);
    const auto device = std::make_unique<TestDevice>(input, 4), nested = std::make_unique<TestDevice>(input, 2);
    std::promise<void> otherInLevel1, mineInLevel1, otherDone;
    const auto await = [](std::promise<void>& signal) { signal.get_future().wait_for(std::chrono::seconds(30)); };
    std::thread other([&] {
        {
            const HeadlessContext context; // the last context alive terminates the shared display
            OpenGLContext::init();
            const auto another = std::make_unique<TestDevice>(input, 4);
            another->during = [&] {
                if (another->viewports.size() == 2)
                    otherInLevel1.set_value(), await(mineInLevel1);
            };
            EXPECT_TRUE(another->update());
            expectPyramid(*another->getOutputTexture(0), input, 4);
            another->outputNames = {"steps", "pyramid", "level"};
            another->update();
        }
        otherDone.set_value();
    });
    await(otherInLevel1);
    device->during = [&] {
        if (device->viewports.size() != 2)
            return;
        nested->update();
        device->program->use();
        device->framebuffers[1]->bind();
        glViewport(0, 0, 8, 6);
        mineInLevel1.set_value(), await(otherDone); // the other device's names change last
    };
    bool updated = false;
    const std::string thrown = thrownBy([&] { updated = device->update(); });
    other.join();
    ASSERT_TRUE(updated) << thrown;
    expectPyramid(*device->getOutputTexture(0), input, 4);
    expectPyramid(*nested->getOutputTexture(0), input, 2);
}

// A tenth of the rounds fill the caches; the rest must leave the GL objects (counted by kind:
// re-allocations take new names) and the process's memory as they were. Caches settle in steps:
// up to 4.4 MiB resident over rounds that leak nothing (ASan checks every allocation), 3.5 MiB
// under Wine; a margin of 16 MiB still catches kilobytes a round. (Font caches: FontTest.)
TEST_F(FramebufferDevice, SoakOfUpdatesTextureReallocationsAndProgramBuilds)
{
    const Level input = patternLevel(Eigen::Vector2i(8, 8), 3);
    TestDevice device(input, 1);
    Texture2D texture;
    const unsigned int formats[] = {GL_RGBA8, GL_RGBA32F, GL_R8, GL_RG8};
    std::vector<unsigned char> bytes(32 * 32 * 4);
    const auto round = [&](int i) {
        device.levels = 1 + i / 50 % 3;
        device.viewports.clear();
        if (i % 500 == 250) // a new output storage
            device.setOutputTexture(0, std::make_shared<Texture2D>());
        ASSERT_TRUE(device.update());
        const Eigen::Vector2i size(1 + i % 32, 1 + i / 32 % 32);
        std::fill(bytes.begin(), bytes.end(), static_cast<unsigned char>(i));
        texture.reserveStorage(1, size, formats[i % 4]);
        texture.uploadData(size, bytes.data(), GL_RGBA, GL_UNSIGNED_BYTE, 0, GL_TEXTURE_2D);
        if (i % 15)
            return;
        if (i % 30 == 0)
            delete Program::loadFromSource("", "", "", "", "void main() {}", "");
        else // half the builds fail; either way the factory releases what it built
            EXPECT_THROW(Program::loadFromSource("", "", "", "", "void main() { x; }", ""), GLSLException);
    };
    const auto objectCounts = [] {
        std::map<std::string, int> counts;
        for (const std::string& object : TavrinTest::liveGLObjects())
            ++counts[object.substr(0, object.find(' '))];
        return counts;
    };
    for (int i = 0; i < 300; ++i)
        round(i);
    const std::map<std::string, int> objectsBefore = objectCounts();
    const std::size_t memoryBefore = TavrinTest::processMemoryBytes();
    for (int i = 300; i < 3000; ++i)
        round(i);
    EXPECT_EQ(objectCounts(), objectsBefore);
    EXPECT_LE(TavrinTest::underAddressSanitizer() ? 0 : TavrinTest::processMemoryBytes(), memoryBefore + (16u << 20));
    expectPyramid(*device.getOutputTexture(0), input, 1 + 2999 / 50 % 3);
    std::vector<unsigned char> back(bytes.size());
    texture.downloadData(0, GL_RGBA, GL_UNSIGNED_BYTE, back.data(), int(back.size()));
    EXPECT_EQ(back[0] + texture.getVersion(), 2999 % 256 + 3000u);
}
