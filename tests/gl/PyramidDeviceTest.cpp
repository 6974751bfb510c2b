// The pyramid device: every level of its chain against a CPU reduction of the level below as
// stored, for a table of sizes, formats and reductions; the split-dispatch path; in-place use
// against glGenerateMipmap; storage on demand; misuse.
#include "DeviceTestSupport.h"

#include <opengl/GLSLException.h>
#include <opengl/PyramidDevice.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
// Weights that tell the four texels apart, so a swapped texel shows.
const char* const weightedReduction =
    "vec4 reduce(vec4 a, vec4 b, vec4 c, vec4 d) { return a * 0.5 + b * 0.25 + c * 0.125 + d * 0.125; }";

using Reduce = std::function<float(float, float, float, float)>;

struct Reduction
{
    const char* name;
    const char* glsl;
    Reduce reduce;
};

const Reduction average{"average", PyramidDevice::averageReduction,
                        [](float a, float b, float c, float d) { return (a + b + c + d) * 0.25f; }};
const Reduction minimum{"minimum", PyramidDevice::minimumReduction,
                        [](float a, float b, float c, float d) { return std::min(std::min(a, b), std::min(c, d)); }};
const Reduction maximum{"maximum", PyramidDevice::maximumReduction,
                        [](float a, float b, float c, float d) { return std::max(std::max(a, b), std::max(c, d)); }};
const Reduction weighted{"weighted", weightedReduction, [](float a, float b, float c, float d) {
                             return a * 0.5f + b * 0.25f + c * 0.125f + d * 0.125f;
                         }};

// A device whose image unit budget and image packing the test sets.
class TestDevice : public PyramidDevice
{
public:
    int getImageUnitBudget() const override { return budget ? budget : PyramidDevice::getImageUnitBudget(); }
    bool bindsPackedImages(unsigned int format) const override
    {
        return packed && PyramidDevice::bindsPackedImages(format);
    }
    int budget = 0;
    bool packed = true;
};

int channelsOf(GLenum format)
{
    return format == GL_R32F || format == GL_DEPTH_COMPONENT32F ? 1 : format == GL_RG32F ? 2 : 4;
}

// One unit in the last place of `format` at `value`.
float ulp(GLenum format, float value)
{
    int exponent = 0;
    std::frexp(value, &exponent);
    if (format == GL_RGBA8 || format == GL_RGB8)
        return 1.0f / 255.0f;
    if (format == GL_RGBA16F)
        return std::ldexp(1.0f, std::max(exponent - 11, -24));
    return std::ldexp(1.0f, std::max(exponent - 24, -149));
}

// Input data the format holds exactly: bytes / 255, eighths for the float formats, [0, 1] for depth.
std::shared_ptr<Texture2D> inputTexture(const Eigen::Vector2i& size, GLenum format, Level& data)
{
    data = patternLevel(size, unsigned(size.x() * 31 + size.y()));
    for (Texel& texel : data.texels)
        for (float& channel : texel)
            if (format == GL_RGBA8 || format == GL_RGB8 || format == GL_DEPTH_COMPONENT32F)
                channel = std::round((channel + 60.0f) * 2.0f) / 255.0f;
    auto texture = std::make_shared<Texture2D>();
    texture->reserveStorage(1, size, format);
    std::vector<float> depth;
    for (const Texel& texel : data.texels)
        depth.push_back(texel[0]);
    const bool isDepth = format == GL_DEPTH_COMPONENT32F;
    texture->uploadData(size, isDepth ? static_cast<const void*>(depth.data()) : data.texels.data(),
                        isDepth ? GL_DEPTH_COMPONENT : GL_RGBA, GL_FLOAT, 0, GL_TEXTURE_2D);
    if (format == GL_RGB8)
        for (Texel& texel : data.texels)
            texel[3] = 1.0f;
    return texture;
}

