// Texture storage and its version, uploads read back texel for texel, and texture units as a
// stack on GL_ACTIVE_TEXTURE with sampler uniforms read back.
#include "support/TestSupport.h"

#include <opengl/Framebuffer.h>
#include <opengl/Program.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <cstring>

using namespace Tavrin::OpenGL;
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

GLint integer(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
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
        EXPECT_EQ(texture.getSize(), chain.first);
        EXPECT_EQ(texture.getMipLevelCount() * 100 + texture.getFullMipLevelCount(), chain.second * 101);
    }
    EXPECT_EQ(texture.getVersion(), 4u);
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

TEST(Texture2D, UploadsAndDownloadsReadBackTexelForTexel)
{
    Texture2D texture;
    auto rgb = pattern({3, 2}, GL_RGB8);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1); // rows of 9 bytes: the caller sets the alignment
    texture.uploadImage(rgb, 0, GL_TEXTURE_2D);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    EXPECT_TRUE(sameImage(*texture.downloadImage(0), *rgb));
    // downloadData keeps the pack alignment: rows padded to 12 bytes; a short buffer is refused.
    unsigned char padded[24] = {};
    texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded, 24);
    EXPECT_EQ(std::memcmp(padded + 12, static_cast<unsigned char*>(rgb->getData()) + 9, 9), 0);
    EXPECT_EQ(thrownBy([&] { texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded, 20); }),
              "GLCheck: Invalid operation");

    // An image of the same size and format keeps the storage and its chain; any other replaces it.
    texture.reserveStorage(2, Eigen::Vector2i(4, 4), GL_RGBA8);
    const unsigned int name = texture.getHandle();
    const auto same = pattern({4, 4}, GL_RGBA8, 9), level1 = pattern({2, 2}, GL_RGBA8, 90);
    texture.uploadImage(same, 0, GL_TEXTURE_2D);
    texture.uploadData(level1->getSize(), level1->getData(), GL_RGBA, GL_UNSIGNED_BYTE, 1, GL_TEXTURE_2D);
    EXPECT_EQ(texture.getHandle(), name);
    EXPECT_TRUE(sameImage(*texture.downloadImage(0), *same) && sameImage(*texture.downloadImage(1), *level1));
    texture.uploadImage(pattern({4, 8}, GL_RGBA8), 0, GL_TEXTURE_2D); // size changed
    texture.uploadImage(pattern({4, 8}, GL_RGB8), 0, GL_TEXTURE_2D);  // format changed
    EXPECT_EQ(texture.getVersion() * 10 + unsigned(texture.getMipLevelCount()), 41u);

    // Other image formats throw before any GL call: the pending error stays for the caller; every
    // Image2D format reads back, others do not.
    for (unsigned int format : {GL_R8, GL_RG8, GL_R32F, GL_RGBA32F, GL_RGBA16F})
    {
        glLineWidth(-1.0f);
        const auto image = std::make_shared<Image2D>(Eigen::Vector2i(3, 3), format == GL_RGBA16F ? GL_R8 : format);
        EXPECT_EQ(TavrinTest::outcomeOf([&] { texture.uploadImage(image, 0, GL_TEXTURE_2D); }).thrown,
                  "Unsupported image format.");
        EXPECT_EQ(glGetError(), GLenum(GL_INVALID_VALUE));
        texture.reserveStorage(1, Eigen::Vector2i(3, 1), format);
        EXPECT_EQ(thrownBy([&] { texture.downloadImage(0); }), format == GL_RGBA16F ? "Unsupported image format." : "");
    }
}

TEST(Texture2D, DestructorsReportAPendingErrorWithoutThrowing)
{
    auto texture = std::make_unique<Texture2D>();
    auto framebuffer = std::make_unique<Framebuffer>();
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] {
        glLineWidth(-1.0f);
        texture.reset();
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
        "#version 430\nuniform sampler2D first, second, many[2];\nlayout(rgba32f) uniform image2D picture;\n"
        "layout(r32ui) uniform readonly uimage2DMSArray last;\nout vec4 color;\n"
        "void main() { color = texture(first, vec2(0.0)) + texture(second, vec2(0.0)) + texture(many[1], vec2(0.0))\n"
        "  + imageLoad(picture, ivec2(0)) + float(imageLoad(last, ivec3(0), 0).x); }\n",
        ""));
    const auto uniform = [&](const char* name) {
        GLint value = -1;
        glGetUniformiv(program->getHandle(), program->getUniformLocation(name), &value);
        return value;
    };
    const auto boundOn = [](int unit) {
        const GLint active = integer(GL_ACTIVE_TEXTURE);
        glActiveTexture(GLenum(GL_TEXTURE0 + unit));
        const GLuint bound = GLuint(integer(GL_TEXTURE_BINDING_2D));
        glActiveTexture(GLenum(active));
        return bound;
    };
    Texture2D textures[3];
    glActiveTexture(GL_TEXTURE0);
    // An array element is bound as a sampler; an unknown or empty name binds and sets nothing.
    const char* names[] = {"first", "second", "many[1]", "absent", ""};
    for (int i = 0; i < 5; ++i)
        textures[i % 3].pushToProgram(program.get(), names[i]);
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 5);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(boundOn(i), textures[i % 3].getHandle()) << i;
    EXPECT_EQ(uniform("first") * 100 + uniform("second") * 10 + uniform("many[1]"), 12);
    for (int i = 0; i < 5; ++i)
        textures[0].popFromProgram();
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), 0);
    EXPECT_EQ(boundOn(2), textures[2].getHandle());                                      // pops unbind nothing
    EXPECT_EQ(thrownBy([&] { textures[0].popFromProgram(); }), "GLCheck: Invalid enum"); // no lower bound
    for (const char* image : {"picture", "last"}) // the first and the last image type
        EXPECT_EQ(thrownBy([&] { textures[1].pushToProgram(program.get(), image); }), "Unsupported bindImage");
    // The push from the last unit selects one unit more; the next throws with binding and uniform set.
    const GLint limit = integer(GL_MAX_TEXTURE_IMAGE_UNITS);
    glActiveTexture(GLenum(GL_TEXTURE0 + limit - 1));
    textures[0].pushToProgram(program.get(), "first");
    EXPECT_EQ(thrownBy([&] { textures[1].pushToProgram(program.get(), "second"); }), "Too many textures");
    EXPECT_EQ(Texture2D::getActiveTextureIndex(), limit);
    EXPECT_EQ(uniform("second"), limit);
    EXPECT_EQ(boundOn(limit), textures[1].getHandle());
    glActiveTexture(GL_TEXTURE0);
    TavrinTest::drainGLErrors();
}
