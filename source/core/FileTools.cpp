#include <core/FileLoader.h>
#include <core/FileTools.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Tavrin
{
namespace FileTools
{
bool fileExists(const std::string& fileName, const FileLoader* loader)
{
    if (loader)
        return loader->fileExists(fileName);
    std::error_code error;
    if (!std::filesystem::is_regular_file(std::filesystem::u8path(fileName), error))
        return false;
    std::ifstream stream(std::filesystem::u8path(fileName), std::ios::binary);
    return stream.good();
}

std::string loadFileAsString(const std::string& fileName)
{
    std::error_code error;
    const auto path = std::filesystem::u8path(fileName);
    // Opening a directory succeeds on some platforms; reading it must not pass as an empty file.
    std::ifstream stream;
    if (!std::filesystem::is_directory(path, error))
        stream.open(path, std::ios::binary);
    if (!stream.is_open() || !stream)
        throw std::runtime_error("Cannot read file '" + fileName + "'");
    std::ostringstream content;
    content << stream.rdbuf();
    if (stream.bad())
        throw std::runtime_error("Cannot read file '" + fileName + "'");
    return content.str();
}
} // namespace FileTools

DirectoryFileLoader::DirectoryFileLoader(std::vector<std::string> directories) : directories(std::move(directories)) {}

std::string DirectoryFileLoader::resolve(const std::string& fileName) const
{
    const auto name = std::filesystem::u8path(fileName);
    if (name.is_absolute())
        return FileTools::fileExists(fileName) ? fileName : std::string();
    for (const auto& directory : directories)
    {
        const std::string candidate = (std::filesystem::u8path(directory) / name).u8string();
        if (FileTools::fileExists(candidate))
            return candidate;
    }
    return std::string();
}

bool DirectoryFileLoader::fileExists(const std::string& fileName) const
{
    return !resolve(fileName).empty();
}

std::string DirectoryFileLoader::loadFileAsString(const std::string& fileName) const
{
    const std::string path = resolve(fileName);
    if (path.empty())
        throw std::runtime_error("Cannot read file '" + fileName + "'");
    return FileTools::loadFileAsString(path);
}
} // namespace Tavrin
