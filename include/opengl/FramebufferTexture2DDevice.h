#pragma once

#include <opengl/Framebuffer.h>
#include <opengl/Platform.h>
#include <opengl/Program.h>
#include <opengl/Texture2D.h>

#include <core/Device.h>

#include <Eigen/Core>

#include <memory>
#include <string>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
/// A render-to-texture pass: draws geometry (by default one quad over the viewport) with a
/// fragment-shader program into the output textures, one pass per mip level. Level 0 is
/// computed from the inputs; every further level also sees the outputs themselves as
/// samplers, so a shader can build a reduction pyramid from the previous level.
///
/// A host derives its device from this class. In its constructor it sets `program` and sizes
/// the slot vectors directly (`inputTextures.resize(n)`, `outputTextures.resize(m)`: the
/// members are protected for that; nothing in the library ever resizes them), fills the slots
/// with the protected setters, and overrides the naming, configuration and hook operations.
/// Colour outputs must occupy slots 0 to n-1 (fragment output i goes to slot i) and a depth
/// output (getOutputFormat GL_DEPTH_COMPONENT32) must come after them.
///
/// Shader contract: the fragment shader declares a uniform of a struct type (its name is the
/// shader's choice) called `framebufferDeviceStep` with the members
///     int mipLevelCount;  int stepCount;  int layerCount;  int index;
///     ivec2 resolution;   int mipLevelIndex;
/// update() sets mipLevelCount to getMipLevelCount(), stepCount and layerCount to 1 and index
/// to 0 once per update, and resolution (the size of the level drawn, in texels) and
/// mipLevelIndex (0 to count - 1) for every pass. Members the shader leaves out are skipped.
/// Input slot i is the sampler getInputSamplerName(i); in the passes for levels 1 and up,
/// output slot j is also the sampler getOutputTextureName(j) + "Texture2DFramebufferTexture2D"
/// (just "Texture2DFramebufferTexture2D" with the default empty name). Pass L writes level L
/// while the outputs are bound for sampling, so the shader must read only levels below L
/// (for example texelFetch at mipLevelIndex - 1).
///
/// Copies share: a copy runs the same Program, the same framebuffers and the same textures.
/// Device has no virtual destructor, so a device is destroyed through its own type, never
/// through a Device pointer. Every member that touches GL needs the device's context current.
class TAVRIN_OPENGL_EXPORT FramebufferTexture2DDevice : public Tavrin::Device
{
public:
    /// No program, no framebuffers, no slots; creates no GL object.
    FramebufferTexture2DDevice();
    /// Shares everything (program, framebuffers, textures); slot records keep their numbers.
    ///@{
    FramebufferTexture2DDevice(const FramebufferTexture2DDevice& other);
    FramebufferTexture2DDevice& operator=(const FramebufferTexture2DDevice& other);
    ///@}
    /// Releases the output slots, the input slots, the framebuffers, then the program; a GL
    /// object goes only with its last owner.
    ~FramebufferTexture2DDevice();

    /// Renders every output, in this order:
    ///  1. Without an output slot, or with slot 0 empty: "ERROR: No output texture." on
    ///     std::cerr (no line break), no GL call, returns false.
    ///  2. `framebuffers` resized to the mip level count M when it differs (new framebuffers
    ///     are created, surplus ones released).
    ///  3. The resolution R = getResolution(), each component below 1 raised to 1 (the default
    ///     throws std::runtime_error("No input texture.") from here).
    ///  4. For each output slot i: a texture's level-0 internal format is read and, unless it
    ///     is GL_DEPTH_COMPONENT32, counted as a draw buffer (counting stops at the first empty
    ///     slot; the format is read before any re-allocation, so a fresh texture counts with the
    ///     format GL reports before it has storage); its storage is re-allocated
    ///     (reserveStorage(M, R, getOutputFormat(i))) only when its size is not R, its format is
    ///     not getOutputFormat(i) or it has fewer than M levels; level k is attached to
    ///     framebuffer k (GL_DEPTH_ATTACHMENT for a GL_DEPTH_COMPONENT32 texture,
    ///     GL_COLOR_ATTACHMENT0 + i otherwise) for every k when the slot is not consistent (new
    ///     GL name or storage revision since the slot last recorded them), and otherwise only
    ///     for the framebuffers that do not carry the outputs yet (see below); then the slot
    ///     records the texture's name and revision. An empty slot has colour attachment i
    ///     detached from every framebuffer (on every update; a depth attachment is never
    ///     detached).
    ///  5. Program in use; framebufferDeviceStep.mipLevelCount, .stepCount, .layerCount, .index
    ///     set; culling, blending and depth test off, GL_TEXTURE_2D on (none restored); the
    ///     non-empty inputs pushed to consecutive texture units; identity projection and
    ///     model-view matrices; clear colour (0, 0, 0, 0) (the device never clears);
    ///     beforeRendering().
    ///  6. For each level L from 0 to M - 1, with the size halved (rounding down, never below
    ///     1) after each: from level 1 on every output pushed as its sampler; .resolution and
    ///     .mipLevelIndex set; viewport (0, 0, size); framebuffer L bound; its first
    ///     drawBufferCount colour attachments selected as draw buffers; drawGeometry(); the
    ///     output samplers popped.
    ///  7. afterRendering(); the inputs popped; framebuffer 0 bound; glUseProgram(0); returns
    ///     true. No glFinish: the GPU may still be working when update() returns.
    /// A steady device (outputs keeping their texture, size, format and level count) therefore
    /// re-allocates nothing and attaches nothing: it sets uniforms, binds and draws.
    ///
    /// Throws std::runtime_error("No program.") right after the output check, before any GL
    /// call, when `program` is null (a guard: the device cannot run without one). A GL error at
    /// a checked call, or an exception from an operation it calls, leaves update() at once,
    /// with the GL state as far as it had got.
    ///
    /// Deliberate choices:
    ///  - getMipLevelCount() is asked once per update; that one value sizes the framebuffer list
    ///    and counts the passes, so the two always agree. A count below 0 is taken as 0 for the
    ///    framebuffer list (no framebuffer, no pass; a re-allocation with it is rejected by GL).
    ///  - The device counts the framebuffers that carry every output (those that were there
    ///    when an update last finished step 4). Framebuffers beyond that count get every output
    ///    attached, consistent slots included, by whichever update first finishes step 4: an
    ///    output that already has enough levels is not re-allocated, so consistency alone would
    ///    leave new framebuffers empty, and the update that grew the list may have thrown before
    ///    attaching (for example "No input texture." from getResolution()).
    ///  - The output sampler names are kept in the device (not shared between devices or
    ///    threads), so devices on different threads, each with its own context, do not meet; a
    ///    hook may run another device's update(), or this one's, in the middle of the passes.
    ///  - getOutputTextureName(j) is asked once per update (when M is at least 2), not once per
    ///    level; the sampler names are composed once and reused for every level.
    ///  - An empty output slot while M is at least 2 is a caller error; it is guarded by binding
    ///    no sampler for it (the other outputs still take consecutive units).
    bool update() override;

