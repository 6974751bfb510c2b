// Texture storage and its version, uploads read back, and texture units as a stack.
#include "DeviceTestSupport.h"

#include <cstring>

using namespace Tavrin::OpenGL;
using DeviceTest::integer;
using Tavrin::Image2D;
using TavrinTest::thrownBy;

namespace
{
// An image whose bytes all differ from their neighbours, so a shifted row shows up.
std::shared_ptr<Image2D> pattern(Eigen::Vector2i size, unsigned int format, int seed = 1)
{
    auto image = std::make_shared<Image2D>(size, format);
    for (std::size_t i = 0; i < image->getByteCount(); ++i)
        static_cast<unsigned char*>(image->getData())[i] = static_cast<unsigned char>(seed + 7 * i);
    return image;
}

bool sameImage(const Image2D& a, const Image2D& b)
{
    return a.getSize() == b.getSize() && a.getInternalFormat() == b.getInternalFormat() &&
           std::memcmp(a.getData(), b.getData(), a.getByteCount()) == 0;
}
} // namespace

TEST(Texture2D, StorageGivesANewNameAndVersionAndLevelsAreCountedByGL)
{
    Texture2D texture;
    EXPECT_EQ(texture.getMipLevelCount() + texture.getFullMipLevelCount() + int(texture.getVersion()), 0);
    const std::pair<Eigen::Vector2i, int> chains[] = {{{1, 1}, 1}, {{640, 480}, 10}, {{3, 1024}, 11}, {{1, 8192}, 13}};
    for (const auto& chain : chains)
    {
        const unsigned int name = texture.getHandle();
        texture.reserveStorage(chain.second, chain.first, GL_R8);
        EXPECT_FALSE(glIsTexture(name));
        EXPECT_TRUE(texture.getSize() == chain.first);
        EXPECT_EQ(texture.getMipLevelCount() * 100 + texture.getFullMipLevelCount(), chain.second * 101);
    }
    // A chain down to GL's largest level ends there without the query GL would reject.
    GLint levels = 0;
    for (GLint side = integer(GL_MAX_TEXTURE_SIZE); side > 0; side >>= 1)
        ++levels;
    texture.reserveStorage(levels, Eigen::Vector2i(integer(GL_MAX_TEXTURE_SIZE), 1), GL_R8);
    EXPECT_EQ(texture.getMipLevelCount(), levels);
    // A failed allocation throws at its check: a new name without storage, the version unchanged.
    EXPECT_EQ(thrownBy([&] { texture.reserveStorage(1, Eigen::Vector2i(0, 0), GL_RGBA8); }), "GLCheck: Invalid value");
    EXPECT_EQ(texture.getVersion() * 10 + unsigned(texture.getMipLevelCount()), 50u);
}

