#include <core/Image2D.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_NO_STDIO
// Larger than any texture GL accepts; keeps a forged header from asking for gigabytes.
#define STBI_MAX_DIMENSIONS 32768
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

// Checks the chunk structure of PNG data before stb_image sees it, for two faults of
// stb_image 2.27 with forged files: it reserves memory for a chunk's declared length before
// reading it (a few bytes can ask for gigabytes), and it copies a zero-length IDAT chunk into a
// still unallocated buffer (memcpy(NULL, p, 0), undefined behaviour). A chunk that runs past
// the end of the data is reported as truncated; an empty IDAT carries no pixels and is dropped.
// Returns the bytes to decode (empty when the data is not PNG).
std::vector<unsigned char> checkedPngChunks(const unsigned char* bytes, std::size_t size, const std::string& name)
{
    static const unsigned char signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<unsigned char> result;
    if (size < 8 || std::memcmp(bytes, signature, 8) != 0)
        return result;
    result.assign(bytes, bytes + 8);
    std::size_t position = 8;
    while (position < size)
    {
        if (size - position < 12)
            throw std::runtime_error("Cannot decode image file '" + name + "': truncated PNG chunk");
        const std::size_t length = (std::size_t(bytes[position]) << 24) | (std::size_t(bytes[position + 1]) << 16) |
                                   (std::size_t(bytes[position + 2]) << 8) | std::size_t(bytes[position + 3]);
        if (length > size - position - 12)
            throw std::runtime_error("Cannot decode image file '" + name + "': truncated PNG chunk");
        const bool emptyData = length == 0 && std::memcmp(bytes + position + 4, "IDAT", 4) == 0;
        if (!emptyData)
            result.insert(result.end(), bytes + position, bytes + position + 12 + length);
        const bool end = std::memcmp(bytes + position + 4, "IEND", 4) == 0;
        position += 12 + length;
        if (end)
            break;
    }
    return result;
}

// stb_image 2.27 builds JPEG Huffman tables into 257-entry arrays without checking that a
// table's code counts add up to at most 256: a forged file writes past them. Every DHT segment
// (also those between progressive scans) is checked first and such a file reported as corrupt.
void checkJpegHuffmanTables(const unsigned char* bytes, std::size_t size, const std::string& name)
{
    // stb_image takes any number of 0xFF fill bytes before the start-of-image marker.
    std::size_t start = 1;
    while (start < size && bytes[start] == 0xFF)
        ++start;
    if (size < 2 || bytes[0] != 0xFF || start >= size || bytes[start] != 0xD8)
        return;
    const auto corrupt = [&name](const char* what) {
        return std::runtime_error("Cannot decode image file '" + name + "': " + what);
    };
    std::size_t position = start + 1;
    while (position + 1 < size)
    {
        if (bytes[position] != 0xFF)
            throw corrupt("corrupt JPEG marker");
        const unsigned char marker = bytes[position + 1];
        if (marker == 0xFF)
        {
            ++position; // fill byte
            continue;
        }
        if (marker == 0xD9)
            return;
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7))
        {
            position += 2;
            continue;
        }
        if (size - position < 4)
            throw corrupt("truncated JPEG segment");
        const std::size_t length = (std::size_t(bytes[position + 2]) << 8) | bytes[position + 3];
        if (length < 2 || length > size - position - 2)
            throw corrupt("truncated JPEG segment");
        const std::size_t end = position + 2 + length;
        if (marker == 0xC4)
        {
            // Walk the tables as stb_image reads them: it reads a table's 17 header bytes even
            // when the segment is shorter (bytes past the data read as 0).
            const auto byteAt = [&](std::size_t i) -> std::size_t { return i < size ? bytes[i] : 0; };
            long remaining = static_cast<long>(length) - 2;
            for (std::size_t table = position + 4; remaining > 0;)
            {
                std::size_t symbols = 0;
                for (int i = 1; i <= 16; ++i)
                    symbols += byteAt(table + i);
                if (symbols > 256)
                    throw corrupt("corrupt JPEG Huffman table");
                table += 17 + symbols;
                remaining -= 17 + static_cast<long>(symbols);
            }
        }
        position = end;
        if (marker == 0xDA)
        {
            // Entropy-coded data runs to the next marker that is neither a stuffed 0x00 nor a restart.
            while (position + 1 < size && !(bytes[position] == 0xFF && bytes[position + 1] != 0x00 &&
                                            !(bytes[position + 1] >= 0xD0 && bytes[position + 1] <= 0xD7)))
                ++position;
        }
    }
}

void appendToVector(void* context, void* bytes, int count)
{
    auto* out = static_cast<std::vector<unsigned char>*>(context);
    const auto* begin = static_cast<const unsigned char*>(bytes);
    out->insert(out->end(), begin, begin + count);
}
} // namespace

Image2D::Image2D() : size(0, 0), internalFormat(formatRGBA8) {}

Image2D::Image2D(const Eigen::Vector2i& size, unsigned int internalFormat) : size(size), internalFormat(internalFormat)
{
    if (bytesPerTexel(internalFormat) == 0)
        throw std::runtime_error("Image2D: unsupported internal format " + std::to_string(internalFormat));
    if (size.x() < 0 || size.y() < 0)
        throw std::runtime_error("Image2D: negative size");
    data.assign(getByteCount(), 0);
}

Image2D::Image2D(const std::string& fileName) : Image2D()
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
    if (stream.bad())
        throw std::runtime_error("Cannot read image file '" + fileName + "'");
    loadFromMemory(bytes.data(), bytes.size(), fileName);
}

void Image2D::loadFromMemory(const void* bytes, std::size_t byteCount, const std::string& name)
{
    if (byteCount > static_cast<std::size_t>(INT32_MAX))
        throw std::runtime_error("Cannot decode image file '" + name + "': file too large");
    const std::vector<unsigned char> cleaned =
        checkedPngChunks(static_cast<const unsigned char*>(bytes), byteCount, name);
    if (!cleaned.empty())
    {
        bytes = cleaned.data();
        byteCount = cleaned.size();
    }
    checkJpegHuffmanTables(static_cast<const unsigned char*>(bytes), byteCount, name);
    int width = 0, height = 0, channels = 0;
    unsigned char* pixels = stbi_load_from_memory(static_cast<const stbi_uc*>(bytes), static_cast<int>(byteCount),
                                                  &width, &height, &channels, 0);
    if (!pixels)
        throw std::runtime_error("Cannot decode image file '" + name + "': " + stbi_failure_reason());
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
