// The PtrAI handles and the texture slot record's consistency check.
#include <opengl/Framebuffer.h>
#include <opengl/Texture2D.h>

#include <core/Image2D.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <utility>

using namespace Tavrin::OpenGL;

TEST(SharedHandles, DefaultConstructionOwnsAnObjectAndTheLastHolderDeletesIt)
{
    Texture2DPtrAI texture;
    ASSERT_TRUE(texture);
    EXPECT_NE(texture->getHandle(), 0u);
    EXPECT_EQ(texture->getVersion(), 0u);
    texture->reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA8);
    const GLuint textureName = texture->getHandle();
    Texture2DPtrAI copy = texture;
    EXPECT_EQ(copy.get(), texture.get());
    Texture2DPtrAI moved = std::move(texture);
    EXPECT_FALSE(texture);
    moved.reset();
    EXPECT_EQ(glIsTexture(textureName), GL_TRUE); // one holder left
    copy.reset();
    EXPECT_EQ(glIsTexture(textureName), GL_FALSE);

    FramebufferPtrAI framebuffer;
    ASSERT_TRUE(framebuffer);
    framebuffer->bind();
    Framebuffer::unbind();
    const GLuint framebufferName = framebuffer->getHandle();
    EXPECT_EQ(glIsFramebuffer(framebufferName), GL_TRUE);
    framebuffer.reset();
    EXPECT_EQ(glIsFramebuffer(framebufferName), GL_FALSE);

    Tavrin::Image2DPtrAI image;
    ASSERT_TRUE(image);
    EXPECT_EQ(image->getSize(), Eigen::Vector2i(0, 0));
    EXPECT_EQ(image.use_count(), 1);
}

TEST(SharedHandles, ContextNoticesReallocationEvenUnderTheSameName)
{
    Texture2DBaseContext<std::shared_ptr<Texture2D>> context{Texture2DPtrAI()};
    EXPECT_FALSE(context.isConsistent()); // never made consistent
    context.makeConsistent();
    EXPECT_TRUE(context.isConsistent());

    context.texture->reserveStorage(1, Eigen::Vector2i(4, 4), GL_RGBA8);
    EXPECT_FALSE(context.isConsistent());
    // Whether or not GL handed the old name back, the version alone tells.
    context.handle = context.texture->getHandle();
    EXPECT_FALSE(context.isConsistent());
    context.makeConsistent();
    EXPECT_TRUE(context.isConsistent());
    EXPECT_EQ(context.version, 1u);

    // Moving empties the source's pointer and leaves its numbers.
    auto moved = std::move(context);
    EXPECT_FALSE(context.texture);
    EXPECT_EQ(context.version, 1u);
    EXPECT_TRUE(moved.isConsistent());

    // An empty pointer is consistent, and makeConsistent leaves its numbers alone.
    Texture2DBaseContext<std::shared_ptr<const Texture2D>> empty{nullptr, 7, 9};
    EXPECT_TRUE(empty.isConsistent());
    empty.makeConsistent();
    EXPECT_EQ(empty.handle, 7u);
    EXPECT_EQ(empty.version, 9u);
    empty.texture = moved.texture;
    EXPECT_FALSE(empty.isConsistent());
    empty.makeConsistent();
    EXPECT_TRUE(empty.isConsistent());
}
