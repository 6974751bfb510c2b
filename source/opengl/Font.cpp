#include <opengl/Font.h>
#include <opengl/GLCheck.h>

#include "FontOutlines.h"

#include <GL/glew.h>

#include <algorithm>

namespace Tavrin
{
namespace OpenGL
{
Font::Font(const std::string& name) : listBase(0)
{
    // Zero-filled first: code 255 is never built and must still measure as something defined.
    std::fill(std::begin(glyphMetrics), std::end(glyphMetrics), GlyphMetrics{0, 0, 0, 0, 0, 0});
    listBase = Detail::buildFontOutlines(name, GLYPHCOUNT, glyphMetrics);
}

Font::~Font()
{
    if (listBase != 0)
        glDeleteLists(listBase, GLYPHCOUNT);
}

bool Font::isValid() const
{
    return listBase != 0;
}

void Font::draw(const std::string& text) const
{
    glListBase(listBase);
    glCallLists(static_cast<GLsizei>(text.size()), GL_UNSIGNED_BYTE, text.data());
    TAVRIN_GL_CHECK();
    glListBase(0);
    glFrontFace(GL_CCW);
}

void Font::getBBox(const std::string& text, Eigen::Vector2f& min, Eigen::Vector2f& max) const
{
    measure(glyphMetrics, text, min, max);
}

const Font::GlyphMetrics& Font::getGlyphMetrics(unsigned char code) const
{
    return glyphMetrics[code];
}

void Font::measure(const GlyphMetrics* table, const std::string& text, Eigen::Vector2f& min, Eigen::Vector2f& max)
{
    float minY = 1e20f;
    float maxY = -1e20f;
    float width = 0.0f;
    for (const char byte : text)
    {
        const GlyphMetrics& glyph = table[static_cast<unsigned char>(byte)];
        width += glyph.cellIncX;
        const float oy = glyph.originY;
        // Negated on purpose: a NaN replaces the running bound instead of being skipped.
        if (!(oy > minY))
            minY = oy;
        const float top = oy + glyph.blackBoxY;
        if (!(maxY > top))
            maxY = top;
    }
    min = Eigen::Vector2f(0.0f, minY);
    max = Eigen::Vector2f(width, maxY);
}
} // namespace OpenGL
} // namespace Tavrin
