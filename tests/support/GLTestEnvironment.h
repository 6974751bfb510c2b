#pragma once

namespace TavrinTest
{
/// While alive, no GL context is current on the calling thread; on destruction the GL suite's
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
