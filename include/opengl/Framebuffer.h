#pragma once

#include <opengl/Platform.h>

#include <memory>

namespace Tavrin
{
namespace OpenGL
{
class Texture2D;

/// One GL framebuffer object. Attachment and the completeness query act on the framebuffer by
/// name (EXT direct state access), bound or not. It keeps no list of attachments.
///
/// Copies share the GL name and each destructor deletes it: share framebuffers through
/// std::shared_ptr (FramebufferPtrAI), never copy them.
///
/// Every GL check below writes "WARNING: Framebuffer.cpp (line <n>) <message>" and throws
/// std::runtime_error(<message>) on a pending GL error.
class TAVRIN_OPENGL_EXPORT Framebuffer
{
public:
    /// Generates the GL name (checked); no attachments.
    Framebuffer();
    /// Deletes the GL name. A pending GL error found by the check that follows is written as
    /// the usual warning line but not thrown: a throwing destructor would end the program.
    ~Framebuffer();

    /// The GL framebuffer name.
    unsigned int getHandle() const { return handle; }

    /// Binds this framebuffer to GL_FRAMEBUFFER (draw and read). Checked.
    void bind() const;
    /// Binds GL_FRAMEBUFFER to 0 (the default framebuffer), whichever was bound. Checked.
    static void unbind();

    /// Attaches level `level` of the texture's current GL name at `attachment`, a GL attachment
    /// enumerant (GL_COLOR_ATTACHMENT0 + i, GL_DEPTH_ATTACHMENT), not an index. A texture that
    /// later re-allocates its storage has a new name and must be attached again. Checked.
    /// `texture` must not be null (not checked).
    void attachTexture2D(const Texture2D* const texture, unsigned int attachment, int level) const;
    /// Attaches nothing (texture 0) at `attachment`. Checked.
    void detachTexture2D(unsigned int attachment) const;

    /// Returns when the framebuffer is complete; otherwise throws std::runtime_error with
    /// "Framebuffer incomplete: Incomplete attachment", "Framebuffer incomplete: Missing
    /// attachment", "Framebuffer incomplete: Missing drawbuffer", "Framebuffer incomplete:
    /// Missing readbuffer", "Framebuffer unsupported", "Framebuffer incomplete (Multisample)"
    /// or, for any other status (0 after a GL error included), "Framebuffer Object Error".
    /// Prints nothing and runs no GL check.
    void checkStatus() const;

    /// The exception text for a framebuffer status, or null for GL_FRAMEBUFFER_COMPLETE.
    /// Addition, so that statuses GL cannot easily be made to return can be looked up.
    static const char* statusMessage(unsigned int status);

private:
    unsigned int handle;
};

/// A shared framebuffer that creates its framebuffer on default construction (never empty
/// then). The last holder's release deletes the GL framebuffer. Copies share, moves empty the
/// source; there is no way to make one from an existing pointer.
class TAVRIN_OPENGL_EXPORT FramebufferPtrAI : public std::shared_ptr<Framebuffer>
{
public:
    /// Owns a new Framebuffer() (GL name generated).
    FramebufferPtrAI();
};
} // namespace OpenGL
} // namespace Tavrin