// Level 0 is `input`; every further level is `reduce` of the level below as read back.
void expectChain(Texture2D& output, const Level& input, GLenum format, const Reduce& reduce)
{
    const int channels = channelsOf(format);
    int wrong = 0;
    const auto expectNear = [&](int level, int x, int y, std::size_t c, float actual, float expected) {
        if (!(std::fabs(actual - expected) <= ulp(format, expected) * 1.001f) && wrong++ < 5)
            ADD_FAILURE() << "level " << level << " (" << x << ", " << y << ")[" << c << "]: " << actual
                          << ", expected " << expected;
    };
    Level below = download(output, 0);
    for (int y = 0; y < input.size.y(); ++y)
        for (int x = 0; x < input.size.x(); ++x)
            for (std::size_t c = 0; c < std::size_t(channels); ++c)
                expectNear(0, x, y, c, below.at(x, y)[c], input.at(x, y)[c]);
    for (int level = 1; level < output.getMipLevelCount(); ++level)
    {
        const Level stored = download(output, level);
        ASSERT_EQ(stored.size, below.size.cwiseQuotient(Eigen::Vector2i(2, 2)).cwiseMax(1)) << "level " << level;
        for (int y = 0; y < stored.size.y(); ++y)
            for (int x = 0; x < stored.size.x(); ++x)
                for (std::size_t c = 0; c < std::size_t(channels); ++c)
                {
                    const int x1 = std::min(2 * x + 1, below.size.x() - 1),
                              y1 = std::min(2 * y + 1, below.size.y() - 1);
                    expectNear(level, x, y, c, stored.at(x, y)[c],
                               reduce(below.at(2 * x, 2 * y)[c], below.at(x1, 2 * y)[c], below.at(2 * x, y1)[c],
                                      below.at(x1, y1)[c]));
                }
        below = stored;
    }
    EXPECT_EQ(wrong, 0);
}

struct ChainCase
{
    Eigen::Vector2i size;
    GLenum format;
    const Reduction* reduction;
    GLenum outputFormat;
};

class PyramidChainTest : public ::testing::TestWithParam<ChainCase>
{
};

TEST_P(PyramidChainTest, EveryLevelIsTheReductionOfTheLevelBelow)
{
    const ChainCase& test = GetParam();
    Level data;
    TestDevice device;
    device.setInputTexture(0, inputTexture(test.size, test.format, data));
    device.setOutputTexture(0, std::make_shared<Texture2D>());
    device.setReduction(test.reduction->glsl);
    ASSERT_TRUE(device.update());

    Texture2D& output = *device.getOutputTexture(0);
    EXPECT_EQ(output.getSize(), test.size);
    EXPECT_EQ(GLenum(output.getInternalFormat()), test.outputFormat);
    expectChain(output, data, test.outputFormat, test.reduction->reduce);
    EXPECT_EQ(device.getLastPath(), PyramidDevice::Path::SingleDispatch);

    // A budget of four units writes three levels a dispatch, and levels bound in their own format
    // go through the shader unpacked: neither may change the chain.
    device.budget = 4;
    ASSERT_TRUE(device.update());
    EXPECT_EQ(device.getLastDispatchCount(), std::max(1, (output.getMipLevelCount() + 1) / 3));
    expectChain(output, data, test.outputFormat, test.reduction->reduce);
    device.setOutputTexture(0, std::make_shared<Texture2D>());
    device.packed = false;
    ASSERT_TRUE(device.update());
    EXPECT_FALSE(device.getLastImagesPacked());
    expectChain(*device.getOutputTexture(0), data, test.outputFormat, test.reduction->reduce);
}

const ChainCase chainCases[] = {
    {{1, 1}, GL_RGBA8, &average, GL_RGBA8},        {{1, 37}, GL_RGBA32F, &maximum, GL_RGBA32F},
    {{37, 1}, GL_R32F, &minimum, GL_R32F},         {{64, 64}, GL_RGBA8, &average, GL_RGBA8},
    {{127, 65}, GL_RGBA16F, &average, GL_RGBA16F}, {{300, 181}, GL_RGBA32F, &minimum, GL_RGBA32F},
    {{256, 256}, GL_RG32F, &weighted, GL_RG32F},   {{517, 300}, GL_R32F, &maximum, GL_R32F},
    {{19, 7}, GL_RGB8, &average, GL_RGBA8},        {{130, 66}, GL_DEPTH_COMPONENT32F, &minimum, GL_R32F},
};

std::string caseName(const ::testing::TestParamInfo<ChainCase>& info)
{
    const ChainCase& test = info.param;
    return std::to_string(test.size.x()) + "x" + std::to_string(test.size.y()) + "_" + std::to_string(test.format) +
           "_" + test.reduction->name;
}

INSTANTIATE_TEST_SUITE_P(Cases, PyramidChainTest, ::testing::ValuesIn(chainCases), caseName);

