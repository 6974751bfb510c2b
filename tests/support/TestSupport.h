#pragma once

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace TavrinTest
{
/// Captures what a standard stream gets while alive (the library's streams are the host's).
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

/// What a call shows a host: its std::runtime_error's text ("" if none) and its std::cout/std::cerr.
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

/// The text of the std::runtime_error that `action` throws ("" if none), its output kept out of the log.
template <typename Action> std::string thrownBy(Action action)
{
    return outcomeOf(action).thrown;
}

/// `text` with GL check line numbers written as "(line N) ".
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
    std::string file(const std::string& name) const { return directory + "/" + name; }
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string directory;
};

void drainGLErrors();

/// The GL objects that exist by GL's own account (glIsTexture, ... over every name in use), sorted,
/// as "texture 3", "program 7", ...; the GL suite compares this before and after every test.
std::vector<std::string> liveGLObjects();
} // namespace TavrinTest
