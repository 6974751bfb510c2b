// Texture storage, the version counter, the level queries and uploads read back texel for texel.
#include "support/TestSupport.h"

#include <opengl/Framebuffer.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

using Tavrin::Image2D;
using Tavrin::OpenGL::Texture2D;
using TavrinTest::StreamCapture;

namespace
{
// An image whose every byte differs from its neighbours, so a shifted row shows up.
std::shared_ptr<Image2D> patternImage(const Eigen::Vector2i& size, unsigned int format, unsigned char seed = 1)
{
    auto image = std::make_shared<Image2D>(size, format);
    auto* bytes = static_cast<unsigned char*>(image->getData());
    for (std::size_t i = 0; i < image->getByteCount(); ++i)
        bytes[i] = static_cast<unsigned char>(seed + 7 * i);
    return image;
}

bool sameBytes(const Image2D& a, const Image2D& b)
{
    return a.getSize() == b.getSize() && a.getInternalFormat() == b.getInternalFormat() &&
           a.getByteCount() == b.getByteCount() && std::memcmp(a.getData(), b.getData(), a.getByteCount()) == 0;
}

// What a checked failure looks like to a host: the warning line (this build's line number) and the text.
void expectCheckFailure(const std::string& out, const std::string& thrown, const std::string& file,
                        const std::string& message)
{
    EXPECT_TRUE(std::regex_match(out, std::regex("WARNING: " + file + " \\(line [0-9]+\\) " + message))) << out;
    EXPECT_EQ(thrown, message);
}

struct LevelCase
{
    Eigen::Vector2i size;
    int fullCount;
};

class Texture2DLevels : public ::testing::TestWithParam<LevelCase>
{
};
} // namespace

TEST(Texture2D, StorageReplacesTheNameAndRaisesTheVersion)
{
    Texture2D texture;
    EXPECT_NE(texture.getHandle(), 0u);
    EXPECT_EQ(texture.getTarget(), unsigned(GL_TEXTURE_2D));
    EXPECT_EQ(texture.getVersion(), 0u);
    EXPECT_EQ(texture.getSize(), Eigen::Vector2i(0, 0));
    EXPECT_EQ(texture.getMipLevelCount(), 0);
    EXPECT_EQ(texture.getFullMipLevelCount(), 0);

    texture.reserveStorage(3, Eigen::Vector2i(64, 32), GL_RGBA8);
    EXPECT_EQ(texture.getSize(), Eigen::Vector2i(64, 32));
    EXPECT_EQ(texture.getInternalFormat(), GL_RGBA8);
    EXPECT_EQ(texture.getMipLevelCount(), 3);
    EXPECT_EQ(texture.getVersion(), 1u);
    EXPECT_EQ(glIsTexture(texture.getHandle()), GL_TRUE);

    // A failed allocation throws at its check: the name is new, the version unchanged.
    std::string thrown;
    StreamCapture out(std::cout);
    try
    {
        texture.reserveStorage(1, Eigen::Vector2i(0, 0), GL_RGBA8);
    }
    catch (const std::runtime_error& error)
    {
        thrown = error.what();
    }
    expectCheckFailure(out.text(), thrown, "Texture2D.cpp", "GLCheck: Invalid value");
    EXPECT_EQ(texture.getVersion(), 1u);
    EXPECT_EQ(texture.getMipLevelCount(), 0);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_P(Texture2DLevels, CountsStoredAndFullLevels)
{
    Texture2D texture;
    texture.reserveStorage(GetParam().fullCount, GetParam().size, GL_R8);
    EXPECT_EQ(texture.getFullMipLevelCount(), GetParam().fullCount);
    EXPECT_EQ(texture.getMipLevelCount(), GetParam().fullCount);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

// Long thin textures keep the larger side's chain without allocating megabytes.
INSTANTIATE_TEST_SUITE_P(RealGL, Texture2DLevels,
                         ::testing::Values(LevelCase{{1, 1}, 1}, LevelCase{{640, 480}, 10}, LevelCase{{1024, 1024}, 11},
                                           LevelCase{{8192, 1}, 13}, LevelCase{{1, 8192}, 13}));

TEST(Texture2D, MipLevelCountEndsAtGLsLargestLevel)
{
    GLint maxSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
    int levels = 0;
    for (GLint side = maxSize; side > 0; side >>= 1)
        ++levels;
    Texture2D texture;
    texture.reserveStorage(levels, Eigen::Vector2i(maxSize, 1), GL_R8);
    EXPECT_EQ(texture.getMipLevelCount(), levels);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)); // the rejected query was never made
}

