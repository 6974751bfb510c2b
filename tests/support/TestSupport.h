#pragma once

#include <iostream>
#include <sstream>
#include <stdexcept>
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

/// What a call shows a host: the text of the std::runtime_error it throws ("" if none) and
/// what it wrote to std::cout meanwhile.
struct Outcome
{
    std::string out, thrown;
};

template <typename Action> Outcome outcomeOf(Action action)
{
    Outcome outcome;
    StreamCapture out(std::cout);
    try
    {
        action();
    }
    catch (const std::runtime_error& error)
    {
        outcome.thrown = error.what();
    }
    outcome.out = out.text();
    return outcome;
}

/// The text of the std::runtime_error that `action` throws ("" if none); std::cout is captured
/// so that GL check warnings stay out of the test log.
template <typename Action> std::string thrownBy(Action action)
{
    return outcomeOf(action).thrown;
}

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
