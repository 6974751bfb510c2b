#pragma once

#include <iosfwd>
#include <sstream>
#include <string>
#include <vector>

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

/// The GL objects of the current context that exist by GL's own account (glIsTexture,
/// glIsFramebuffer, glIsProgram, glIsShader, glIsList over the names 1..4096), as
/// "texture 3", "program 7", ... The GL suite compares this before and after every test.
std::vector<std::string> liveGLObjects();

/// Lets the running test end with more GL objects than it started with (for a test whose
/// subject is an object that outlives it on purpose). Resets at the next test.
void allowGLObjectGrowth();
bool glObjectGrowthAllowed();
void resetGLObjectGrowthAllowance();
} // namespace TavrinTest
