// Texture storage, the version counter, level queries, uploads read back texel for texel, and
// the shared handles.
#include "support/TestSupport.h"

#include <opengl/Framebuffer.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <regex>
#include <stdexcept>

using namespace Tavrin::OpenGL;
using Tavrin::Image2D;
using TavrinTest::StreamCapture;

namespace
{
// An image whose bytes all differ from their neighbours, so a shifted row shows up.
std::shared_ptr<Image2D> pattern(Eigen::Vector2i size, unsigned int format, unsigned char seed = 1)
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

// The warning line of a failed check in `file` (this build's line numbers) followed by `message`.
std::regex checkLine(const std::string& file, const std::string& message)
{
    return std::regex("WARNING: " + file + " \\(line [0-9]+\\) " + message);
}

// Runs `action`, capturing std::cout into `out`, and returns the exception text ("" if none).
template <typename Action> std::string thrownBy(Action action, std::string& out)
{
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf(action);
    out = outcome.out;
    return outcome.thrown;
}

class Texture2DLevels : public ::testing::TestWithParam<std::pair<Eigen::Vector2i, int>>
{
};
} // namespace

TEST(Texture2D, StorageReplacesTheNameAndRaisesTheVersion)
{
    Texture2D texture;
    EXPECT_NE(texture.getHandle(), 0u);
    EXPECT_EQ(texture.getSize(), Eigen::Vector2i(0, 0));
    EXPECT_EQ(texture.getMipLevelCount() + texture.getFullMipLevelCount() + int(texture.getVersion()), 0);

    texture.reserveStorage(3, Eigen::Vector2i(64, 32), GL_RGBA8);
    EXPECT_EQ(texture.getSize(), Eigen::Vector2i(64, 32));
    EXPECT_EQ(texture.getInternalFormat(), GL_RGBA8);
    EXPECT_EQ(texture.getMipLevelCount(), 3);
    EXPECT_EQ(texture.getVersion(), 1u);

    // A failed allocation throws at its check: new name without storage, version unchanged.
    std::string out;
    EXPECT_EQ(thrownBy([&] { texture.reserveStorage(1, Eigen::Vector2i(0, 0), GL_RGBA8); }, out),
              "GLCheck: Invalid value");
    EXPECT_TRUE(std::regex_match(out, checkLine("Texture2D\\.cpp", "GLCheck: Invalid value"))) << out;
    EXPECT_EQ(texture.getVersion(), 1u);
    EXPECT_EQ(texture.getMipLevelCount(), 0);
}

TEST_P(Texture2DLevels, CountsStoredAndFullLevels)
{
    Texture2D texture;
    texture.reserveStorage(GetParam().second, GetParam().first, GL_R8);
    EXPECT_EQ(texture.getFullMipLevelCount(), GetParam().second);
    EXPECT_EQ(texture.getMipLevelCount(), GetParam().second);
}

// Thin textures give the larger side's chain without allocating megabytes.
INSTANTIATE_TEST_SUITE_P(RealGL, Texture2DLevels,
                         ::testing::Values(std::make_pair(Eigen::Vector2i(1, 1), 1),
                                           std::make_pair(Eigen::Vector2i(640, 480), 10),
                                           std::make_pair(Eigen::Vector2i(1024, 1024), 11),
                                           std::make_pair(Eigen::Vector2i(1, 8192), 13)));

TEST(Texture2D, MipLevelCountEndsAtGLsLargestLevel)
{
    GLint maxSize = 0, levels = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
    for (GLint side = maxSize; side > 0; side >>= 1)
        ++levels;
    Texture2D texture;
    texture.reserveStorage(levels, Eigen::Vector2i(maxSize, 1), GL_R8);
    EXPECT_EQ(texture.getMipLevelCount(), levels);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)); // the query GL would reject is never made
}

TEST(Texture2D, UploadsReadBackTexelForTexel)
{
    // Rows of 3 RGB texels are 9 bytes: the caller sets the unpack alignment.
    Texture2D texture;
    auto rgb = pattern({3, 2}, GL_RGB8);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    texture.uploadImage(rgb, 0, GL_TEXTURE_2D);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    EXPECT_TRUE(sameImage(*texture.downloadImage(0), *rgb));

    // downloadData keeps the default pack alignment: rows padded to 12 bytes; a short buffer is refused.
    unsigned char padded[24] = {};
    texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded, 24);
    EXPECT_EQ(std::memcmp(padded + 12, static_cast<unsigned char*>(rgb->getData()) + 9, 9), 0);
    StreamCapture out(std::cout);
    EXPECT_THROW(texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded, 20), std::runtime_error);

    auto rgba = pattern({5, 3}, GL_RGBA8, 40);
    texture.uploadImage(rgba, 0, GL_TEXTURE_2D);
    EXPECT_TRUE(sameImage(*texture.downloadImage(0), *rgba));
    texture.reserveStorage(2, Eigen::Vector2i(4, 4), GL_RGBA8);
    auto level1 = pattern({2, 2}, GL_RGBA8, 90);
    texture.uploadData(level1->getSize(), level1->getData(), GL_RGBA, GL_UNSIGNED_BYTE, 1, GL_TEXTURE_2D);
    EXPECT_TRUE(sameImage(*texture.downloadImage(1), *level1));
}

