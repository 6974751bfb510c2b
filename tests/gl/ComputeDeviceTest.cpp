// The compute device against real compute shaders: outputs read back texel for texel, image
// units, group counts, clearing, the missing-output path, and shared copies.
#include "DeviceTestSupport.h"

#include <opengl/ComputeDevice.h>

#include <gtest/gtest.h>

#include <functional>
#include <optional>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
std::shared_ptr<Program> computeProgram(const std::string& source)
{
    return std::shared_ptr<Program>(Program::loadFromSource("", "", "", "", "", "#version 430\n" + source));
}

// A host's device: its names, group count and hooks are set by the test.
class TestComputeDevice : public ComputeDevice
{
public:
    TestComputeDevice(std::shared_ptr<Program> shader, int inputs, int outputs)
    {
        program = std::move(shader);
        inputTextures.resize(std::size_t(inputs));
        outputTextures.resize(std::size_t(outputs));
    }

    const Eigen::Vector3i getGroupCount() const override { return groups ? *groups : ComputeDevice::getGroupCount(); }
    std::string getInputSamplerName(int i) const override { return i < int(inputNames.size()) ? inputNames[i] : ""; }
    std::string getOutputTextureName(int i) const override { return i < int(outputNames.size()) ? outputNames[i] : ""; }
    void beforeRendering() override
    {
        if (before)
            before();
    }
    void afterRendering() override
    {
        if (after)
            after();
    }

    using ComputeDevice::clearOutput;
    using ComputeDevice::framebuffer;
    using ComputeDevice::outputTextures;
    using ComputeDevice::program;

    std::optional<Eigen::Vector3i> groups;
    std::vector<std::string> inputNames, outputNames;
    std::function<void()> before, after;
};

// A device that overrides nothing, to see the defaults.
class PlainComputeDevice : public ComputeDevice
{
public:
    using ComputeDevice::getInputSamplerName;
    using ComputeDevice::getOutputTextureName;
    using ComputeDevice::inputTextures;
    using ComputeDevice::outputTextures;
};

class ComputeDeviceTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        glActiveTexture(GL_TEXTURE0);
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        TavrinTest::drainGLErrors();
    }

    static std::shared_ptr<Texture2D> rgba32f(const Eigen::Vector2i& size)
    {
        auto texture = std::make_shared<Texture2D>();
        texture->reserveStorage(1, size, GL_RGBA32F);
        return texture;
    }
};

const char* const transformShader = R"(
layout(local_size_x = 4, local_size_y = 4) in;
uniform sampler2D source;
layout(rgba32f) uniform image2D doubled;
layout(rgba32f) uniform image2D swizzled;
void main()
{
    ivec2 p = ivec2(gl_GlobalInvocationID.xy);
    if (any(greaterThanEqual(p, imageSize(doubled))))
        return;
    vec4 v = texelFetch(source, p, 0);
    imageStore(doubled, p, 2.0 * v + 1.0);
    imageStore(swizzled, p, v.wzyx - vec4(p, 0.0, 0.0));
}
)";
} // namespace