TEST(PyramidDevice, InPlaceKeepsLevelZeroAndMatchesGenerateMipmap)
{
    Level data;
    const std::shared_ptr<Texture2D> input = inputTexture({256, 256}, GL_RGBA8, data);
    auto texture = std::make_shared<Texture2D>(), generated = std::make_shared<Texture2D>();
    for (Texture2D* target : {texture.get(), generated.get()})
    {
        target->reserveStorage(9, {256, 256}, GL_RGBA8);
        target->uploadData({256, 256}, data.texels.data(), GL_RGBA, GL_FLOAT, 0, GL_TEXTURE_2D);
    }
    glGenerateTextureMipmapEXT(generated->getHandle(), GL_TEXTURE_2D);
    PyramidDevice device;
    device.setInputTexture(0, texture);
    device.setOutputTexture(0, texture);
    ASSERT_TRUE(device.update());
    EXPECT_EQ(device.getLastPath(), PyramidDevice::Path::SingleDispatch);
    EXPECT_EQ(texture->getVersion(), 1u);
    // Both reduce the same level 0 to level 1; further down each works on its own rounding.
    const Level built = download(*texture, 1), expected = download(*generated, 1);
    float largest = 0.0f;
    for (std::size_t i = 0; i < built.texels.size(); ++i)
        for (std::size_t c = 0; c < 4; ++c)
            largest = std::max(largest, std::fabs(built.texels[i][c] - expected.texels[i][c]));
    EXPECT_LE(largest, 1.001f / 255.0f);
    expectChain(*texture, data, GL_RGBA8, average.reduce);

    // A texture of one level has nothing to fill.
    device.setInputTexture(0, input);
    device.setOutputTexture(0, std::const_pointer_cast<Texture2D>(input));
    EXPECT_TRUE(device.update());
    EXPECT_EQ(device.getLastPath(), PyramidDevice::Path::None);
    EXPECT_EQ(device.getLastDispatchCount(), 0);
}

TEST(PyramidDevice, OutputFollowsTheInputAndUpdateLeavesNoBinding)
{
    auto input = std::make_shared<Texture2D>(), output = std::make_shared<Texture2D>();
    input->reserveStorage(1, {8192, 1}, GL_RGBA8);
    PyramidDevice device;
    device.setInputTexture(0, input);
    device.setOutputTexture(0, output);
    glActiveTexture(GL_TEXTURE3);
    ASSERT_TRUE(device.update());
    EXPECT_EQ(output->getMipLevelCount(), 14);
    EXPECT_EQ(integer(GL_ACTIVE_TEXTURE), GL_TEXTURE3);
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), 0);
    GLint image = -1, storage = -1;
    glGetIntegeri_v(GL_IMAGE_BINDING_NAME, 0, &image);
    glGetIntegeri_v(GL_SHADER_STORAGE_BUFFER_BINDING, 0, &storage);
    EXPECT_EQ(image, 0);
    EXPECT_EQ(storage, 0);
    glActiveTexture(GL_TEXTURE0);

    ASSERT_TRUE(device.update());
    EXPECT_EQ(output->getVersion(), 1u) << "a steady update re-made the output";
    input->reserveStorage(1, {5, 3}, GL_RGBA32F);
    ASSERT_TRUE(device.update());
    EXPECT_EQ(output->getVersion(), 2u);
    EXPECT_EQ(output->getSize(), Eigen::Vector2i(5, 3));
    EXPECT_EQ(output->getInternalFormat(), GL_RGBA32F);
    EXPECT_EQ(output->getMipLevelCount(), 3);
}

TEST(PyramidDevice, MisuseIsReported)
{
    PyramidDevice device;
    {
        TavrinTest::StreamCapture errors(std::cerr);
        EXPECT_FALSE(device.update());
        EXPECT_EQ(errors.text(), "ERROR: No output texture.");
    }
    device.setOutputTexture(0, std::make_shared<Texture2D>());
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No input texture.");
    auto input = std::make_shared<Texture2D>();
    device.setInputTexture(0, input);
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No input texture.");
    input->reserveStorage(1, {4, 4}, GL_RGBA8UI);
    EXPECT_EQ(thrownBy([&] { device.update(); }), "Unsupported image format.");
    input->reserveStorage(1, {4, 4}, GL_RGBA8);
    device.setReduction("vec4 reduce(vec4 a) { return a; }");
    EXPECT_THROW(device.update(), GLSLException);
    EXPECT_THROW(device.setInputTexture(1, input), std::out_of_range);
    EXPECT_EQ(device.getInputTextureCount() + device.getOutputTextureCount(), 2);
}
} // namespace
