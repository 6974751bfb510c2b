#pragma once

// Internal: the platform half of Font's construction (GDI + WGL on Windows, fontconfig + FreeType
// + GLU on Linux).

#include <opengl/Font.h>

#include <string>

namespace Tavrin
{
namespace OpenGL
{
namespace Detail
{
// Reserves `listCount` display lists, builds codes 0 to listCount - 2 into them (the last list
// stays empty) and writes their records of `metrics`, which the caller has zero-filled. Returns
// the list base, or 0 after writing the font's warning.
unsigned int buildFontOutlines(const std::string& name, int listCount, Font::GlyphMetrics* metrics);
} // namespace Detail
} // namespace OpenGL
} // namespace Tavrin