TEST_F(ComputeDeviceTest, WritesAKnownFunctionOfTheInputIntoTwoOutputs)
{
    const Eigen::Vector2i size(7, 5);
    const Level input = patternLevel(size, 1);
    TestComputeDevice device(computeProgram(transformShader), 2, 2);
    device.inputNames = {"unused", "source"};
    device.outputNames = {"doubled", "swizzled"};
    device.groups = Eigen::Vector3i(2, 2, 1);
    device.setInputTexture(1, textureWith(input)); // slot 0 stays empty and takes no unit
    device.setOutputTexture(0, rgba32f(size));
    device.setOutputTexture(1, rgba32f(size));

    glActiveTexture(GL_TEXTURE2); // pushes start at the active unit
    GLint programInHook = 0, unitInHook = -1;
    device.before = [&] {
        programInHook = integer(GL_CURRENT_PROGRAM);
        unitInHook = Texture2D::getActiveTextureIndex();
    };
    ASSERT_TRUE(device.update());

    EXPECT_EQ(GLuint(programInHook), device.program->getHandle());
    EXPECT_EQ(unitInHook, 2) << "beforeRendering runs before the inputs are pushed";
    EXPECT_EQ(uniformInt(*device.program, "source"), 2);
    EXPECT_EQ(uniformInt(*device.program, "doubled"), 0);
    EXPECT_EQ(uniformInt(*device.program, "swizzled"), 1);
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 2);
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(integer(GL_FRAMEBUFFER_BINDING), 0);

    const Level doubled = download(*device.getOutputTexture(0), 0);
    const Level swizzled = download(*device.getOutputTexture(1), 0);
    for (int y = 0; y < size.y(); ++y)
        for (int x = 0; x < size.x(); ++x)
        {
            const Texel& v = input.at(x, y);
            const Texel expectedDoubled = {2 * v[0] + 1, 2 * v[1] + 1, 2 * v[2] + 1, 2 * v[3] + 1};
            const Texel expectedSwizzled = {v[3] - float(x), v[2] - float(y), v[1], v[0]};
            EXPECT_EQ(doubled.at(x, y), expectedDoubled) << "texel " << x << ", " << y;
            EXPECT_EQ(swizzled.at(x, y), expectedSwizzled) << "texel " << x << ", " << y;
        }
}

TEST_F(ComputeDeviceTest, ThreeOutputsUseImageUnitsZeroToTwoAndReleaseThem)
{
    TestComputeDevice device(computeProgram(R"(
layout(local_size_x = 1) in;
layout(rgba32f) uniform image2D first;
layout(rgba32f) uniform image2D second;
layout(rgba32f) uniform image2D third;
void main()
{
    ivec2 p = ivec2(gl_WorkGroupID.xy);
    imageStore(first, p, vec4(1.0));
    imageStore(second, p, vec4(2.0));
    imageStore(third, p, vec4(3.0));
}
)"),
                             0, 3);
    device.outputNames = {"first", "second", "third"};
    device.groups = Eigen::Vector3i(2, 2, 1);
    for (int j = 0; j < 3; ++j)
        device.setOutputTexture(j, rgba32f(Eigen::Vector2i(2, 2)));

    auto imageOn = [](GLuint unit) {
        GLint name = -1;
        glGetIntegeri_v(GL_IMAGE_BINDING_NAME, unit, &name);
        return name;
    };
    std::vector<GLint> imagesAfter;
    GLint programAfter = 0;
    device.after = [&] {
        for (GLuint unit = 0; unit < 3; ++unit)
            imagesAfter.push_back(imageOn(unit));
        programAfter = integer(GL_CURRENT_PROGRAM);
    };
    // Something else on unit 1 beforehand: the device takes the unit and releases it.
    const auto stranger = rgba32f(Eigen::Vector2i(1, 1));
    stranger->bindImage(1, 0, 0, GL_READ_ONLY);
    ASSERT_TRUE(device.update());

    EXPECT_EQ(imagesAfter, (std::vector<GLint>{0, 0, 0})) << "released before afterRendering";
    EXPECT_EQ(GLuint(programAfter), device.program->getHandle());
    for (GLuint unit = 0; unit < 3; ++unit)
        EXPECT_EQ(imageOn(unit), 0);
    for (int j = 0; j < 3; ++j)
    {
        EXPECT_EQ(uniformInt(*device.program, device.outputNames[j].c_str()), j);
        for (const Texel& texel : download(*device.getOutputTexture(j), 0).texels)
            EXPECT_EQ(texel, Texel({float(j + 1), float(j + 1), float(j + 1), float(j + 1)})) << "output " << j;
    }
}

class GroupCounts : public ComputeDeviceTest,
                    public ::testing::WithParamInterface<std::pair<Eigen::Vector3i, Eigen::Vector3i>> // asked, run
{
};

