#pragma once

#include <string>
#include <vector>

namespace Tavrin
{
namespace StringTools
{
/// Decimal text of `value`.
std::string intToString(int value);

/// Reads a decimal integer the way C's atoi does (leading white space, an optional sign, then
/// digits up to the first non-digit) and returns 0 when there are no digits. Values beyond the
/// range of int are clamped to it.
int stringToInt(const std::string& text);

/// Splits `text` at every character that occurs in `delimiters`; empty pieces are dropped, so
/// an empty text gives an empty vector.
std::vector<std::string> tokenize(const std::string& text, const std::string& delimiters);

/// `text` with ASCII upper-case letters turned to lower case.
std::string toLower(const std::string& text);

/// `text` without leading and trailing white space (blank, tab, line feed, carriage return,
/// vertical tab, form feed).
std::string trim(const std::string& text);
} // namespace StringTools
} // namespace Tavrin
