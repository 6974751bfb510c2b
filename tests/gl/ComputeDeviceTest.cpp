// The compute devices against real compute shaders: outputs read back, units and images bound,
// refusals; every level of the pyramid device's chain against a CPU reduction of the level below.
#include "DeviceTestSupport.h"

#include <opengl/ComputeDevice.h>
#include <opengl/PyramidDevice.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <tuple>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
struct TestComputeDevice : HostDevice<ComputeDevice>
{
    using HostDevice::HostDevice;
    const Eigen::Vector3i getGroupCount() const override { return groups ? *groups : ComputeDevice::getGroupCount(); }
    using ComputeDevice::clearOutput;
    using ComputeDevice::framebuffer;
    std::optional<Eigen::Vector3i> groups;
};

using ComputeDeviceTest = DeviceFixture;
} // namespace

TEST_F(ComputeDeviceTest, RunsItsShaderOverItsGroupsAndImagesAndReleasesWhatItBound)
{
    // Output 0 gets 2v + 1 where an invocation ran; output 1 marks each work group with the dispatch size.
    TestComputeDevice device(std::shared_ptr<Program>(Program::loadFromSource("", "", "", "", "", R"(#version 430
layout(local_size_x = 4, local_size_y = 4) in;
uniform sampler2D source;
layout(rgba32f) uniform image2D doubled;
layout(rgba32f) uniform image2D marks;
void main()
{
    ivec2 p = ivec2(gl_GlobalInvocationID.xy);
    imageStore(doubled, p, 2.0 * texelFetch(source, p, 0) + 1.0);
    imageStore(marks, ivec2(gl_WorkGroupID.x + 4u * gl_WorkGroupID.z, gl_WorkGroupID.y), vec4(gl_NumWorkGroups, 1.0));
})")),
                             2, 2);
    const Eigen::Vector2i size(7, 5);
    const Level input = patternLevel(size, 1);
    device.inputNames = {"unused", "source"};
    device.outputNames = {"doubled", "marks", "source"}; // a name past the slots is never asked
    device.setInputTexture(1, textureWith(input));       // slot 0 stays empty and takes no unit
    device.setOutputTexture(0, textureWith(Level(size)));
    device.setOutputTexture(1, textureWith(Level(Eigen::Vector2i(12, 4))));
    glActiveTexture(GL_TEXTURE3);                               // inputs are pushed from the active unit on
    textureWith(Level(size))->bindImage(1, 0, 0, GL_READ_ONLY); // the device takes the unit and releases it
    std::vector<GLint> seen;
    device.before = [&] {
        device.clearOutput(0, Eigen::Vector4f::Constant(-1.0f));
        device.clearOutput(1, Eigen::Vector4f::Constant(-2.0f)); // through attachment 1 and draw buffer 0
        seen = {integer(GL_CURRENT_PROGRAM), Texture2D::getActiveTextureIndex()};
    };
    device.after = [&] {
        seen.insert(seen.end(), {integer(GL_CURRENT_PROGRAM), integer(GL_IMAGE_BINDING_NAME, 0),
                                 integer(GL_IMAGE_BINDING_NAME, 1)});
    };
    EXPECT_EQ(device.getGroupCount(), Eigen::Vector3i(64, 64, 1));
    const std::pair<Eigen::Vector3i, Eigen::Vector3i> counts[] = {
        {{0, -3, 2}, {1, 1, 2}}, {{2, 2, 1}, {2, 2, 1}}, {{3, 1, 3}, {3, 1, 3}}}; // asked, run
    for (const auto& [asked, run] : counts)
    {
        device.groups = asked;
        ASSERT_TRUE(device.update());
        const GLint program = GLint(device.program->getHandle());
        EXPECT_EQ(seen, (std::vector<GLint>{program, 3, program, 0, 0}));
        EXPECT_EQ((std::vector<GLint>{uniformInt(*device.program, "source"), uniformInt(*device.program, "doubled"),
                                      uniformInt(*device.program, "marks"), Texture2D::getActiveTextureIndex(),
                                      integer(GL_CURRENT_PROGRAM), integer(GL_FRAMEBUFFER_BINDING)}),
                  (std::vector<GLint>{3, 0, 1, 3, 0, 0}));
        Level doubled(size, Texel{-1.0f, -1.0f, -1.0f, -1.0f}),
            marks(Eigen::Vector2i(12, 4), Texel{-2.0f, -2.0f, -2.0f, -2.0f});
        for (int y = 0; y < std::min(size.y(), 4 * run.y()); ++y)
            for (int x = 0; x < std::min(size.x(), 4 * run.x()); ++x)
                for (int c = 0; c < 4; ++c)
                    doubled.at(x, y)[c] = 2 * input.at(x, y)[c] + 1;
        for (int i = 0; i < run.prod(); ++i)
            marks.at(i % run.x() + 4 * (i / run.x() / run.y()),
                     i / run.x() % run.y()) = {float(run.x()), float(run.y()), float(run.z()), 1.0f};
        EXPECT_EQ(download(*device.getOutputTexture(0), 0).texels, doubled.texels) << asked.transpose();
        EXPECT_EQ(download(*device.getOutputTexture(1), 0).texels, marks.texels) << asked.transpose();
    }
    // A dispatch GL refuses leaves update() through its own check.
    device.groups = Eigen::Vector3i(1 << 30, 1, 1);
    const TavrinTest::Outcome refused = TavrinTest::outcomeOf([&] { device.update(); });
    EXPECT_EQ(refused.thrown + "; " + TavrinTest::withoutLineNumbers(refused.out),
              "GLCheck: Invalid value; WARNING: ComputeDevice.cpp (line N) GLCheck: Invalid value");
    Program::useFixed();
    Texture2D::unbindImage(0);
    EXPECT_EQ(attachedName(*device.framebuffer, GL_COLOR_ATTACHMENT1), 0);
    EXPECT_THROW(device.clearOutput(2, Eigen::Vector4f::Zero()), std::out_of_range);
    const auto depth = std::make_shared<Texture2D>();
    depth->reserveStorage(1, Eigen::Vector2i(2, 2), GL_DEPTH_COMPONENT32);
    device.setOutputTexture(1, depth);
    EXPECT_EQ(thrownBy([&] { device.clearOutput(1, Eigen::Vector4f::Zero()); }),
              "Framebuffer incomplete: Incomplete attachment");

    // Refusals come before any GL call: the pending error reaches no check.
    device.setOutputTexture(1, std::make_shared<Texture2D>());
    glActiveTexture(GL_TEXTURE0 - 1);
    device.clearOutput(1, Eigen::Vector4f::Zero()); // without storage only the size is asked
    device.program.reset();
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No program.");
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
}

namespace
{
using Reduce = float (*)(float, float, float, float);
using Reduction = std::pair<const char*, Reduce>;

const Reduction average{PyramidDevice::averageReduction,
                        [](float a, float b, float c, float d) { return (a + b + c + d) * 0.25f; }};
const Reduction minimum{PyramidDevice::minimumReduction,
                        [](float a, float b, float c, float d) { return std::min(std::min(a, b), std::min(c, d)); }};
const Reduction maximum{PyramidDevice::maximumReduction,
                        [](float a, float b, float c, float d) { return std::max(std::max(a, b), std::max(c, d)); }};
// The host's own, with weights that tell the four texels apart, so that a swapped texel shows.
const Reduction weighted{
    "vec4 reduce(vec4 a, vec4 b, vec4 c, vec4 d) { return a * 0.5 + b * 0.25 + c * 0.1875 + d * 0.0625; }",
    [](float a, float b, float c, float d) { return a * 0.5f + b * 0.25f + c * 0.1875f + d * 0.0625f; }};

struct TestDevice : PyramidDevice
{
    int getImageUnitBudget() const override { return budget ? budget : PyramidDevice::getImageUnitBudget(); }
    bool bindsPackedImages(unsigned f) const override { return packed && PyramidDevice::bindsPackedImages(f); }
    int budget = 0;
    bool packed = true;
};

// One unit in the last place of `format` at `value`.
float ulp(GLenum format, float value)
{
    int exponent = 0;
    std::frexp(value, &exponent);
    const bool half = format == GL_RGBA16F;
    return format == GL_RGBA8 ? 1.0f / 255.0f
                              : std::ldexp(1.0f, std::max(exponent - (half ? 11 : 24), half ? -24 : -149));
}

// Input data the format holds exactly: bytes / 255 for RGB(A)8 and depth, eighths otherwise.
std::shared_ptr<Texture2D> inputTexture(const Eigen::Vector2i& size, GLenum format, Level& data)
{
    data = patternLevel(size, unsigned(size.x() * 31 + size.y()));
    const bool isDepth = format == GL_DEPTH_COMPONENT32F;
    std::vector<float> depth;
    for (Texel& texel : data.texels)
    {
        for (float& channel : texel)
            if (format == GL_RGBA8 || format == GL_RGB8 || isDepth)
                channel = std::round((channel + 60.0f) * 2.0f) / 255.0f;
        depth.push_back(texel[0]);
    }
    auto texture = std::make_shared<Texture2D>();
    texture->reserveStorage(1, size, format);
    texture->uploadData(size, isDepth ? static_cast<const void*>(depth.data()) : data.texels.data(),
                        isDepth ? GL_DEPTH_COMPONENT : GL_RGBA, GL_FLOAT, 0, GL_TEXTURE_2D);
    if (format == GL_RGB8 || format == GL_RGB16F || format == GL_RGB32F)
        for (Texel& texel : data.texels)
            texel[3] = 1.0f;
    return texture;
}

// Level 0 is `input`; every further level is `reduce` of the level below as read back, within one
// unit in the last place. Channels the format lacks read back as 0, alpha as 1.
void expectChain(const Texture2D& output, const Level& input, GLenum format, Reduce reduce)
{
    const std::size_t channels = format == GL_R32F ? 1 : format == GL_RG32F ? 2 : 4;
    int wrong = 0;
    Level below;
    for (int level = 0; level < output.getMipLevelCount(); ++level)
    {
        const Level stored = download(output, level);
        for (int y = 0; y < stored.size.y(); ++y)
            for (int x = 0; x < stored.size.x(); ++x)
                for (std::size_t c = 0; c < 4; ++c)
                {
                    float expected = c < channels ? input.at(x, y)[c] : c == 3 ? 1.0f : 0.0f;
                    if (level > 0 && c < channels)
                    {
                        const int x1 = std::min(2 * x + 1, below.size.x() - 1),
                                  y1 = std::min(2 * y + 1, below.size.y() - 1);
                        expected = reduce(below.at(2 * x, 2 * y)[c], below.at(x1, 2 * y)[c], below.at(2 * x, y1)[c],
                                          below.at(x1, y1)[c]);
                    }
                    const float actual = stored.at(x, y)[c];
                    if (!(std::fabs(actual - expected) <= ulp(format, expected) * 1.001f) && wrong++ < 5)
                        ADD_FAILURE() << "level " << level << " (" << x << ", " << y << ")[" << c << "]: " << actual;
                }
        below = stored;
    }
    EXPECT_EQ(wrong, 0);
}

// The input's size and format, the reduction, the output format the device picks for that input.
using ChainCase = std::tuple<Eigen::Vector2i, GLenum, const Reduction*, GLenum>;
using PyramidChainTest = ::testing::TestWithParam<ChainCase>;

// Each case in one dispatch; with four image units (three levels a dispatch) on the same output;
// with the levels bound in their own format. Then the input changes and the output follows.
TEST_P(PyramidChainTest, EveryLevelIsTheReductionOfTheLevelBelow)
{
    const auto& [size, format, reduction, outputFormat] = GetParam();
    Level data;
    TestDevice device;
    const std::shared_ptr<Texture2D> input = inputTexture(size, format, data);
    device.setInputTexture(0, input);
    device.setReduction(reduction->first);
    glActiveTexture(GL_TEXTURE3);
    for (int run = 0; run < 3; ++run)
    {
        device.budget = run == 1 ? 4 : 0;
        device.packed = run != 2;
        if (run != 1)
            device.setOutputTexture(0, std::make_shared<Texture2D>());
        ASSERT_TRUE(device.update());
        EXPECT_EQ(integer(GL_ACTIVE_TEXTURE) + integer(GL_CURRENT_PROGRAM), GL_TEXTURE3);
        EXPECT_EQ(integer(GL_IMAGE_BINDING_NAME, 0) + integer(GL_SHADER_STORAGE_BUFFER_BINDING, 0), 0);
        Texture2D& output = *device.getOutputTexture(0);
        EXPECT_EQ(output.getVersion(), 1u) << "the output was re-made where it fitted";
        EXPECT_EQ(output.getSize(), size);
        EXPECT_EQ(levelSize(output, output.getMipLevelCount() - 1), Eigen::Vector2i(1, 1)) << "not the whole chain";
        EXPECT_EQ(GLenum(output.getInternalFormat()), outputFormat);
        const int levels = output.getMipLevelCount(), dispatches = run == 1 ? std::max(1, (levels + 1) / 3) : 1;
        EXPECT_EQ(device.getLastDispatchCount(), dispatches);
        EXPECT_EQ(device.getLastPath(),
                  dispatches == 1 ? PyramidDevice::Path::SingleDispatch : PyramidDevice::Path::SeveralDispatches);
        EXPECT_EQ(device.getLastImagesPacked(), run != 2);
        expectChain(output, data, outputFormat, reduction->second);
    }
    glActiveTexture(GL_TEXTURE0);
    const Level copied = download(*device.getOutputTexture(0), 0);
    const int levels = device.getOutputTexture(0)->getMipLevelCount();
    // A new storage of the input re-makes the output to fit.
    input->reserveStorage(1, {5, 3}, GL_RGBA32F);
    ASSERT_TRUE(device.update());
    EXPECT_EQ(device.getOutputTexture(0)->getVersion(), 2u);
    EXPECT_EQ(device.getOutputTexture(0)->getSize(), Eigen::Vector2i(5, 3));

    // In place, on a chain one level short of the whole: level 0 stays, the levels after it are filled.
    auto own = std::make_shared<Texture2D>();
    own->reserveStorage(std::max(1, levels - 1), size, outputFormat);
    own->uploadData(size, copied.texels.data(), GL_RGBA, GL_FLOAT, 0, GL_TEXTURE_2D);
    device.setInputTexture(0, own);
    device.setOutputTexture(0, own);
    ASSERT_TRUE(device.update());
    expectChain(*own, copied, outputFormat, reduction->second);
}

const ChainCase chainCases[] = {
    {{1, 1}, GL_RGBA8, &average, GL_RGBA8},        {{1, 37}, GL_RGBA32F, &maximum, GL_RGBA32F},
    {{37, 1}, GL_R32F, &minimum, GL_R32F},         {{64, 64}, GL_RGBA8, &average, GL_RGBA8},
    {{127, 65}, GL_RGBA16F, &average, GL_RGBA16F}, {{300, 181}, GL_RGBA32F, &minimum, GL_RGBA32F},
    {{256, 256}, GL_RG32F, &weighted, GL_RG32F},   {{517, 300}, GL_R32F, &maximum, GL_R32F},
    {{19, 40}, GL_RGB8, &average, GL_RGBA8},       {{130, 66}, GL_DEPTH_COMPONENT32F, &maximum, GL_R32F},
    {{5, 3}, GL_RGB16F, &weighted, GL_RGBA16F},    {{3, 6}, GL_RGB32F, &maximum, GL_RGBA32F},
    {{8192, 1}, GL_RGBA8, &average, GL_RGBA8},
};

INSTANTIATE_TEST_SUITE_P(Cases, PyramidChainTest, ::testing::ValuesIn(chainCases));

TEST(PyramidDevice, MisuseIsReported)
{
    const auto textureOf = [](GLenum format) {
        auto texture = std::make_shared<Texture2D>();
        if (format)
            texture->reserveStorage(1, {4, 4}, format);
        return texture;
    };
    // A fresh device each: its input, whether it works in place, what update() throws. In place on a
    // texture of one level there is nothing to fill.
    const std::tuple<std::shared_ptr<Texture2D>, bool, std::string> cases[] = {
        {nullptr, false, "No input texture."},
        {textureOf(0), false, "No input texture."},
        {textureOf(GL_RGBA8UI), false, "Unsupported image format."},
        {textureOf(GL_DEPTH_COMPONENT32F), true, "Unsupported image format."},
        {textureOf(GL_RGBA8), true, ""},
    };
    for (const auto& [input, inPlace, thrown] : cases)
    {
        PyramidDevice device;
        device.setInputTexture(0, input);
        device.setOutputTexture(0, inPlace ? input : std::make_shared<Texture2D>());
        EXPECT_EQ(thrownBy([&] { device.update(); }), thrown);
        EXPECT_EQ(device.getLastPath(), PyramidDevice::Path::None);
        EXPECT_EQ(device.getLastDispatchCount(), 0);
    }
    EXPECT_EQ(TavrinTest::outcomeOf([] { EXPECT_FALSE(PyramidDevice().update()); }).err, "ERROR: No output texture.");
}
} // namespace
