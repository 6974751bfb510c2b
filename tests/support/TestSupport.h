#pragma once

#include <iosfwd>
#include <sstream>
#include <string>

namespace TavrinTest
{
/// Captures everything written to a standard stream while alive (std::cout / std::cerr), by
/// swapping the stream's buffer: the library's streams are the host's streams.
class StreamCapture
{
public:
    explicit StreamCapture(std::ostream& stream);
    ~StreamCapture();
    StreamCapture(const StreamCapture&) = delete;
    StreamCapture& operator=(const StreamCapture&) = delete;

    std::string text() const;

private:
    std::ostream& stream;
    std::ostringstream captured; // constructed before `original` takes its buffer
    std::streambuf* original;
};

/// A fresh directory under the system's temporary directory, removed with its content.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return directory; }
    /// path() + "/" + name
    std::string file(const std::string& name) const;
    /// Writes `content` to file(name) and returns that path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string directory;
};

/// Takes every pending GL error (tests that provoke errors leave none behind).
void drainGLErrors();
} // namespace TavrinTest
