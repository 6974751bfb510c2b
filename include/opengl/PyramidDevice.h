#pragma once

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
/// Fills the whole mip chain of its output texture from its input texture with compute shaders:
/// in one dispatch where the GL's image units allow, otherwise in as few dispatches as they
/// allow. Unlike the other devices it is used as it is: it brings its own programs.
///
/// Slots: one input slot and one output slot (index 0 each), sized by the constructor. The
/// output gets immutable storage of the input's size with the full chain (floor(log2 of the
/// larger side) + 1 levels) in getOutputFormat(); it is re-made when it does not fit, which is
/// only looked at when a slot's texture, GL name or storage revision changed (the slot records
/// of Texture2DBaseContext), so a steady update asks GL nothing about sizes or formats.
/// In place: when input and output are the same texture (the same GL name), level 0 is kept
/// and levels 1 and up of the texture's own storage are filled, as glGenerateMipmap does; the
/// storage is never re-made then.
///
/// Levels: output level 0 is input level 0; texel (x, y) of level k + 1 is the reduction of the
/// texels (2x, 2y), (2x + 1, 2y), (2x, 2y + 1), (2x + 1, 2y + 1) of level k as stored, that is
/// rounded to the output format, whatever path ran. Level sizes are GL's: each side halved,
/// rounding down, never below 1. Odd sides, whose filter GL leaves to the implementation: the
/// last row or column of an odd side does not reach the next level (the floor of the 2x2 grid,
/// so that a texel of any level depends on one tile of level 0 alone), and a side of 1 repeats
/// its texel (the reduction gets each of them twice). So every even side is the plain 2x2 box and
/// the default average equals glGenerateMipmap's box filter there. Where every texel must count
/// (a conservative depth pyramid), give the device an input whose sides are powers of two.
///
/// Reductions: GLSL text that defines `vec4 reduce(vec4 a, vec4 b, vec4 c, vec4 d)`, a and b
/// being the lower row left to right and c and d the upper one: averageReduction (the default),
/// minimumReduction and maximumReduction (per channel, for depth pyramids), or the host's own.
/// Its result is rounded to the output format (a channel the format lacks reads back as 0, alpha
/// as 1). The default average on GL_RGBA8 with packed images works on the bytes themselves and
/// rounds the mean to the nearest byte, a tie either way (within one unit of the float path).
///
/// How it runs: each dispatch reads one level S and writes the levels after it (and level 0
/// itself where it copies the input, which it samples as "source"); level S + j is bound to image
/// unit j. Workgroups of 64 invocations reduce 64 x 64 tiles of level S through up to six
/// levels: level S + 1 with neighbouring invocations on neighbouring texels, the rest from shared
/// memory two levels per barrier, each invocation taking a 4 x 4 block through both in registers
/// (at most 20 KiB of shared memory, within GL's guaranteed 32 KiB, so shared memory never decides
/// the path). The workgroup that finishes last, found with a global atomic counter in a shader
/// storage buffer, reduces the dispatch's remaining levels alone: every image is `coherent`, each
/// workgroup passes memoryBarrierImage before it counts itself, and each level of the last one
/// ends with memoryBarrierImage and barrier. One dispatch covers the chain when
/// getImageUnitBudget() units hold all its levels; otherwise the chain is split into as few
/// dispatches as the budget allows, with a glMemoryBarrier between them. getLastPath() says
/// which ran; getLastImagesPacked() whether the levels were bound as packed bits or in their own
/// format (see bindsPackedImages). A dispatch that copies and one that reads a level of the
/// output use two programs, each built on first need.
///
/// Copies share: a copy runs the same programs and the same counter buffer and holds the same
/// textures. Device has no virtual destructor: destroy a device through its own type.
class TAVRIN_OPENGL_EXPORT PyramidDevice : public Tavrin::Device
{
public:
    /// Which way the last update() ran.
    enum class Path
    {
        None,              ///< no update yet, or nothing to fill (an in-place texture of one level)
        SingleDispatch,    ///< the whole chain in one dispatch
        SeveralDispatches, ///< too few image units for the chain: one dispatch per run of levels
    };

    /// The 2x2 average (the default).
    static const char* const averageReduction;
    /// The per-channel minimum of the four texels.
    static const char* const minimumReduction;
    /// The per-channel maximum of the four texels.
    static const char* const maximumReduction;

    /// One empty input slot and one empty output slot, the average reduction. Creates no GL object.
    PyramidDevice();
    /// Shares everything (program, counter buffer, textures); slot records keep their numbers.
    ///@{
    PyramidDevice(const PyramidDevice& other);
    PyramidDevice& operator=(const PyramidDevice& other);
    ///@}
    /// Releases the slots, the programs and the counter buffer; a GL object goes with its last owner.
    ~PyramidDevice();

