#include <opengl/Framebuffer.h>

#include <opengl/GLCheck.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>

#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
Framebuffer::Framebuffer() : handle(0)
{
    glGenFramebuffers(1, &handle);
    TAVRIN_GL_CHECK();
}

Framebuffer::~Framebuffer()
{
    glDeleteFramebuffers(1, &handle);
    try
    {
        TAVRIN_GL_CHECK();
    }
    catch (const std::runtime_error&)
    {
        // Reported by the warning line already; throwing out of a destructor would terminate.
    }
}

void Framebuffer::bind() const
{
    glBindFramebuffer(GL_FRAMEBUFFER, handle);
    TAVRIN_GL_CHECK();
}

void Framebuffer::unbind()
{
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    TAVRIN_GL_CHECK();
}

void Framebuffer::attachTexture2D(const Texture2D* const texture, unsigned int attachment, int level) const
{
    glNamedFramebufferTexture2DEXT(handle, attachment, GL_TEXTURE_2D, texture->getHandle(), level);
    TAVRIN_GL_CHECK();
}

void Framebuffer::detachTexture2D(unsigned int attachment) const
{
    glNamedFramebufferTexture2DEXT(handle, attachment, GL_TEXTURE_2D, 0, 0);
    TAVRIN_GL_CHECK();
}

const char* Framebuffer::statusMessage(unsigned int status)
{
    // The texts differ in shape on purpose; hosts compare them as they are.
    switch (status)
    {
    case GL_FRAMEBUFFER_COMPLETE:
        return nullptr;
    case GL_FRAMEBUFFER_INCOMPLETE_ATTACHMENT:
        return "Framebuffer incomplete: Incomplete attachment";
    case GL_FRAMEBUFFER_INCOMPLETE_MISSING_ATTACHMENT:
        return "Framebuffer incomplete: Missing attachment";
    case GL_FRAMEBUFFER_INCOMPLETE_DRAW_BUFFER:
        return "Framebuffer incomplete: Missing drawbuffer";
    case GL_FRAMEBUFFER_INCOMPLETE_READ_BUFFER:
        return "Framebuffer incomplete: Missing readbuffer";
    case GL_FRAMEBUFFER_UNSUPPORTED:
        return "Framebuffer unsupported";
    case GL_FRAMEBUFFER_INCOMPLETE_MULTISAMPLE:
        return "Framebuffer incomplete (Multisample)";
    default:
        return "Framebuffer Object Error";
    }
}

void Framebuffer::checkStatus() const
{
    const GLenum status = glCheckNamedFramebufferStatusEXT(handle, GL_FRAMEBUFFER);
    if (const char* message = statusMessage(status))
        throw std::runtime_error(message);
}

FramebufferPtrAI::FramebufferPtrAI() : std::shared_ptr<Framebuffer>(new Framebuffer()) {}
} // namespace OpenGL
} // namespace Tavrin
