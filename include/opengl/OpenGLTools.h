#pragma once

#include <opengl/Platform.h>

#include <Eigen/Core>

namespace Tavrin
{
namespace OpenGL
{
class Framebuffer;

/// Static drawing helpers: textured quads in immediate mode (compatibility profile) and the
/// selection of a framebuffer's first colour attachments as draw buffers. Never instantiated.
/// None of them runs the GL error check.
class TAVRIN_OPENGL_EXPORT OpenGLTools
{
public:
    /// One GL_QUADS quad in integer coordinates, counter-clockwise in a y-up space: vertices
    /// (x, y), (x + w, y), (x + w, y + h), (x, y + h) with texture coordinates (0, 0), (1, 0),
    /// (1, 1), (0, 1). Sets no colour and no matrix.
    static void drawQuad(const Eigen::Vector2i& position, const Eigen::Vector2i& size);

    /// One GL_QUADS quad covering normalised device coordinates -1..1, translated by `offset`
    /// and scaled by `scale` inside a glPushMatrix / glPopMatrix pair on the current matrix
    /// stack (so that matrix is left as it was). Clockwise in a y-up space (the reverse of
    /// drawQuad): vertices (-1, -1), (-1, 1), (1, 1), (1, -1) with texture coordinates (0, 0),
    /// (0, 1), (1, 1), (1, 0). Leaves the current colour opaque white. Face culling is the
    /// caller's business.
    static void drawViewportQuad(const Eigen::Vector2f& offset, const Eigen::Vector2f& scale);

    /// Selects GL_COLOR_ATTACHMENT0 ... GL_COLOR_ATTACHMENT0 + count - 1 as the framebuffer's
    /// draw buffers (glFramebufferDrawBuffersEXT), so that draw buffer i receives fragment
    /// output i. The list has 16 entries: a count above 16 is passed as 16 and a negative
    /// count as 0 (no draw buffer), so GL never reads past it. Counts above the driver's
    /// GL_MAX_DRAW_BUFFERS are left to GL to reject (the error stays pending). `framebuffer`
    /// must not be null (not checked).
    static void sequentialDrawBuffers(const Framebuffer* framebuffer, int count);

    /// Assigning copies nothing: the class holds no data.
    OpenGLTools& operator=(const OpenGLTools&) { return *this; }

private:
    OpenGLTools() {}
    ~OpenGLTools() {}
};
} // namespace OpenGL
} // namespace Tavrin