TEST_P(GroupCounts, ComponentsBelowOneAreRaisedToOne)
{
    const Eigen::Vector3i asked = GetParam().first, run = GetParam().second;
    // Each work group marks one texel with the dispatch size it saw.
    TestComputeDevice device(computeProgram(R"(
layout(local_size_x = 1) in;
layout(rgba32f) uniform image2D target;
void main()
{
    imageStore(target, ivec2(gl_WorkGroupID.x + 4u * gl_WorkGroupID.z, gl_WorkGroupID.y), vec4(gl_NumWorkGroups, 1.0));
}
)"),
                             0, 1);
    device.outputNames = {"target"};
    device.groups = asked;
    device.setOutputTexture(0, rgba32f(Eigen::Vector2i(12, 4)));
    // Cleared from the hook, as a host would before a sparse write.
    device.before = [&] { device.clearOutput(0, Eigen::Vector4f(-1.0f, -1.0f, -1.0f, -1.0f)); };
    ASSERT_TRUE(device.update());

    const Level target = download(*device.getOutputTexture(0), 0);
    const Texel marked = {float(run.x()), float(run.y()), float(run.z()), 1.0f}, untouched = {-1, -1, -1, -1};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 12; ++x)
        {
            const bool inside = x % 4 < run.x() && x / 4 < run.z() && y < run.y();
            EXPECT_EQ(target.at(x, y), inside ? marked : untouched) << "texel " << x << ", " << y;
        }
}

INSTANTIATE_TEST_SUITE_P(Dispatch, GroupCounts,
                         ::testing::Values(std::make_pair(Eigen::Vector3i(0, -3, 2), Eigen::Vector3i(1, 1, 2)),
                                           std::make_pair(Eigen::Vector3i(3, 2, 1), Eigen::Vector3i(3, 2, 1)),
                                           std::make_pair(Eigen::Vector3i(-7, 0, 0), Eigen::Vector3i(1, 1, 1)),
                                           std::make_pair(Eigen::Vector3i(4, 4, 3), Eigen::Vector3i(4, 4, 3))));

TEST_F(ComputeDeviceTest, ClearOutputFillsTheSlotAndSkipsTexturesWithoutStorage)
{
    TestComputeDevice device(computeProgram("layout(local_size_x = 1) in;\nvoid main() {}\n"), 0, 2);
    device.setOutputTexture(0, rgba32f(Eigen::Vector2i(3, 2)));
    device.setOutputTexture(1, rgba32f(Eigen::Vector2i(2, 3)));
    device.clearOutput(1, Eigen::Vector4f(0.25f, -1.5f, 2.0f, 0.5f)); // attachment 1, draw buffer 0
    device.clearOutput(0, Eigen::Vector4f(4.0f, 3.0f, 2.0f, 1.0f));

    for (const Texel& texel : download(*device.getOutputTexture(1), 0).texels)
        EXPECT_EQ(texel, Texel({0.25f, -1.5f, 2.0f, 0.5f}));
    for (const Texel& texel : download(*device.getOutputTexture(0), 0).texels)
        EXPECT_EQ(texel, Texel({4.0f, 3.0f, 2.0f, 1.0f}));
    const GLuint framebuffer = device.framebuffer->getHandle();
    EXPECT_EQ(integer(GL_FRAMEBUFFER_BINDING), 0);
    for (GLenum attachment : {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1})
        EXPECT_EQ(attachmentParameter(framebuffer, attachment, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME), 0);

    // Without storage only the size is asked: the pending error reaches no check.
    device.setOutputTexture(0, std::make_shared<Texture2D>());
    leaveErrorPending();
    EXPECT_EQ(thrownBy([&] { device.clearOutput(0, Eigen::Vector4f(1.0f, 1.0f, 1.0f, 1.0f)); }), "");
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
    EXPECT_THROW(device.clearOutput(2, Eigen::Vector4f::Zero()), std::out_of_range);
}

TEST_F(ComputeDeviceTest, WithoutAnOutputItReportsAndReturnsFalseWithoutTouchingGL)
{
    TestComputeDevice device(computeProgram("layout(local_size_x = 1) in;\nvoid main() {}\n"), 1, 0);
    device.setInputTexture(0, rgba32f(Eigen::Vector2i(1, 1)));
    const auto other = std::shared_ptr<Program>(
        Program::loadFromSource("", "", "", "", "", "#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n"));
    other->use();

    for (int outputs : {0, 2})
    {
        device.outputTextures.resize(std::size_t(outputs));
        if (outputs == 2)
            device.setOutputTexture(1, rgba32f(Eigen::Vector2i(1, 1))); // slot 0 empty
        int hooks = 0;
        device.before = device.after = [&] { ++hooks; };
        leaveErrorPending();
        bool result = true;
        {
            TavrinTest::StreamCapture err(std::cerr);
            result = device.update();
            EXPECT_EQ(err.text(), "ERROR: No output texture.");
        }
        EXPECT_FALSE(result);
        EXPECT_EQ(hooks, 0);
        EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM)) << "no checked GL call ran";
        EXPECT_EQ(GLuint(integer(GL_CURRENT_PROGRAM)), other->getHandle());
    }
    Program::useFixed();
}

