// The image loader decodes files a host does not control: truncated or forged PNG/JPEG data
// must end in std::runtime_error, never in a crash or an out-of-bounds read.
#include <core/Image2D.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Tavrin::Image2D image;
    try
    {
        image.loadFromMemory(data, size, "fuzz input");
    }
    catch (const std::runtime_error&)
    {
        return 0;
    }
    if (image.getByteCount() !=
        static_cast<std::size_t>(image.getSize().x()) * image.getSize().y() * image.getBytesPerTexel())
        std::abort();
    volatile unsigned char sink = 0;
    const auto* bytes = static_cast<const unsigned char*>(image.getData());
    for (std::size_t i = 0; i < image.getByteCount(); i += 97)
        sink = sink + bytes[i];
    return 0;
}