TEST(Texture2D, UploadsReadBackTexelForTexel)
{
    // RGB rows of 3 texels are 9 bytes: the caller sets the unpack alignment.
    Texture2D texture;
    auto rgb = patternImage({3, 2}, GL_RGB8);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    texture.uploadImage(rgb, 0, GL_TEXTURE_2D);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    EXPECT_TRUE(sameBytes(*texture.downloadImage(0), *rgb));
    GLint packAlignment = 0;
    glGetIntegerv(GL_PACK_ALIGNMENT, &packAlignment);
    EXPECT_EQ(packAlignment, 4); // restored by downloadImage

    // downloadData takes the pack state as it is: rows padded to 12 bytes.
    std::vector<unsigned char> padded(24, 0xEE);
    texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded.data(), int(padded.size()));
    const auto* bytes = static_cast<const unsigned char*>(rgb->getData());
    EXPECT_TRUE(std::equal(bytes, bytes + 9, padded.begin()));
    EXPECT_TRUE(std::equal(bytes + 9, bytes + 18, padded.begin() + 12));

    // Too small a buffer is refused by GL, not overrun.
    StreamCapture out(std::cout);
    EXPECT_THROW(texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded.data(), 20), std::runtime_error);

    auto rgba = patternImage({5, 3}, GL_RGBA8, 40);
    texture.uploadImage(rgba, 0, GL_TEXTURE_2D);
    EXPECT_TRUE(sameBytes(*texture.downloadImage(0), *rgba));

    // uploadData into the second level of an existing chain.
    texture.reserveStorage(2, Eigen::Vector2i(4, 4), GL_RGBA8);
    auto level1 = patternImage({2, 2}, GL_RGBA8, 90);
    texture.uploadData(level1->getSize(), level1->getData(), GL_RGBA, GL_UNSIGNED_BYTE, 1, GL_TEXTURE_2D);
    EXPECT_TRUE(sameBytes(*texture.downloadImage(1), *level1));
}

TEST(Texture2D, UploadImageAllocatesOnlyWhenSizeOrFormatChange)
{
    Texture2D texture;
    texture.uploadImage(patternImage({4, 4}, GL_RGBA8), 0, GL_TEXTURE_2D);
    const unsigned int handle = texture.getHandle();
    texture.uploadImage(patternImage({4, 4}, GL_RGBA8, 9), 0, GL_TEXTURE_2D);
    EXPECT_EQ(texture.getVersion(), 1u);
    EXPECT_EQ(texture.getHandle(), handle);

    texture.uploadImage(patternImage({4, 8}, GL_RGBA8), 0, GL_TEXTURE_2D); // size changed
    EXPECT_EQ(texture.getVersion(), 2u);
    texture.uploadImage(patternImage({4, 8}, GL_RGB8), 0, GL_TEXTURE_2D); // format changed
    EXPECT_EQ(texture.getVersion(), 3u);
    EXPECT_EQ(texture.getInternalFormat(), GL_RGB8);
    EXPECT_EQ(texture.getMipLevelCount(), 1);

    // A fitting image keeps the existing chain.
    texture.reserveStorage(3, Eigen::Vector2i(4, 4), GL_RGBA8);
    texture.uploadImage(patternImage({4, 4}, GL_RGBA8), 0, GL_TEXTURE_2D);
    EXPECT_EQ(texture.getVersion(), 4u);
    EXPECT_EQ(texture.getMipLevelCount(), 3);
}

TEST(Texture2D, UnsupportedImageFormatThrowsBeforeAnyGLCall)
{
    Texture2D texture;
    texture.reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA8);
    for (unsigned int format : {GL_R8, GL_RG8, GL_R32F, GL_RGBA32F})
    {
        // A pending error would surface at the first checked GL call: none may be made.
        glLineWidth(-1.0f);
        StreamCapture out(std::cout);
        try
        {
            texture.uploadImage(std::make_shared<Image2D>(Eigen::Vector2i(3, 3), format), 0, GL_TEXTURE_2D);
            ADD_FAILURE() << "no exception for format " << format;
        }
        catch (const std::runtime_error& error)
        {
            EXPECT_EQ(std::string(error.what()), "Unsupported image format.");
        }
        EXPECT_EQ(out.text(), "");
        EXPECT_EQ(glGetError(), GLenum(GL_INVALID_VALUE));
        EXPECT_EQ(texture.getVersion(), 1u);
        EXPECT_EQ(texture.getSize(), Eigen::Vector2i(2, 2));
    }

    // Reading back needs an Image2D format too.
    Texture2D half;
    half.reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA16F);
    EXPECT_THROW(half.downloadImage(0), std::runtime_error);
    EXPECT_THROW(Texture2D().downloadImage(0), std::runtime_error); // no storage
}

TEST(Texture2D, BindsOnTheActiveUnit)
{
    Texture2D texture;
    texture.bind();
    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ(GLuint(bound), texture.getHandle());
    Texture2D::unbind();
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ(bound, 0);
}

TEST(Texture2D, DestructorsReportAPendingErrorWithoutThrowing)
{
    auto texture = std::make_unique<Texture2D>();
    auto framebuffer = std::make_unique<Tavrin::OpenGL::Framebuffer>();
    StreamCapture out(std::cout);
    glLineWidth(-1.0f);
    texture.reset();
    glLineWidth(-1.0f);
    framebuffer.reset();
    EXPECT_TRUE(
        std::regex_match(out.text(), std::regex("WARNING: Texture2D\\.cpp \\(line [0-9]+\\) GLCheck: Invalid value"
                                                "WARNING: Framebuffer\\.cpp \\(line [0-9]+\\) GLCheck: "
                                                "Invalid value")))
        << out.text();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}
