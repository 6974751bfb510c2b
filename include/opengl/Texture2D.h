#pragma once

#include <opengl/Platform.h>

#include <core/Image2D.h>

#include <Eigen/Core>

#include <memory>
#include <string>

namespace Tavrin
{
namespace OpenGL
{
class Program;

/// One GL_TEXTURE_2D texture object with immutable storage.
///
/// Size, internal format and level count are never cached: every accessor asks GL. All access
/// is direct state access (EXT entry points), so nothing but bind() and unbind() changes the
/// texture binding of the active unit. Storage is immutable: every change of size, format or
/// level count goes through reserveStorage, which gives the texture a fresh GL name and raises
/// its version by one, so that holders can notice (Texture2DBaseContext).
///
/// Copies share the GL name and each destructor deletes it: share textures through
/// std::shared_ptr (Texture2DPtrAI), never copy them.
///
/// Every GL check below writes "WARNING: Texture2D.cpp (line <n>) <message>" and throws
/// std::runtime_error(<message>) on a pending GL error.
class TAVRIN_OPENGL_EXPORT Texture2D
{
public:
    /// Generates the GL name (checked); no storage: size (0, 0), no levels, version 0.
    Texture2D();
    /// Deletes the GL name. A pending GL error found by the check that follows is written as
    /// the usual warning line but not thrown: a throwing destructor would end the program.
    ~Texture2D();

    /// The current GL texture name.
    unsigned int getHandle() const { return handle; }
    /// The storage revision: 0 at construction, +1 on every reserveStorage.
    unsigned int getVersion() const { return version; }
    /// Always GL_TEXTURE_2D (0x0DE1).
    unsigned int getTarget() const;

    /// Replaces the texture by a fresh GL name with immutable storage of `mipLevelCount` levels
    /// (glTextureStorage2DEXT), then raises the version. The old name is deleted even when it
    /// was attached to a framebuffer or bound to a unit. Each GL step is checked; a failed
    /// allocation throws after the old name was deleted and a new one generated, before the
    /// version changes. No sampling parameter is set (GL's defaults for a new texture).
    void reserveStorage(int mipLevelCount, Eigen::Vector2i size, unsigned int internalFormat);

    /// (width, height) of level 0; (0, 0) without storage. Unchecked.
    Eigen::Vector2i getSize();
    /// Level 0's GL_TEXTURE_INTERNAL_FORMAT, as GL reports it (also without storage). Unchecked.
    int getInternalFormat() const;
    /// The number of leading levels whose width GL reports as non-zero; 0 without storage.
    /// Deliberately, a level whose width is exactly 1281 (0x501, the value of GL_INVALID_VALUE)
    /// also ends the count.
    /// Bound: GL rejects the query of a level beyond its largest legal level
    /// (log2(GL_MAX_TEXTURE_SIZE)), which would leave the count running forever, so for a
    /// texture whose chain reaches that level the count stops there, at
    /// log2(GL_MAX_TEXTURE_SIZE) + 1 levels (1000 if GL reports no maximum), without making
    /// the query GL would reject. Every other texture ends at its first level without storage.
    /// Unchecked; leaves no GL error behind.
    int getMipLevelCount() const;
    /// The length of a complete mip chain for the current level-0 size: fullMipLevelCount of
    /// the larger side. A texture without storage gives 0 (no level at all).
    int getFullMipLevelCount() const;
    /// The full-chain arithmetic itself, without GL: for m > 0, floorf((float)((double)logf(m) /
    /// log(2.0))) + 1 in exactly these precisions, which gives floor(log2 m) + 1 for every m from
    /// 1 to 65535 except 8192 (13) and 32768 (15), one less than the exact count there. For
    /// m <= 0 it returns 0 (the logarithm has no value there).
    static int fullMipLevelCount(int maxSide);

    /// glTextureSubImage2DEXT(handle, target, level, 0, 0, size, format, type, data), checked.
    /// Note the order: `level` before `target`; callers pass GL_TEXTURE_2D as the target.
    /// Rows are read with the context's unpack state (GL's default alignment is 4).
    void uploadData(const Eigen::Vector2i& size, const void* data, unsigned int format, unsigned int type, int level,
                    int target) const;
    /// Uploads an image (GL_RGB8 as GL_RGB, GL_RGBA8 as GL_RGBA, GL_UNSIGNED_BYTE). Any other
    /// image format throws std::runtime_error("Unsupported image format.") before any GL call.
    /// When the image's size or format differs from level 0's, the storage is first replaced by
    /// one level of the image's size and format (reserveStorage: new name, version + 1);
    /// otherwise the storage and its further levels are kept. The unpack state is not touched:
    /// RGB rows whose byte length is not a multiple of 4 need GL_UNPACK_ALIGNMENT 1 from the
    /// caller. The image pointer is released on return; it must not be empty (not checked).
    void uploadImage(std::shared_ptr<const Tavrin::Image2D> image, int level, int target);

