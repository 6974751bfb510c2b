#pragma once

#include <string>
#include <vector>

namespace Tavrin
{
/// Resolves file names for the library (shader stage files): a host can serve them from
/// search paths, an archive or memory.
class FileLoader
{
public:
    FileLoader() = default;
    virtual ~FileLoader() = default;

    /// True when `fileName` can be loaded through this loader.
    virtual bool fileExists(const std::string& fileName) const = 0;
    /// The whole content of `fileName`. Throws std::runtime_error naming the file when it
    /// cannot be found or read.
    virtual std::string loadFileAsString(const std::string& fileName) const = 0;
};

/// A FileLoader that looks a name up in a list of directories, in order, and takes the first
/// regular file found. Absolute names are taken as they are.
class DirectoryFileLoader : public FileLoader
{
public:
    /// Resolves relative names against `directories`, searched in this order.
    explicit DirectoryFileLoader(std::vector<std::string> directories);

    bool fileExists(const std::string& fileName) const override;
    std::string loadFileAsString(const std::string& fileName) const override;

    /// The path under which `fileName` is found, or an empty string.
    std::string resolve(const std::string& fileName) const;

private:
    std::vector<std::string> directories;
};
} // namespace Tavrin
