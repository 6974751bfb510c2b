#pragma once

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace TavrinTest
{
/// Captures what is written to a standard stream (std::cout, std::cerr) while alive, by swapping
/// the stream's buffer: the library's streams are the host's streams.
class StreamCapture
{
public:
    explicit StreamCapture(std::ostream& stream) : stream(stream), original(stream.rdbuf(captured.rdbuf())) {}
    ~StreamCapture() { stream.rdbuf(original); }
    StreamCapture(const StreamCapture&) = delete;
    StreamCapture& operator=(const StreamCapture&) = delete;
    std::string text() const { return captured.str(); }

private:
    std::ostream& stream;
    std::ostringstream captured; // constructed before `original` takes its buffer
    std::streambuf* original;
};

/// What a call shows a host: the text of the std::runtime_error it throws ("" if none) and what
/// it wrote to std::cout and std::cerr meanwhile.
struct Outcome
{
    std::string out, thrown, err;
};

template <typename Action> Outcome outcomeOf(Action action)
{
    Outcome outcome;
    StreamCapture out(std::cout), err(std::cerr);
    try
    {
        action();
    }
    catch (const std::runtime_error& error)
    {
        outcome.thrown = error.what();
    }
    outcome.out = out.text();
    outcome.err = err.text();
    return outcome;
}

/// The text of the std::runtime_error that `action` throws ("" if none); the standard streams
/// are captured so that GL check warnings stay out of the test log.
template <typename Action> std::string thrownBy(Action action)
{
    return outcomeOf(action).thrown;
}

/// `text` with the line numbers of GL check warnings ("(line 41)") written as "(line N)".
std::string withoutLineNumbers(std::string text);

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
    std::string file(const std::string& name) const { return directory + "/" + name; }
    /// Writes `content` to file(name), making its directories, and returns that path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string directory;
};

/// Takes every pending GL error (tests that provoke errors leave none behind).
void drainGLErrors();

/// The GL objects of the current context that exist by GL's own account (glIsTexture,
/// glIsFramebuffer, glIsProgram, glIsShader, glIsList over every name in use), sorted, as
/// "texture 3", "program 7", ... The GL suite compares this before and after every test.
std::vector<std::string> liveGLObjects();

/// Lets the running test end with more GL objects than it started with (for a test whose
/// subject is an object that outlives it on purpose). Resets at the next test.
void allowGLObjectGrowth();
bool glObjectGrowthAllowed();
void resetGLObjectGrowthAllowance();
} // namespace TavrinTest