TEST(Texture2D, UploadsReadBackAndKeepOrReplaceTheStorage)
{
    // An image of the same size and format keeps the storage and its chain; any other replaces it.
    Texture2D texture;
    texture.reserveStorage(2, Eigen::Vector2i(4, 4), GL_RGBA8);
    const unsigned int name = texture.getHandle();
    const auto same = pattern({4, 4}, GL_RGBA8, 9), level1 = pattern({2, 2}, GL_RGBA8, 90),
               rgb = pattern({3, 2}, GL_RGB8);
    texture.uploadImage(same, 0, GL_TEXTURE_2D);
    texture.uploadData(level1->getSize(), level1->getData(), GL_RGBA, GL_UNSIGNED_BYTE, 1, GL_TEXTURE_2D);
    EXPECT_EQ(texture.getHandle(), name);
    EXPECT_TRUE(sameImage(*texture.downloadImage(0), *same) && sameImage(*texture.downloadImage(1), *level1));
    texture.uploadImage(pattern({4, 8}, GL_RGBA8), 0, GL_TEXTURE_2D); // size changed
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);                            // rows of 9 bytes: the caller sets the alignment
    texture.uploadImage(rgb, 0, GL_TEXTURE_2D);                       // format changed
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    EXPECT_EQ(texture.getVersion() * 10 + unsigned(texture.getMipLevelCount()), 31u);
    GLuint packBuffer = 0; // downloadImage packs tightly into client memory, then gives the host's state back
    glGenBuffers(1, &packBuffer);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, packBuffer);
    EXPECT_TRUE(sameImage(*texture.downloadImage(0), *rgb));
    EXPECT_EQ(integer(GL_PIXEL_PACK_BUFFER_BINDING) * 10 + integer(GL_PACK_ALIGNMENT), GLint(packBuffer) * 10 + 4);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glDeleteBuffers(1, &packBuffer);
    // downloadData keeps the pack alignment: rows padded to 12 bytes; a short buffer is refused.
    unsigned char padded[24] = {};
    texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded, 24);
    EXPECT_EQ(std::memcmp(padded + 12, static_cast<unsigned char*>(rgb->getData()) + 9, 9), 0);
    EXPECT_EQ(thrownBy([&] { texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded, 20); }),
              "GLCheck: Invalid operation");
    // Other image formats throw before any GL call: the pending error stays for the caller; every
    // Image2D format reads back, others do not.
    for (unsigned int format : {GL_R8, GL_RG8, GL_R32F, GL_RGBA32F, GL_RGBA16F})
    {
        glLineWidth(-1.0f);
        const auto image = std::make_shared<Image2D>(Eigen::Vector2i(3, 3), format == GL_RGBA16F ? GL_R8 : format);
        EXPECT_EQ(thrownBy([&] { texture.uploadImage(image, 0, GL_TEXTURE_2D); }), "Unsupported image format.");
        EXPECT_EQ(glGetError(), GLenum(GL_INVALID_VALUE));
        texture.reserveStorage(1, Eigen::Vector2i(3, 1), format);
        EXPECT_EQ(thrownBy([&] { texture.downloadImage(0); }), format == GL_RGBA16F ? "Unsupported image format." : "");
    }
    // Destructors report a pending error without throwing.
    auto doomed = std::make_unique<Texture2D>();
    auto framebuffer = std::make_unique<Framebuffer>();
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] {
        glLineWidth(-1.0f);
        doomed.reset();
        glLineWidth(-1.0f);
        framebuffer.reset();
    });
    EXPECT_EQ(TavrinTest::withoutLineNumbers(outcome.out) + outcome.thrown,
              "WARNING: Texture2D.cpp (line N) GLCheck: Invalid value"
              "WARNING: Framebuffer.cpp (line N) GLCheck: Invalid value");
}

TEST(Texture2D, PushesBindAndSetSamplersOnConsecutiveUnitsAndPopsStepBack)
{
    const std::unique_ptr<Program> program(Program::loadFromSource(
        "", "", "", "",
        "#version 430\nuniform sampler2D first, many[2];\nlayout(rgba32f) uniform image2D picture;\n"
        "layout(r32ui) uniform readonly uimage2DMSArray last;\nout vec4 color;\n"
        "void main() { color = texture(first, vec2(0.0)) + texture(many[1], vec2(0.0))\n"
        "  + imageLoad(picture, ivec2(0)) + float(imageLoad(last, ivec3(0), 0).x); }\n",
        ""));
    Texture2D textures[2];
    // An array element is bound as a sampler; an unknown or empty name still binds and takes a unit.
    glActiveTexture(GL_TEXTURE0);
    const char* names[] = {"many[1]", "absent", "", "first"};
    for (int i = 0; i < 4; ++i)
        textures[i % 2].pushToProgram(program.get(), names[i]);
    EXPECT_EQ(DeviceTest::uniformInt(*program, "first") * 10 + DeviceTest::uniformInt(*program, "many[1]"), 30);
    for (int unit = 3; unit >= 0; --unit)
    {
        EXPECT_EQ(Texture2D::getActiveTextureIndex(), unit + 1);
        textures[0].popFromProgram();
        EXPECT_EQ(GLuint(integer(GL_TEXTURE_BINDING_2D)), textures[unit % 2].getHandle()); // pops unbind nothing
    }
    EXPECT_EQ(thrownBy([&] { textures[0].popFromProgram(); }), "GLCheck: Invalid enum"); // no lower bound
    for (const char* image : {"picture", "last"}) // the first and the last image type
        EXPECT_EQ(thrownBy([&] { textures[1].pushToProgram(program.get(), image); }), "Unsupported bindImage");
    // The push from the last unit selects one unit more; the next throws with binding and uniform set.
    const GLint limit = integer(GL_MAX_TEXTURE_IMAGE_UNITS);
    glActiveTexture(GLenum(GL_TEXTURE0 + limit - 1));
    textures[0].pushToProgram(program.get(), "first");
    EXPECT_EQ(thrownBy([&] { textures[1].pushToProgram(program.get(), "first"); }), "Too many textures");
    EXPECT_EQ(Texture2D::getActiveTextureIndex() * 1000 + DeviceTest::uniformInt(*program, "first"), limit * 1001);
    EXPECT_EQ(GLuint(integer(GL_TEXTURE_BINDING_2D)), textures[1].getHandle());
    glActiveTexture(GL_TEXTURE0);
    TavrinTest::drainGLErrors();
}
