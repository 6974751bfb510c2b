#include "../FontOutlines.h"

#include <windows.h>

#include <GL/glew.h>

#include <cstddef>
#include <iostream>

namespace Tavrin
{
namespace OpenGL
{
// The metrics array goes to wglUseFontOutlinesW as it is, so the records must be WGL's.
static_assert(sizeof(Font::GlyphMetrics) == sizeof(GLYPHMETRICSFLOAT), "GlyphMetrics must match GLYPHMETRICSFLOAT");
static_assert(offsetof(Font::GlyphMetrics, blackBoxX) == offsetof(GLYPHMETRICSFLOAT, gmfBlackBoxX) &&
                  offsetof(Font::GlyphMetrics, blackBoxY) == offsetof(GLYPHMETRICSFLOAT, gmfBlackBoxY) &&
                  offsetof(Font::GlyphMetrics, originX) == offsetof(GLYPHMETRICSFLOAT, gmfptGlyphOrigin.x) &&
                  offsetof(Font::GlyphMetrics, originY) == offsetof(GLYPHMETRICSFLOAT, gmfptGlyphOrigin.y) &&
                  offsetof(Font::GlyphMetrics, cellIncX) == offsetof(GLYPHMETRICSFLOAT, gmfCellIncX) &&
                  offsetof(Font::GlyphMetrics, cellIncY) == offsetof(GLYPHMETRICSFLOAT, gmfCellIncY),
              "GlyphMetrics must have GLYPHMETRICSFLOAT's layout");

unsigned int Detail::buildFontOutlines(const std::string& name, int listCount, Font::GlyphMetrics* metrics)
{
    HDC deviceContext = wglGetCurrentDC();
    HFONT font = CreateFontA(0, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, ANSI_CHARSET, OUT_TT_PRECIS,
                             CLIP_DEFAULT_PRECIS, ANTIALIASED_QUALITY, DEFAULT_PITCH | FF_DONTCARE, name.c_str());
    if (!font)
    {
        std::cout << "WARNING: "
                  << "Failed to create font";
        return 0;
    }
    // The previous font is not restored: the outlines are built before this function returns.
    SelectObject(deviceContext, font);
    GLuint listBase = glGenLists(listCount);
    // One code fewer than the lists reserved: the last list stays empty.
    if (!wglUseFontOutlinesW(deviceContext, 0, listCount - 1, listBase, 0.0f, 0.2f, WGL_FONT_POLYGONS,
                             reinterpret_cast<GLYPHMETRICSFLOAT*>(metrics)))
    {
        const DWORD error = GetLastError();
        std::cout << "WARNING: "
                  << "Failed to create font outline. Error code: " << error;
        glDeleteLists(listBase, listCount);
        listBase = 0;
    }
    // Still selected, but the outlines no longer need it.
    DeleteObject(font);
    return listBase;
}
} // namespace OpenGL
} // namespace Tavrin
