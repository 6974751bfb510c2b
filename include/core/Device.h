#pragma once

namespace Tavrin
{
/// Base of the processing devices: one GPU pass that recomputes its outputs on update().
///
/// The base holds no data. It has no virtual destructor on purpose: a device is destroyed
/// through its own type, never through a Device pointer.
class Device
{
public:
    Device() = default;
    /// Copying copies nothing: the base holds no data.
    ///@{
    Device(const Device&) {}
    Device& operator=(const Device&) { return *this; }
    ///@}
    ~Device() = default;

    /// Recomputes the device's outputs; returns false when the device could not run.
    virtual bool update() = 0;
};
} // namespace Tavrin
