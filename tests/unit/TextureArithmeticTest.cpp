// Context-free parts of textures and framebuffers: the full mip chain arithmetic and the
// completeness texts.
#include <opengl/Framebuffer.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <string>

using Tavrin::OpenGL::Framebuffer;
using Tavrin::OpenGL::Texture2D;

TEST(Texture2DArithmetic, FullMipLevelCountKeepsItsMixedPrecision)
{
    EXPECT_EQ(Texture2D::fullMipLevelCount(1), 1);
    EXPECT_EQ(Texture2D::fullMipLevelCount(640), 10);
    EXPECT_EQ(Texture2D::fullMipLevelCount(1024), 11);
    EXPECT_EQ(Texture2D::fullMipLevelCount(8192), 13); // one less than the exact chain
    EXPECT_EQ(Texture2D::fullMipLevelCount(32768), 15);
    EXPECT_EQ(Texture2D::fullMipLevelCount(0), 0); // no storage: no level
    EXPECT_EQ(Texture2D::fullMipLevelCount(-3), 0);

    // Everywhere else up to 65535 the result is the exact chain length, the bit length.
    for (int side = 1; side <= 65535; ++side)
    {
        int bits = 0;
        for (int rest = side; rest > 0; rest >>= 1)
            ++bits;
        const int expected = (side == 8192 || side == 32768) ? bits - 1 : bits;
        ASSERT_EQ(Texture2D::fullMipLevelCount(side), expected) << "side " << side;
    }
}

TEST(FramebufferStatus, EveryStatusHasItsExactText)
{
    const struct
    {
        unsigned int status;
        const char* text;
    } table[] = {
        {GL_FRAMEBUFFER_INCOMPLETE_ATTACHMENT, "Framebuffer incomplete: Incomplete attachment"},
        {GL_FRAMEBUFFER_INCOMPLETE_MISSING_ATTACHMENT, "Framebuffer incomplete: Missing attachment"},
        {GL_FRAMEBUFFER_INCOMPLETE_DRAW_BUFFER, "Framebuffer incomplete: Missing drawbuffer"},
        {GL_FRAMEBUFFER_INCOMPLETE_READ_BUFFER, "Framebuffer incomplete: Missing readbuffer"},
        {GL_FRAMEBUFFER_UNSUPPORTED, "Framebuffer unsupported"},
        {GL_FRAMEBUFFER_INCOMPLETE_MULTISAMPLE, "Framebuffer incomplete (Multisample)"},
        {0, "Framebuffer Object Error"},
        {GL_FRAMEBUFFER_UNDEFINED, "Framebuffer Object Error"},
        {GL_FRAMEBUFFER_INCOMPLETE_LAYER_TARGETS, "Framebuffer Object Error"},
    };
    EXPECT_EQ(Framebuffer::statusMessage(GL_FRAMEBUFFER_COMPLETE), nullptr);
    for (const auto& row : table)
        EXPECT_EQ(std::string(Framebuffer::statusMessage(row.status)), row.text) << std::hex << row.status;
}