    /// The size of the outputs' level 0. Default: the size of input texture 0; throws
    /// std::runtime_error("No input texture.") without an input slot or with slot 0 empty.
    virtual const Eigen::Vector2i getResolution() const;

protected:
    /// The number of levels to allocate and render. Default: 1.
    virtual int getMipLevelCount() const;
    /// The internal format of output slot `index`. Default: the level-0 internal format of
    /// input texture 0, whatever `index` is (no slot check); throws std::runtime_error("No input
    /// texture.") without an input slot or with slot 0 empty. GL_DEPTH_COMPONENT32 (0x81A7), and
    /// only that value, makes update() attach the output as the depth attachment.
    virtual unsigned int getOutputFormat(int index) const;
    /// The sampler uniform of input slot i. Default: "" for every i.
    virtual std::string getInputSamplerName(int i) const;
    /// The stem of the sampler through which passes of level 1 and up read output slot i.
    /// Default: "" for every i.
    virtual std::string getOutputTextureName(int i) const;
    /// Called by update() with the program in use and the inputs bound, before the first pass.
    /// Default: nothing.
    virtual void beforeRendering();
    /// Draws what one pass renders, with the level's framebuffer bound and viewport set, under
    /// identity matrices. Default: OpenGLTools::drawViewportQuad((0, 0), (1, 1)), a quad over
    /// the whole viewport.
    virtual void drawGeometry();
    /// Called by update() after the last pass, the program still in use and the inputs still
    /// bound, the last level's framebuffer still bound. Default: nothing.
    virtual void afterRendering();

    // Slot accessors, for the derived device. The index must lie in [0, size) of the vector:
    // out of range they throw std::out_of_range (a guard; the vectors are never grown by them).

    /// Sets input slot i's texture; the slot's recorded name and revision stay as they were.
    void setInputTexture(int i, std::shared_ptr<const Texture2D> texture);
    /// Input slot i's texture (empty when none is set).
    std::shared_ptr<const Texture2D> getInputTexture(int i) const;
    /// The number of input slots.
    int getInputTextureCount() const;
    /// Sets output slot i's texture; the slot's recorded name and revision stay as they were,
    /// so a different texture is attached on the next update().
    void setOutputTexture(int i, std::shared_ptr<Texture2D> texture);
    /// Output slot i's texture (empty when none is set).
    std::shared_ptr<Texture2D> getOutputTexture(int i) const;
    /// The number of output slots.
    int getOutputTextureCount() const;

    /// The program run by update(); null until the derived device sets it.
    std::shared_ptr<Program> program;
    /// One framebuffer per rendered level; framebuffer k carries level k of every output.
    /// Sized by update() only.
    std::vector<FramebufferPtrAI> framebuffers;
    /// Input slots, index = slot number. update() ignores the recorded name and revision.
    std::vector<Texture2DBaseContext<std::shared_ptr<const Texture2D>>> inputTextures;
    /// Output slots, index = slot number; each records the name and revision its texture had
    /// when it was last attached.
    std::vector<Texture2DBaseContext<std::shared_ptr<Texture2D>>> outputTextures;

private:
    /// How many of `framebuffers`, from the first, carry every output.
    std::size_t attachedFramebufferCount = 0;
    /// The sampler names of the outputs, kept from one update to the next so that a steady
    /// device reuses their storage; an update holds them while it runs.
    std::vector<std::string> outputSamplerNames;
};
} // namespace OpenGL
} // namespace Tavrin
