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
/// One compute-shader pass: samples the input textures and writes the output textures as
/// images, one glDispatchCompute per update().
///
/// A host derives its device from this class. In its constructor it sets `program` and sizes
/// the slot vectors directly (`inputTextures.resize(n)`, `outputTextures.resize(m)`: the
/// members are protected for that; nothing in the library ever resizes them), then fills the
/// slots with the public setters, and overrides getInputSamplerName / getOutputTextureName
/// with the GLSL names of its samplers and images, getGroupCount with its dispatch size, and
/// beforeRendering / afterRendering where it sets uniforms of its own.
///
/// Shader contract: input slot i is bound as a sampler under getInputSamplerName(i); output
/// slot j is bound to image unit j with read-write access and the texture's own internal
/// format, and the int uniform getOutputTextureName(j) is set to j.
///
/// Copies share: a copy runs the same Program, the same framebuffer and the same textures.
/// Device has no virtual destructor, so a device is destroyed through its own type, never
/// through a Device pointer. Every member that touches GL needs the device's context current.
class TAVRIN_OPENGL_EXPORT ComputeDevice : public Tavrin::Device
{
public:
    /// No program, no slots. Creates `framebuffer` (one GL framebuffer object) at once, so a
    /// GL context must be current.
    ComputeDevice();
    /// Shares everything (program, framebuffer, textures); slot records keep their numbers.
    ///@{
    ComputeDevice(const ComputeDevice& other);
    ComputeDevice& operator=(const ComputeDevice& other);
    ///@}
    /// Releases the output slots, the input slots, the framebuffer, then the program; a GL
    /// object goes only with its last owner.
    ~ComputeDevice();

    /// Runs the pass, in this order: program in use; beforeRendering(); every non-empty input
    /// slot pushed to the program (consecutive texture units from the active one; empty slots
    /// take no unit); for each output slot j in rising order, the int uniform
    /// getOutputTextureName(j) set to j, then level 0 bound to image unit j (GL_READ_WRITE);
    /// glDispatchCompute with getGroupCount(), each component below 1 raised to 1 (checked);
    /// image units unbound from the last down to 0; one pop per pushed input; afterRendering();
    /// framebuffer unbound; glUseProgram(0); glFinish(), so the results are complete on return.
    /// No memory barrier is issued: the finish is the synchronisation.
    ///
    /// Without an output slot, or with slot 0 empty, writes "ERROR: No output texture." to
    /// std::cerr (no line break), makes no GL call and returns false; otherwise returns true.
    /// Throws std::runtime_error("No program.") before any GL call when `program` is null
    /// (a guard: the device cannot run without one). A GL error at a checked call, or an
    /// exception from a member it calls, leaves update() at once, with the GL state as far as
    /// it had got.
    ///
    /// Guard: an empty output slot after slot 0 is a caller error; its uniform is still set and
    /// its image unit still released, but nothing is bound to it.
    bool update() override;

    /// The numbers of work groups in x, y, z for the dispatch. Default (64, 64, 1). A derived
    /// device computes them from its output size and its shader's local size; the library does
    /// no rounding of its own.
    virtual const Eigen::Vector3i getGroupCount() const;

    // Slot accessors. The index must lie in [0, size) of the vector: out of range they throw
    // std::out_of_range (a guard; the vectors are never grown by them).

    /// Sets input slot i's texture; the slot's recorded name and revision stay as they were.
    void setInputTexture(int i, std::shared_ptr<const Texture2D> texture);
    /// Input slot i's texture (empty when none is set).
    const std::shared_ptr<const Texture2D> getInputTexture(int i) const;
    /// The number of input slots.
    int getInputTextureCount() const;
    /// Sets output slot i's texture; the slot's recorded name and revision stay as they were.
    void setOutputTexture(int i, std::shared_ptr<Texture2D> texture);
    /// Output slot i's texture (empty when none is set).
    const std::shared_ptr<Texture2D> getOutputTexture(int i) const;
    /// The number of output slots.
    int getOutputTextureCount() const;

protected:
    /// The sampler uniform of input slot i. Default: "" for every i.
    virtual std::string getInputSamplerName(int i) const;
    /// The image uniform of output slot i. Default: "" for every i.
    virtual std::string getOutputTextureName(int i) const;
    /// Called by update() with the program in use, before the inputs are bound. Default: nothing.
    virtual void beforeRendering();
    /// Called by update() after the dispatch, the image units released and the inputs popped,
    /// with the program still in use. Default: nothing.
    virtual void afterRendering();

    /// Fills level 0 of output slot `index` with `colour` (red, green, blue, alpha) through
    /// `framebuffer`: attaches it at GL_COLOR_ATTACHMENT0 + index, makes that the only draw
    /// buffer, checks completeness (Framebuffer::checkStatus throws its texts), binds, clears
    /// draw buffer 0 with glClearBufferfv, detaches and unbinds (framebuffer 0 bound after).
    /// A texture without storage (size (0, 0)) is left alone: only its size is queried.
    /// Independent of the program; may be called outside update(), typically from
    /// beforeRendering(). The clear honours the context's scissor test and colour mask.
    /// Guards: `index` outside [0, size) throws std::out_of_range; an empty slot is left alone
    /// like a texture without storage.
    void clearOutput(int index, const Eigen::Vector4f& colour) const;

    /// The program run by update(); null until the derived device sets it.
    std::shared_ptr<Program> program;
    /// Used by clearOutput only; created by the constructor.
    FramebufferPtrAI framebuffer;
    /// Input slots, index = slot number. update() ignores the recorded name and revision.
    std::vector<Texture2DBaseContext<std::shared_ptr<const Texture2D>>> inputTextures;
    /// Output slots, index = slot number. update() ignores the recorded name and revision.
    std::vector<Texture2DBaseContext<std::shared_ptr<Texture2D>>> outputTextures;
};
} // namespace OpenGL
} // namespace Tavrin
