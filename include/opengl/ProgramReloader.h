#pragma once

#include <opengl/Platform.h>
#include <opengl/Program.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Tavrin
{
class FileLoader;

namespace OpenGL
{
/// Keeps a program current with its files: the host calls poll() once a frame (no thread), and
/// when any file the program was assembled from (its stage files and every file they include)
/// has a new modification time, the program is rebuilt with Program::loadFromFileWithIncludes.
///
/// Files are watched on the file system: without a loader the names are paths; with a
/// DirectoryFileLoader each name is resolved to its path once per build. Through any other
/// loader nothing can be watched, and poll() never rebuilds.
class TAVRIN_OPENGL_EXPORT ProgramReloader
{
public:
    /// What one poll() did.
    enum class Result
    {
        Unchanged, ///< no watched file changed; nothing was read or built
        Reloaded,  ///< the program was rebuilt and holds the new GL program
        Failed     ///< a rebuild failed; the old program stays, getLog() says why
    };

    /// Builds the program with Program::loadFromFileWithIncludes(baseName, loader) and watches
    /// every file read. Throws as that factory does. `loader` must outlive the reloader.
    explicit ProgramReloader(const std::string& baseName, const FileLoader* loader = nullptr);

    /// The program, the same object across rebuilds: hosts and devices hold it.
    const std::shared_ptr<Program>& getProgram() const;

    /// Compares the modification time of every watched file with the one of the last build
    /// (one query per file, no reading) and rebuilds when any differs. On success the same
    /// Program object holds the new GL program, and the plain uniform values of the old one
    /// (ints, unsigned ints, floats and their vectors, and arrays of them: uniform structure
    /// members included, block members, samplers and matrices not) are carried over by name
    /// where the new program has a uniform of that name and type; the old GL program is deleted,
    /// and if it was in use the new one is in use instead (any other binding is kept). On
    /// failure nothing changes but getLog(), which holds the exception's text (the compile log
    /// mapped to the files, a link log, or a missing include or cycle), and the new times
    /// count as seen, so a failing version is built once, not once a frame. Exceptions other
    /// than GLSLException and std::runtime_error pass through.
    Result poll();

    /// The text of the last failed rebuild; empty until one fails and again after a success.
    const std::string& getLog() const;

private:
    void watch(const std::vector<std::string>& files);
    bool changed();

    std::string baseName;
    const FileLoader* loader;
    std::shared_ptr<Program> program;
    std::vector<std::string> paths;
    std::vector<std::filesystem::file_time_type> times;
    std::string log;
};
} // namespace OpenGL
} // namespace Tavrin
