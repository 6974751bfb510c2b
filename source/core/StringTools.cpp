#include <core/StringTools.h>

#include <algorithm>
#include <cctype>
#include <climits>

namespace Tavrin
{
namespace StringTools
{
namespace
{
bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
} // namespace

std::string intToString(int value)
{
    return std::to_string(value);
}

int stringToInt(const std::string& text)
{
    std::size_t i = 0;
    while (i < text.size() && isSpace(text[i]))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        negative = text[i++] == '-';
    // Accumulate in a wider type and clamp, so that driver logs with absurd numbers stay defined.
    long long value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
    {
        value = value * 10 + (text[i] - '0');
        if (value > static_cast<long long>(INT_MAX) + 1)
            value = static_cast<long long>(INT_MAX) + 1;
    }
    if (negative)
        value = -value;
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

std::vector<std::string> tokenize(const std::string& text, const std::string& delimiters)
{
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (start < text.size())
    {
        std::size_t end = text.find_first_of(delimiters, start);
        if (end == std::string::npos)
            end = text.size();
        if (end > start)
            pieces.emplace_back(text, start, end - start);
        start = end + 1;
    }
    return pieces;
}

std::string toLower(const std::string& text)
{
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return result;
}

std::string trim(const std::string& text)
{
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && isSpace(text[begin]))
        ++begin;
    while (end > begin && isSpace(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}
} // namespace StringTools
} // namespace Tavrin
