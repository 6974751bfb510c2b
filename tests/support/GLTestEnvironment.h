#pragma once

namespace TavrinTest
{
/// While alive, no GL context is current on this thread; then the suite's context is again.
class NoCurrentContext
{
public:
    NoCurrentContext();
    ~NoCurrentContext();
    NoCurrentContext(const NoCurrentContext&) = delete;
    NoCurrentContext& operator=(const NoCurrentContext&) = delete;
};
} // namespace TavrinTest
