#pragma once

#include <Eigen/Core>
#include <memory>
#include <string>
#include <vector>

namespace Tavrin
{
/// An image in memory: tightly packed rows of texels in a GL sized internal format.
///
/// Rows are stored bottom row first, as GL expects texture data: `load` and `save` flip the
/// top-down rows of image files, so an image loaded and uploaded to a texture appears upright.
/// Supported formats: GL_R8, GL_RG8, GL_RGB8, GL_RGBA8 (one byte per channel), GL_R32F and
/// GL_RGBA32F (four bytes per channel).
class Image2D
{
public:
    /// An empty image: size (0, 0), format GL_RGBA8.
    Image2D();
    /// A zero-filled image. Throws std::runtime_error for a negative size or an unsupported format.
    Image2D(const Eigen::Vector2i& size, unsigned int internalFormat);
    /// Loads a PNG or JPEG file (see load).
    explicit Image2D(const std::string& fileName);

    /// The GL sized internal format (GL_RGB8 0x8051, GL_RGBA8 0x8058, ...).
    unsigned int getInternalFormat() const;
    /// (width, height) in texels.
    const Eigen::Vector2i& getSize() const;
    /// The texel data, bottom row first, rows tightly packed (no row padding).
    void* getData() const;
    /// Bytes per texel of the format.
    int getBytesPerTexel() const;
    /// Bytes of the whole image.
    std::size_t getByteCount() const;

    /// Replaces this image with a PNG or JPEG file's content: 1, 2, 3 and 4 channels give
    /// GL_R8, GL_RG8, GL_RGB8 and GL_RGBA8. Throws std::runtime_error naming the file when it
    /// cannot be read or decoded; the image is then unchanged.
    void load(const std::string& fileName);
    /// Decodes a PNG or JPEG held in memory, as load does; `name` names the data in errors.
    void loadFromMemory(const void* bytes, std::size_t byteCount, const std::string& name);
    /// Writes the image as PNG (8-bit formats only). Throws std::runtime_error naming the file
    /// when the format has no PNG form or the file cannot be written.
    void save(const std::string& fileName) const;

    /// Bytes per texel of a supported format, 0 for any other.
    static int bytesPerTexel(unsigned int internalFormat);

private:
    Eigen::Vector2i size;
    unsigned int internalFormat;
    std::vector<unsigned char> data;
};

/// A shared image that creates an empty Image2D() on default construction (never empty then),
/// owned with a separate control block as std::shared_ptr<Image2D>(new Image2D()) gives.
/// Copies share, moves empty the source; there is no way to make one from an existing pointer.
class Image2DPtrAI : public std::shared_ptr<Image2D>
{
public:
    Image2DPtrAI() : std::shared_ptr<Image2D>(new Image2D()) {}
};
} // namespace Tavrin