TEST_F(ComputeDeviceTest, DefaultsSlotsAndTheProgramGuard)
{
    PlainComputeDevice device;
    EXPECT_EQ(device.getInputTextureCount(), 0);
    EXPECT_EQ(device.getOutputTextureCount(), 0);
    EXPECT_EQ(device.getGroupCount(), Eigen::Vector3i(64, 64, 1));
    EXPECT_EQ(device.getInputSamplerName(5), "");
    EXPECT_EQ(device.getOutputTextureName(0), "");

    device.inputTextures.resize(2);
    device.outputTextures.resize(1);
    const auto texture = rgba32f(Eigen::Vector2i(1, 1));
    device.setInputTexture(1, texture);
    device.setOutputTexture(0, texture);
    EXPECT_EQ(device.getInputTexture(1), texture);
    EXPECT_EQ(device.getInputTexture(0), nullptr);
    device.setInputTexture(1, nullptr);
    EXPECT_EQ(device.getInputTexture(1), nullptr);
    EXPECT_EQ(device.getInputTextureCount(), 2) << "an emptied slot keeps its place";
    EXPECT_THROW(device.setOutputTexture(1, texture), std::out_of_range);
    EXPECT_THROW(device.getInputTexture(-1), std::out_of_range);
    EXPECT_EQ(device.getOutputTextureCount(), 1);

    // An output but no program: refused before any GL call.
    leaveErrorPending();
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No program.");
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
}

TEST_F(ComputeDeviceTest, ACopyKeepsWorkingWhenTheOriginalIsGone)
{
    const Level input = patternLevel(Eigen::Vector2i(4, 4), 7);
    auto original = std::make_unique<TestComputeDevice>(computeProgram(transformShader), 1, 2);
    original->inputNames = {"source"};
    original->outputNames = {"doubled", "swizzled"};
    original->groups = Eigen::Vector3i(1, 1, 1);
    original->setInputTexture(0, textureWith(input));
    original->setOutputTexture(0, rgba32f(Eigen::Vector2i(4, 4)));
    original->setOutputTexture(1, rgba32f(Eigen::Vector2i(4, 4)));

    original->clearOutput(1, Eigen::Vector4f::Zero()); // the framebuffer object exists once bound

    TestComputeDevice copy(*original);
    EXPECT_EQ(copy.program, original->program);
    EXPECT_EQ(copy.framebuffer.get(), original->framebuffer.get());
    EXPECT_EQ(copy.getOutputTexture(1), original->getOutputTexture(1));
    const GLuint programName = copy.program->getHandle(), framebufferName = copy.framebuffer->getHandle();
    original.reset();

    EXPECT_TRUE(glIsProgram(programName));
    EXPECT_TRUE(glIsFramebuffer(framebufferName));
    ASSERT_TRUE(copy.update());
    copy.clearOutput(1, Eigen::Vector4f(9.0f, 9.0f, 9.0f, 9.0f));
    const Level doubled = download(*copy.getOutputTexture(0), 0);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(doubled.at(x, y)[0], 2 * input.at(x, y)[0] + 1);
    EXPECT_EQ(download(*copy.getOutputTexture(1), 0).at(3, 3), Texel({9.0f, 9.0f, 9.0f, 9.0f}));

    // Assignment shares as well.
    TestComputeDevice assigned(nullptr, 0, 0);
    assigned = copy;
    EXPECT_EQ(assigned.framebuffer.get(), copy.framebuffer.get());
    EXPECT_EQ(assigned.getOutputTexture(0), copy.getOutputTexture(0));
}
