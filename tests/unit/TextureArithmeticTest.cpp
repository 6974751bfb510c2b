// Context-free parts of textures and framebuffers: the full mip chain arithmetic and the
// completeness texts.
#include <opengl/Framebuffer.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

using Tavrin::OpenGL::Framebuffer;
using Tavrin::OpenGL::Texture2D;

TEST(Texture2DArithmetic, FullMipLevelCountKeepsItsMixedPrecision)
{
    EXPECT_EQ(Texture2D::fullMipLevelCount(0), 0); // no storage: no level
    EXPECT_EQ(Texture2D::fullMipLevelCount(-3), 0);
    // Up to 65535 the result is the exact chain length (the bit length) but for 8192 and 32768.
    for (int side = 1; side <= 65535; ++side)
    {
        int bits = 0;
        for (int rest = side; rest > 0; rest >>= 1)
            ++bits;
        ASSERT_EQ(Texture2D::fullMipLevelCount(side), side == 8192 || side == 32768 ? bits - 1 : bits) << side;
    }
}

TEST(FramebufferStatus, EveryStatusHasItsExactText)
{
    EXPECT_EQ(Framebuffer::statusMessage(GL_FRAMEBUFFER_COMPLETE), nullptr);
    const std::pair<unsigned int, std::string> table[] = {
        {GL_FRAMEBUFFER_INCOMPLETE_ATTACHMENT, "Framebuffer incomplete: Incomplete attachment"},
        {GL_FRAMEBUFFER_INCOMPLETE_MISSING_ATTACHMENT, "Framebuffer incomplete: Missing attachment"},
        {GL_FRAMEBUFFER_INCOMPLETE_DRAW_BUFFER, "Framebuffer incomplete: Missing drawbuffer"},
        {GL_FRAMEBUFFER_INCOMPLETE_READ_BUFFER, "Framebuffer incomplete: Missing readbuffer"},
        {GL_FRAMEBUFFER_UNSUPPORTED, "Framebuffer unsupported"},
        {GL_FRAMEBUFFER_INCOMPLETE_MULTISAMPLE, "Framebuffer incomplete (Multisample)"},
        {0, "Framebuffer Object Error"},
        {GL_FRAMEBUFFER_UNDEFINED, "Framebuffer Object Error"}};
    for (const auto& row : table)
        EXPECT_EQ(Framebuffer::statusMessage(row.first), row.second) << std::hex << row.first;
}
