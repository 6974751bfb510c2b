#include <core/Image2D.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_NO_STDIO
#include <stb_image.h>

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb_image_write.h>

namespace Tavrin
{
namespace
{
constexpr unsigned int formatR8 = 0x8229;
constexpr unsigned int formatRG8 = 0x822B;
constexpr unsigned int formatRGB8 = 0x8051;
constexpr unsigned int formatRGBA8 = 0x8058;
constexpr unsigned int formatR32F = 0x822E;
constexpr unsigned int formatRGBA32F = 0x8814;

unsigned int formatForChannels(int channels)
{
    switch (channels)
    {
    case 1:
        return formatR8;
    case 2:
        return formatRG8;
    case 3:
        return formatRGB8;
    default:
        return formatRGBA8;
    }
}

int channelsOf8BitFormat(unsigned int format)
{
    switch (format)
    {
    case formatR8:
        return 1;
    case formatRG8:
        return 2;
    case formatRGB8:
        return 3;
    case formatRGBA8:
        return 4;
    default:
        return 0;
    }
}

// Reverses the row order: files are top row first, GL textures bottom row first.
void flipRows(unsigned char* pixels, std::size_t rowBytes, int rows)
{
    std::vector<unsigned char> swap(rowBytes);
    for (int top = 0, bottom = rows - 1; top < bottom; ++top, --bottom)
    {
        unsigned char* a = pixels + rowBytes * top;
        unsigned char* b = pixels + rowBytes * bottom;
        std::memcpy(swap.data(), a, rowBytes);
        std::memcpy(a, b, rowBytes);
        std::memcpy(b, swap.data(), rowBytes);
    }
}

void appendToVector(void* context, void* bytes, int count)
{
    auto* out = static_cast<std::vector<unsigned char>*>(context);
    const auto* begin = static_cast<const unsigned char*>(bytes);
    out->insert(out->end(), begin, begin + count);
}
} // namespace

Image2D::Image2D()
    : size(0, 0)
    , internalFormat(formatRGBA8)
{
}

Image2D::Image2D(const Eigen::Vector2i& size, unsigned int internalFormat)
    : size(size)
    , internalFormat(internalFormat)
{
    if (bytesPerTexel(internalFormat) == 0)
        throw std::runtime_error("Image2D: unsupported internal format " + std::to_string(internalFormat));
    if (size.x() < 0 || size.y() < 0)
        throw std::runtime_error("Image2D: negative size");
    data.assign(getByteCount(), 0);
}

Image2D::Image2D(const std::string& fileName)
    : Image2D()
{
    load(fileName);
}

unsigned int Image2D::getInternalFormat() const
{
    return internalFormat;
}

const Eigen::Vector2i& Image2D::getSize() const
{
    return size;
}

void* Image2D::getData() const
{
    return const_cast<unsigned char*>(data.data());
}

int Image2D::getBytesPerTexel() const
{
    return bytesPerTexel(internalFormat);
}

std::size_t Image2D::getByteCount() const
{
    return static_cast<std::size_t>(size.x()) * static_cast<std::size_t>(size.y()) * getBytesPerTexel();
}

int Image2D::bytesPerTexel(unsigned int internalFormat)
{
    switch (internalFormat)
    {
    case formatR32F:
        return 4;
    case formatRGBA32F:
        return 16;
    default:
        return channelsOf8BitFormat(internalFormat);
    }
}

void Image2D::load(const std::string& fileName)
{
    std::ifstream stream(fileName, std::ios::binary);
    if (!stream)
        throw std::runtime_error("Cannot read image file '" + fileName + "'");
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    if (bytes.size() > static_cast<std::size_t>(INT32_MAX))
        throw std::runtime_error("Cannot decode image file '" + fileName + "': file too large");
    int width = 0, height = 0, channels = 0;
    unsigned char* pixels =
        stbi_load_from_memory(bytes.data(), static_cast<int>(bytes.size()), &width, &height, &channels, 0);
    if (!pixels)
        throw std::runtime_error("Cannot decode image file '" + fileName + "': " + stbi_failure_reason());
    const std::size_t rowBytes = static_cast<std::size_t>(width) * channels;
    flipRows(pixels, rowBytes, height);
    std::vector<unsigned char> decoded(pixels, pixels + rowBytes * height);
    stbi_image_free(pixels);

    data.swap(decoded);
    size = Eigen::Vector2i(width, height);
    internalFormat = formatForChannels(channels);
}

void Image2D::save(const std::string& fileName) const
{
    const int channels = channelsOf8BitFormat(internalFormat);
    if (channels == 0)
        throw std::runtime_error("Cannot save image file '" + fileName + "': only 8-bit formats have a PNG form");
    const std::size_t rowBytes = static_cast<std::size_t>(size.x()) * channels;
    std::vector<unsigned char> topDown(data);
    flipRows(topDown.data(), rowBytes, size.y());
    std::vector<unsigned char> encoded;
    const int ok = stbi_write_png_to_func(appendToVector, &encoded, size.x(), size.y(), channels, topDown.data(),
                                          static_cast<int>(rowBytes));
    std::ofstream stream(fileName, std::ios::binary);
    if (ok)
        stream.write(reinterpret_cast<const char*>(encoded.data()), static_cast<std::streamsize>(encoded.size()));
    if (!ok || !stream)
        throw std::runtime_error("Cannot write image file '" + fileName + "'");
}
} // namespace Tavrin
