#include <opengl/OpenGLTools.h>

#include <opengl/Framebuffer.h>

#include <GL/glew.h>

namespace Tavrin
{
namespace OpenGL
{
void OpenGLTools::drawQuad(const Eigen::Vector2i& position, const Eigen::Vector2i& size)
{
    const int x = position.x(), y = position.y();
    const int w = size.x(), h = size.y();
    glBegin(GL_QUADS);
    glTexCoord2f(0.0f, 0.0f);
    glVertex2i(x, y);
    glTexCoord2f(1.0f, 0.0f);
    glVertex2i(x + w, y);
    glTexCoord2f(1.0f, 1.0f);
    glVertex2i(x + w, y + h);
    glTexCoord2f(0.0f, 1.0f);
    glVertex2i(x, y + h);
    glEnd();
}

void OpenGLTools::drawViewportQuad(const Eigen::Vector2f& offset, const Eigen::Vector2f& scale)
{
    glPushMatrix();
    glTranslatef(offset.x(), offset.y(), 0.0f);
    glScalef(scale.x(), scale.y(), 1.0f);
    glBegin(GL_QUADS);
    glColor4f(1.0f, 1.0f, 1.0f, 1.0f);
    // Wound the other way round from drawQuad; callers rely on both orders.
    glTexCoord2f(0.0f, 0.0f);
    glVertex2f(-1.0f, -1.0f);
    glTexCoord2f(0.0f, 1.0f);
    glVertex2f(-1.0f, 1.0f);
    glTexCoord2f(1.0f, 1.0f);
    glVertex2f(1.0f, 1.0f);
    glTexCoord2f(1.0f, 0.0f);
    glVertex2f(1.0f, -1.0f);
    glEnd();
    glPopMatrix();
}

void OpenGLTools::sequentialDrawBuffers(const Framebuffer* framebuffer, int count)
{
    constexpr int tableSize = 16;
    GLenum buffers[tableSize];
    for (int i = 0; i < tableSize; ++i)
        buffers[i] = GLenum(GL_COLOR_ATTACHMENT0 + i);
    // GL reads `count` entries; keep it inside the table.
    const int clamped = count < 0 ? 0 : (count > tableSize ? tableSize : count);
    glFramebufferDrawBuffersEXT(framebuffer->getHandle(), clamped, buffers);
}
} // namespace OpenGL
} // namespace Tavrin