    /// Addition: reads level `level` back into `data` with glGetTextureImage (GL 4.5 / ARB
    /// direct state access), which never writes more than `bufferSize` bytes (GL raises
    /// GL_INVALID_OPERATION instead, and the check throws). The context's pack state applies
    /// as it is: with GL's default GL_PACK_ALIGNMENT of 4, each RGB row of a width that is not a
    /// multiple of 4 is padded to a multiple of 4 bytes. Checked. Throws
    /// std::runtime_error("glGetTextureImage is not available") when the driver lacks it.
    void downloadData(int level, unsigned int format, unsigned int type, void* data, int bufferSize) const;
    /// Addition: level `level` as a new Image2D of the level's size and the texture's format
    /// (GL_R8, GL_RG8, GL_RGB8, GL_RGBA8, GL_R32F or GL_RGBA32F; any other format, including
    /// a level without storage, throws std::runtime_error("Unsupported image format.")). Rows
    /// come tightly packed, bottom row first: GL_PACK_ALIGNMENT is set to 1 and the pixel pack
    /// buffer binding to 0 for the read, and both are restored afterwards. Checked.
    std::shared_ptr<Tavrin::Image2D> downloadImage(int level) const;

    /// glBindTexture(GL_TEXTURE_2D, handle) on the active unit. Unchecked.
    void bind() const;
    /// glBindTexture(GL_TEXTURE_2D, 0) on the active unit. Unchecked.
    static void unbind();

    /// Texture units form a stack whose only state is GL_ACTIVE_TEXTURE. Advances the active
    /// unit by one (checked). Throws std::runtime_error("Too many textures"), changing nothing,
    /// when the active unit index is already at or above GL_MAX_TEXTURE_IMAGE_UNITS (read once
    /// per process, on the first push, and kept). From the last unit (limit - 1) the push is
    /// allowed; GL rejects the unit it selects when the combined unit count is not larger.
    static void pushActiveTexture();
    /// Steps the active unit back by one (checked). No lower bound: at unit 0 GL rejects the
    /// step and the check throws "GLCheck: Invalid enum".
    static void popActiveTexture();
    /// GL_ACTIVE_TEXTURE - GL_TEXTURE0.
    static int getActiveTextureIndex();

    /// Binds this texture to the active unit, sets the program's sampler uniform `uniformName`
    /// to that unit's index (Program::uniform) and advances the unit (pushActiveTexture). A
    /// name the program does not have binds the texture and advances the unit, setting nothing.
    /// If the name (without array subscript) is an image uniform, nothing is bound and it throws
    /// std::runtime_error("Unsupported bindImage") (or "Binding a texture or image to uniform '"
    /// + uniformName + "' failed" should a second look at the uniform disagree). When the push
    /// throws "Too many textures", the binding and the uniform stay set. An empty name (which
    /// splits into no piece) is looked up as the empty name: it matches no uniform, so it is
    /// bound as a sampler that GL ignores. `program` must not be null (not checked).
    void pushToProgram(const Program* const program, const std::string& uniformName) const;
    /// Exactly popActiveTexture() followed by a second check; unbinds nothing, clears nothing.
    void popFromProgram() const;

    /// Binds level `level` of this texture to image unit `unit`, not layered, with `access`
    /// (GL_READ_ONLY, GL_WRITE_ONLY, GL_READ_WRITE) and the texture's own level-0 internal
    /// format as image format. Checked.
    void bindImage(unsigned int unit, unsigned int level, int layer, unsigned int access) const;
    /// Releases image unit `unit` (texture 0, with the valid placeholders layered, read-only,
    /// GL_RGBA16F). Checked.
    static void unbindImage(unsigned int unit);

private:
    unsigned int version;
    unsigned int handle;
};

/// A shared texture that creates its texture on default construction (never empty then).
/// The last holder's release deletes the GL texture. Copies share, moves empty the source;
/// there is no way to make one from an existing pointer.
class TAVRIN_OPENGL_EXPORT Texture2DPtrAI : public std::shared_ptr<Texture2D>
{
public:
    /// Owns a new Texture2D() (GL name generated, no storage).
    Texture2DPtrAI();
};

/// A shared texture with a snapshot of its GL name and version, so that a holder which built
/// GL state on the texture (a framebuffer attachment) can tell whether the texture was
/// re-allocated since: ask isConsistent() before use, rebuild when false, then
/// makeConsistent(). Both numbers are compared, so a re-allocation that got the same GL name
/// back is still noticed. Usable with P = std::shared_ptr<Texture2D> and
/// P = std::shared_ptr<const Texture2D>.
///
/// The numbers start at 0 (never a GL texture name), so a context that was never made
/// consistent is inconsistent unless its pointer is empty.
template <typename P> struct Texture2DBaseContext
{
    P texture;                ///< The texture (may be empty).
    unsigned int handle = 0;  ///< Its GL name when last made consistent.
    unsigned int version = 0; ///< Its version when last made consistent.

    /// Takes the texture's current name and version; an empty pointer changes nothing.
    void makeConsistent()
    {
        if (texture)
        {
            handle = texture->getHandle();
            version = texture->getVersion();
        }
    }

    /// True for an empty pointer; otherwise whether name and version are those of the last
    /// makeConsistent(). Makes no GL call.
    bool isConsistent() const
    {
        return !texture || (handle == texture->getHandle() && version == texture->getVersion());
    }
};
} // namespace OpenGL
} // namespace Tavrin