    /// Fills the output's chain, in this order:
    ///  1. Without an output slot, or with slot 0 empty: "ERROR: No output texture." on std::cerr
    ///     (no line break), no GL call, returns false.
    ///  2. Without an input slot, or with slot 0 empty: throws std::runtime_error("No input
    ///     texture.") before any GL call.
    ///  3. When a slot changed since the last update: the output storage is re-made unless it has
    ///     the input's size, getOutputFormat() and the full chain (not in place). An output format
    ///     the device cannot write throws std::runtime_error("Unsupported image format.").
    ///  4. The programs it needs are (re)built when the output format, the packing, the reduction
    ///     or the image unit budget changed, before any binding changes; a reduction that does not
    ///     compile throws GLSLException with the driver's log.
    ///  5. The dispatches, each with its program in use: the counter buffer at shader storage
    ///     binding 0 (only when a dispatch has levels left for its last workgroup); for the one that
    ///     copies, the input pushed to the program as sampler "source" (Texture2D::pushToProgram)
    ///     and popped after it; level S + j bound to image unit j (read-write) and released after
    ///     it; after each, glMemoryBarrier with the texture-fetch, image, storage, texture-update,
    ///     framebuffer and pixel-buffer bits, so that the next dispatch and later GL commands see
    ///     the chain. Each GL call is checked.
    /// No glFinish: the GPU may still be working when update() returns. Afterwards: no program in
    /// use, the image units it used and shader storage binding 0 empty, the active texture unit
    /// back where it was, the input still bound to it where it was copied. Returns true. An
    /// exception leaves update() at once, the GL state as far as it had got.
    bool update() override;

    /// Sets the reduction: GLSL text defining `vec4 reduce(vec4 a, vec4 b, vec4 c, vec4 d)`. It is
    /// compiled by the next update(), which throws GLSLException when it does not compile.
    void setReduction(const std::string& glslFunction);
    /// The reduction's GLSL text, as last set.
    const std::string& getReduction() const;

    ///@{
    /// The path the last update() took, and the number of dispatches it made (0 for none).
    Path getLastPath() const;
    int getLastDispatchCount() const;
    ///@}
    /// Whether the last update() bound the levels as packed bits (see bindsPackedImages).
    bool getLastImagesPacked() const;

    // Slot accessors. The index must be 0: otherwise they throw std::out_of_range.

    /// Sets the input texture; the slot's recorded name and revision stay as they were.
    void setInputTexture(int i, std::shared_ptr<const Texture2D> texture);
    /// Input slot i's texture (empty when none is set).
    std::shared_ptr<const Texture2D> getInputTexture(int i) const;
    /// The number of input slots.
    int getInputTextureCount() const;
    /// Sets the output texture; the slot's recorded name and revision stay as they were.
    void setOutputTexture(int i, std::shared_ptr<Texture2D> texture);
    /// Output slot i's texture (empty when none is set).
    std::shared_ptr<Texture2D> getOutputTexture(int i) const;
    /// The number of output slots.
    int getOutputTextureCount() const;

protected:
    /// The output's internal format, asked only when a slot changed. Default: the input's own
    /// when the device can write it (GL_RGBA8, GL_RGBA16F, GL_RGBA32F, GL_R32F, GL_RG32F); the
    /// four-channel one for GL_RGB8, GL_RGB16F and GL_RGB32F; GL_R32F for a depth input
    /// (GL_DEPTH_COMPONENT16, 24, 32 and 32F, read as its red channel); otherwise the input's own,
    /// which update() refuses. In place the texture's own format is used and this is not asked.
    virtual unsigned int getOutputFormat() const;
    /// How many image units one dispatch may bind, that is how many levels it may write plus
    /// one. Default: the smaller of GL_MAX_IMAGE_UNITS and GL_MAX_COMPUTE_IMAGE_UNIFORMS. Values
    /// below 2 count as 2, values above 16 as 16 (a chain of 16 levels is a 32768 texel side).
    virtual int getImageUnitBudget() const;
    /// Whether the levels of `internalFormat` may be bound as the unsigned-integer image format of
    /// the same texel size (GL_R32UI for GL_RGBA8 and GL_R32F, GL_RG32UI for GL_RGBA16F and GL_RG32F,
    /// GL_RGBA32UI for GL_RGBA32F) and unpacked in the shader, which spares the image path its
    /// format conversions. Otherwise they are bound in their own format. Asked when a slot
    /// changed. Default: GL reports GL_IMAGE_FORMAT_COMPATIBILITY_BY_SIZE for the format (checked).
    virtual bool bindsPackedImages(unsigned int internalFormat) const;

    /// One input slot (sized by the constructor); its record says what the output was fitted to.
    std::vector<Texture2DBaseContext<std::shared_ptr<const Texture2D>>> inputTextures;
    /// One output slot (sized by the constructor); its record says what the output was fitted to.
    std::vector<Texture2DBaseContext<std::shared_ptr<Texture2D>>> outputTextures;

private:
    class CounterBuffer;

    const Program& programFor(bool copying, int units);

    std::shared_ptr<CounterBuffer> counter;
    std::string reduction;
    // Built on demand: the program of a dispatch that copies level 0 from the input, and the one
    // of a dispatch that reads a level of the output; each with what it was built for.
    std::shared_ptr<Program> copyingProgram, levelProgram;
    std::string copyingKey, levelKey;
    // What the last storage check found; kept while both slots stay consistent.
    Eigen::Vector2i size{0, 0};
    unsigned int format = 0;
    int levelCount = 0;
    bool inPlace = false;
    bool packed = false;
    Path lastPath = Path::None;
    int lastDispatchCount = 0;
    bool lastPacked = false;
};
} // namespace OpenGL
} // namespace Tavrin
