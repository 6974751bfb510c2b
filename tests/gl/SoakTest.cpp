// A long run of render device updates, texture re-allocations and program builds must end with the
// same GL objects alive and the process's memory flat (font cache fills: FontTest).
#include "DeviceTestSupport.h"
#include "support/ProcessMemory.h"

#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/GLSLException.h>

#include <map>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
// Scales its input by 1 + round % 3 into 1 + round / 50 % 3 levels of its output.
struct ScaleDevice : HostDevice<FramebufferTexture2DDevice>
{
    ScaleDevice()
        : HostDevice(std::shared_ptr<Program>(Program::loadFromSource(
                         "", "", "", "",
                         "#version 430\nuniform sampler2D source;\nuniform float factor;\nout vec4 result;\n"
                         "void main() { result = texelFetch(source, ivec2(gl_FragCoord.xy), 0) * factor; }\n",
                         "")),
                     1, 1)
    {
        inputNames = {"source"};
        before = [this] { program->uniform("factor", float(1 + round % 3)); };
    }
    using FramebufferTexture2DDevice::setInputTexture;
    using FramebufferTexture2DDevice::setOutputTexture;
    int getMipLevelCount() const override { return 1 + round / 50 % 3; }
    int round = 0;
};
} // namespace

// A tenth of the rounds fill the caches; the rest must leave the GL objects (counted by kind:
// re-allocations take new names) and the process's memory as they were. Caches settle in steps:
// up to 4.4 MiB resident over rounds that leak nothing (ASan checks every allocation), 3.5 MiB
// under Wine; a margin of 16 MiB still catches kilobytes a round.
TEST(Soak, DeviceUpdatesTextureReallocationsAndProgramBuilds)
{
    const Level input = patternLevel(Eigen::Vector2i(8, 8), 3);
    ScaleDevice scale;
    auto scaled = std::make_shared<Texture2D>();
    scale.setInputTexture(0, textureWith(input));
    scale.setOutputTexture(0, scaled);
    Texture2D texture;
    const unsigned int formats[] = {GL_RGBA8, GL_RGBA32F, GL_R8, GL_RG8};
    std::vector<unsigned char> bytes(32 * 32 * 4);
    const auto round = [&](int i) {
        scale.round = i;
        if (i % 500 == 250) // a new output storage
            scale.setOutputTexture(0, scaled = std::make_shared<Texture2D>());
        ASSERT_TRUE(scale.update());
        const Eigen::Vector2i size(1 + i % 32, 1 + (i / 32) % 32);
        std::fill(bytes.begin(), bytes.end(), static_cast<unsigned char>(i));
        texture.reserveStorage(1 + i % (size.maxCoeff() >= 4 ? 3 : size.maxCoeff() >= 2 ? 2 : 1), size, formats[i % 4]);
        texture.uploadData(size, bytes.data(), GL_RGBA, GL_UNSIGNED_BYTE, 0, GL_TEXTURE_2D);
        if (i % 30 == 0) // half the builds fail: the factory releases what it built
            delete Program::loadFromSource("", "", "", "", "#version 430\nvoid main() {}\n", "");
        if (i % 30 == 15)
        {
            EXPECT_THROW(Program::loadFromSource("", "", "", "", "#version 430\nvoid main() { x; }\n", ""),
                         GLSLException);
        }
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
    const Level product = download(*scaled, 0);
    for (std::size_t t = 0; t < input.texels.size(); ++t)
        ASSERT_EQ(product.texels[t][1], input.texels[t][1] * float(1 + 2999 % 3)) << "texel " << t;
    std::vector<unsigned char> back(bytes.size());
    texture.downloadData(0, GL_RGBA, GL_UNSIGNED_BYTE, back.data(), int(back.size()));
    EXPECT_EQ(back[0] + texture.getVersion(), 2999 % 256 + 3000u);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    glActiveTexture(GL_TEXTURE0);
}
