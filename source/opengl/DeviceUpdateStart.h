#pragma once

// Internal: the start that the devices' update() share.

#include <opengl/Program.h>

#include <iostream>
#include <memory>
#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
namespace Detail
{
// True when output slot 0 holds a texture; otherwise writes "ERROR: No output texture." and
// returns false.
template <class OutputSlots> bool hasOutputTexture(const OutputSlots& outputs)
{
    if (outputs.empty() || !outputs.front().texture)
    {
        std::cerr << "ERROR: "
                  << "No output texture.";
        return false;
    }
    return true;
}

// hasOutputTexture, before any GL call; then throws "No program." when the device has no program.
template <class OutputSlots> bool readyToUpdate(const OutputSlots& outputs, const std::shared_ptr<Program>& program)
{
    if (!hasOutputTexture(outputs))
        return false;
    if (!program)
        throw std::runtime_error("No program.");
    return true;
}
} // namespace Detail
} // namespace OpenGL
} // namespace Tavrin