TEST(Texture2D, UploadImageAllocatesOnlyWhenSizeOrFormatChange)
{
    Texture2D texture;
    texture.uploadImage(pattern({4, 4}, GL_RGBA8), 0, GL_TEXTURE_2D);
    const unsigned int handle = texture.getHandle();
    texture.uploadImage(pattern({4, 4}, GL_RGBA8, 9), 0, GL_TEXTURE_2D);
    EXPECT_EQ(texture.getVersion(), 1u);
    EXPECT_EQ(texture.getHandle(), handle);
    texture.uploadImage(pattern({4, 8}, GL_RGBA8), 0, GL_TEXTURE_2D); // size changed
    texture.uploadImage(pattern({4, 8}, GL_RGB8), 0, GL_TEXTURE_2D);  // format changed
    EXPECT_EQ(texture.getVersion(), 3u);
    EXPECT_EQ(texture.getInternalFormat(), GL_RGB8);

    texture.reserveStorage(3, Eigen::Vector2i(4, 4), GL_RGBA8); // a fitting image keeps the chain
    texture.uploadImage(pattern({4, 4}, GL_RGBA8), 0, GL_TEXTURE_2D);
    EXPECT_EQ(texture.getVersion(), 4u);
    EXPECT_EQ(texture.getMipLevelCount(), 3);
}

TEST(Texture2D, UnsupportedImageFormatThrowsBeforeAnyGLCall)
{
    Texture2D texture;
    texture.reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA8);
    for (unsigned int format : {GL_R8, GL_RG8, GL_R32F, GL_RGBA32F})
    {
        glLineWidth(-1.0f); // a checked GL call would report this pending error first
        std::string out;
        const auto image = std::make_shared<Image2D>(Eigen::Vector2i(3, 3), format);
        EXPECT_EQ(thrownBy([&] { texture.uploadImage(image, 0, GL_TEXTURE_2D); }, out), "Unsupported image format.");
        EXPECT_EQ(out, "");
        EXPECT_EQ(glGetError(), GLenum(GL_INVALID_VALUE));
        EXPECT_EQ(texture.getVersion(), 1u);
    }
    Texture2D half; // reading back needs an Image2D format too
    half.reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA16F);
    EXPECT_THROW(half.downloadImage(0), std::runtime_error);
}

TEST(Texture2D, DestructorsReportAPendingErrorWithoutThrowing)
{
    auto texture = std::make_unique<Texture2D>();
    auto framebuffer = std::make_unique<Framebuffer>();
    StreamCapture out(std::cout);
    glLineWidth(-1.0f);
    texture.reset();
    glLineWidth(-1.0f);
    framebuffer.reset();
    EXPECT_EQ(std::regex_replace(out.text(), std::regex("line [0-9]+"), "line N"),
              "WARNING: Texture2D.cpp (line N) GLCheck: Invalid value"
              "WARNING: Framebuffer.cpp (line N) GLCheck: Invalid value");
}

TEST(SharedHandles, DefaultConstructionOwnsAnObjectAndTheLastHolderDeletesIt)
{
    Texture2DPtrAI texture;
    ASSERT_TRUE(texture);
    EXPECT_EQ(texture->getVersion(), 0u);
    texture->reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA8);
    const GLuint name = texture->getHandle();
    Texture2DPtrAI copy = texture;
    texture = Texture2DPtrAI(); // a fresh texture; `copy` still holds the first
    EXPECT_EQ(glIsTexture(name), GL_TRUE);
    copy.reset();
    EXPECT_EQ(glIsTexture(name), GL_FALSE);

    FramebufferPtrAI framebuffer;
    framebuffer->bind();
    Framebuffer::unbind();
    const GLuint framebufferName = framebuffer->getHandle();
    framebuffer.reset();
    EXPECT_EQ(glIsFramebuffer(framebufferName), GL_FALSE);

    Tavrin::Image2DPtrAI image;
    ASSERT_TRUE(image);
    EXPECT_EQ(image->getSize(), Eigen::Vector2i(0, 0));
}

TEST(SharedHandles, ContextNoticesReallocationEvenUnderTheSameName)
{
    Texture2DBaseContext<std::shared_ptr<Texture2D>> context{Texture2DPtrAI()};
    EXPECT_FALSE(context.isConsistent()); // never made consistent
    context.makeConsistent();
    EXPECT_TRUE(context.isConsistent());
    context.texture->reserveStorage(1, Eigen::Vector2i(4, 4), GL_RGBA8);
    context.handle = context.texture->getHandle(); // as if GL had handed the old name back
    EXPECT_FALSE(context.isConsistent());
    context.makeConsistent();
    EXPECT_TRUE(context.isConsistent());

    auto moved = std::move(context); // empties the pointer, keeps the numbers
    EXPECT_FALSE(context.texture);
    EXPECT_EQ(context.version, 1u);

    Texture2DBaseContext<std::shared_ptr<const Texture2D>> empty{nullptr, 7, 9};
    EXPECT_TRUE(empty.isConsistent());
    empty.makeConsistent();
    EXPECT_EQ(empty.handle + empty.version, 16u);
    empty.texture = moved.texture;
    EXPECT_FALSE(empty.isConsistent());
    empty.makeConsistent();
    EXPECT_TRUE(empty.isConsistent());
}
