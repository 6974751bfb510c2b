#pragma once

#include <memory>
#include <string>

namespace Tavrin
{
/// Iterates the names of the entries of one directory (not recursive, without "." and "..").
///
///     DirectoryIterator it("shaders");
///     std::string name;
///     while (it.next(name)) { ... }
class DirectoryIterator
{
public:
    /// Opens `directory`. Throws std::runtime_error naming it when it is not a readable directory.
    explicit DirectoryIterator(const std::string& directory);
    ~DirectoryIterator();
    /// Moving hands the open directory over; the moved-from iterator holds none.
    ///@{
    DirectoryIterator(DirectoryIterator&&) noexcept;
    DirectoryIterator& operator=(DirectoryIterator&&) noexcept;
    ///@}

    /// Stores the next entry's file name (without directory) in `fileName` and returns true;
    /// returns false, leaving `fileName` alone, when no entry is left.
    bool next(std::string& fileName);

private:
    struct State;
    std::unique_ptr<State> state;
};
} // namespace Tavrin
