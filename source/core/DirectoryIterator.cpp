#include <core/DirectoryIterator.h>

#include <filesystem>
#include <stdexcept>

namespace Tavrin
{
struct DirectoryIterator::State
{
    std::filesystem::directory_iterator current;
};

DirectoryIterator::DirectoryIterator(const std::string& directory) : state(new State)
{
    std::error_code error;
    state->current = std::filesystem::directory_iterator(std::filesystem::u8path(directory), error);
    if (error)
        throw std::runtime_error("Cannot read directory '" + directory + "'");
}

DirectoryIterator::~DirectoryIterator() = default;
DirectoryIterator::DirectoryIterator(DirectoryIterator&&) noexcept = default;
DirectoryIterator& DirectoryIterator::operator=(DirectoryIterator&&) noexcept = default;

bool DirectoryIterator::next(std::string& fileName)
{
    if (!state || state->current == std::filesystem::directory_iterator())
        return false;
    fileName = state->current->path().filename().u8string();
    std::error_code error;
    state->current.increment(error);
    if (error)
        state->current = std::filesystem::directory_iterator();
    return true;
}
} // namespace Tavrin
