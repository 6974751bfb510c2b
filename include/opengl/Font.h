#pragma once

#include <opengl/Platform.h>

#include <Eigen/Core>

#include <string>

namespace Tavrin
{
namespace OpenGL
{
/// An extruded outline font: 256 display lists of polygon glyphs, one per 8-bit character code,
/// and the metrics of each glyph, so that text is drawn with one list call and measured without
/// touching the GPU. Fonts are normally taken from FontManager.
///
/// Construction needs a current rendering context; the display lists belong to it (and to the
/// contexts that share its lists), and the destructor must run while such a context is current.
///
/// Windows: the face comes from GDI (CreateFontA) and the outlines from wglUseFontOutlinesW on the
/// current context's device context. Linux: fontconfig resolves the face name and FreeType loads
/// the unhinted outlines, which the GLU tessellator turns into polygons; both give the same lists
/// and metrics (see the constructor).
///
/// Copying copies the list base and the metrics as they are: the copy shares the display lists and
/// each copy deletes them when destroyed, so only one copy may outlive the other.
class TAVRIN_OPENGL_EXPORT Font
{
public:
    /// One glyph's metrics, in the layout of WGL's GLYPHMETRICSFLOAT (six floats in this order),
    /// in units of the em square (1.0 = one em; y grows upwards from the baseline).
    struct GlyphMetrics
    {
        float blackBoxX; ///< width of the glyph's black box
        float blackBoxY; ///< height of the glyph's black box
        float originX;   ///< x of the black box's upper-left corner, from the character origin
        float originY;   ///< y of the black box's upper-left corner (its top), from the baseline
        float cellIncX;  ///< horizontal advance to the next character origin
        float cellIncY;  ///< vertical advance (0 for horizontal text)
    };

    /// Builds the font for face `name`: reserves 256 display lists and builds codes 0 to 254 as
    /// extruded polygon glyphs (front face at z = 0, back face at z = -0.2, one em = 1.0), each list
    /// ending with a translation by the glyph's cell increment. List 255 stays empty.
    ///
    /// Decided here: every metrics record is zero-filled before building, so code 255 (never built)
    /// and any glyph that could not be loaded measure 0 instead of holding undefined values.
    ///
    /// Failures are reported on std::cout without a line break and leave the font invalid; nothing
    /// is thrown.
    /// - "WARNING: Failed to create font": the face cannot be created (Windows: CreateFontA fails;
    ///   Linux: fontconfig finds no face file or FreeType cannot open it or it has no outlines).
    /// - "WARNING: Failed to create font outline. Error code: " + decimal code: the outlines cannot
    ///   be built; the reserved lists are deleted again. Windows: the code is GetLastError() after
    ///   wglUseFontOutlinesW fails. Linux: 6 when no GL context (EGL or GLX) is current (the
    ///   Windows code for the null device context that stands for a missing context), 8 when
    ///   glGenLists cannot reserve the 256 lists or GLU cannot make a tessellator (the Windows
    ///   code for lack of memory).
    ///
    /// Linux notes: code c is looked up as Unicode code point c (what wglUseFontOutlinesW does
    /// with its 16-bit codes, so 0xA0..0xFF are the Latin-1 characters and characters the face
    /// lacks get its .notdef glyph). A name fontconfig knows no face for is not a failure:
    /// fontconfig always substitutes its best match ("Arial" gives Liberation Sans, with the same
    /// metrics, where fonts-liberation is installed; an empty name gives the default face).
    /// Curves are flattened to within 1/2048 em.
    Font(const std::string& name = "Arial");

    /// glDeleteLists(listBase, 256) when the font is valid.
    ~Font();

    ///@{
    /// Member-wise: a copy names the same display lists, and each copy's destructor deletes them.
    Font(const Font&) = default;
    Font& operator=(const Font&) = default;
    ///@}

    /// True when the display lists were built (listBase != 0).
    bool isValid() const;

    /// Draws `text` at the current model-view transform with one glCallLists over its bytes
    /// (byte b calls list listBase + b), then runs the GL error check (which throws on a pending
    /// GL error). Leaves the list base at 0 and the front face at GL_CCW, whatever they were.
    /// The model-view matrix is left advanced by the text's width, as the lists translate.
    void draw(const std::string& text) const;

    /// The text's extent from the glyph metrics, without GL calls (see measure()).
    void getBBox(const std::string& text, Eigen::Vector2f& min, Eigen::Vector2f& max) const;

    /// Addition: the metrics of character code `code`, so hosts and tests can compare them.
    const GlyphMetrics& getGlyphMetrics(unsigned char code) const;

    /// The measuring arithmetic of getBBox over a table of 256 records, in single precision:
    /// starting from minY = 1e20, maxY = -1e20, width = 0, for each byte with g = its record:
    /// width += g.cellIncX; if !(g.originY > minY) minY = g.originY; top = g.originY + g.blackBoxY;
    /// if !(maxY > top) maxY = top. Then min = (0, minY), max = (width, maxY). The comparisons
    /// are written so that a NaN replaces the running bound. "" gives (0, 1e20) and (0, -1e20).
    ///
    /// Decided here: each byte indexes the table as an unsigned value (0..255), so bytes 0x80 to
    /// 0xFF measure with their own glyphs, the ones draw() calls, instead of reading outside the
    /// table.
    static void measure(const GlyphMetrics* table, const std::string& text, Eigen::Vector2f& min, Eigen::Vector2f& max);

private:
    static const int GLYPHCOUNT = 256;

    unsigned int listBase;
    GlyphMetrics glyphMetrics[GLYPHCOUNT];
};
} // namespace OpenGL
} // namespace Tavrin
