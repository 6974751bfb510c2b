#pragma once

// What the GL suite's environment (GLTestEnvironment.cpp) offers its tests.

namespace TavrinTest
{
/// While alive, no GL context is current on the calling thread; on destruction the suite's
/// context is made current again. For code that must run without a context.
class NoCurrentContext
{
public:
    NoCurrentContext();
    ~NoCurrentContext();
    NoCurrentContext(const NoCurrentContext&) = delete;
    NoCurrentContext& operator=(const NoCurrentContext&) = delete;
};
} // namespace TavrinTest
