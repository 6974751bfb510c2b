#pragma once

#include <string>

namespace Tavrin
{
class FileLoader;

namespace FileTools
{
/// True when `fileName` names a readable regular file; with a loader, asks the loader instead.
bool fileExists(const std::string& fileName, const FileLoader* loader = nullptr);

/// The whole content of a file, bytes unchanged. Throws std::runtime_error
/// ("Cannot read file '<name>'") when the file cannot be opened or read.
std::string loadFileAsString(const std::string& fileName);
} // namespace FileTools
} // namespace Tavrin
