// The string tools take driver logs and uniform names: any bytes must be safe.
#include <core/StringTools.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t split = size ? data[0] % (size + 1) : 0;
    const std::string delimiters = text.substr(0, split % 4);

    const auto pieces = Tavrin::StringTools::tokenize(text, delimiters);
    std::size_t total = 0;
    for (const auto& piece : pieces)
    {
        if (piece.empty() || (!delimiters.empty() && piece.find_first_of(delimiters) != std::string::npos))
            std::abort(); // pieces are non-empty and free of delimiters
        total += piece.size();
    }
    if (total > size)
        std::abort();

    const int value = Tavrin::StringTools::stringToInt(text);
    if (Tavrin::StringTools::stringToInt(Tavrin::StringTools::intToString(value)) != value)
        std::abort();
    const std::string trimmed = Tavrin::StringTools::trim(Tavrin::StringTools::toLower(text));
    if (trimmed.size() > size || Tavrin::StringTools::trim(trimmed) != trimmed)
        std::abort();
    return 0;
}
