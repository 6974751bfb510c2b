// Linux outlines with what wglUseFontOutlinesW gives on Windows: fontconfig picks the face file,
// FreeType loads each glyph's unhinted outline in font units (divided by units per em, so one em
// is 1.0), the GLU tessellator fills its contours, and the glyph becomes an extruded solid.
#include "../FontOutlines.h"

#include <GL/glew.h>

#include <GL/glu.h>

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_BBOX_H
#include FT_OUTLINE_H

#include <EGL/egl.h>
// Last: Xlib's macros (None, Bool, Status) must not reach the headers above.
#include <GL/glx.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <iostream>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
// The codes of the outline warning, named after the Windows codes for the same situations.
const unsigned long noCurrentContextCode = 6; // ERROR_INVALID_HANDLE: no device context
const unsigned long noListsCode = 8;          // ERROR_NOT_ENOUGH_MEMORY

const double extrusion = 0.2;         // depth of the solid glyphs, in em, along -z
const double flatness = 1.0 / 2048.0; // largest distance of a flattened curve from the curve, in em
const int maximumCurveSegments = 64;

using Point = std::array<GLdouble, 2>;
using Contour = std::vector<Point>;

void warnFont()
{
    std::cout << "WARNING: "
              << "Failed to create font";
}

void warnOutline(unsigned long code)
{
    std::cout << "WARNING: "
              << "Failed to create font outline. Error code: " << code;
}

bool hasCurrentContext()
{
    return eglGetCurrentContext() != EGL_NO_CONTEXT || glXGetCurrentContext() != nullptr;
}

// The face file that fontconfig matches for `name` (regular weight, upright, with outlines, like
// the GDI request); false when there is none. fontconfig substitutes unknown names, so a match
// is found whenever any face is installed. A configuration of its own, loaded and destroyed here
// (a few milliseconds from fontconfig's caches): FcInit's process-wide one is never freed and
// leaks memory to LeakSanitizer.
bool findFaceFile(const std::string& name, std::string& file, int& index)
{
    FcConfig* config = FcInitLoadConfigAndFonts();
    if (!config)
        return false;
    FcPattern* pattern = FcPatternCreate();
    if (!pattern)
    {
        FcConfigDestroy(config);
        return false;
    }
    if (!name.empty())
        FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(name.c_str()));
    FcPatternAddInteger(pattern, FC_WEIGHT, FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern, FC_SLANT, FC_SLANT_ROMAN);
    FcPatternAddBool(pattern, FC_OUTLINE, FcTrue);
    FcConfigSubstitute(config, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(config, pattern, &result);
    FcPatternDestroy(pattern);
    bool found = false;
    if (match)
    {
        FcChar8* path = nullptr;
        found = FcPatternGetString(match, FC_FILE, 0, &path) == FcResultMatch && path;
        if (found)
            file = reinterpret_cast<const char*>(path);
        index = 0;
        FcPatternGetInteger(match, FC_INDEX, 0, &index);
        FcPatternDestroy(match);
    }
    FcConfigDestroy(config);
    return found;
}

// FreeType's library and one face, released together.
struct FreeTypeFace
{
    FT_Library library = nullptr;
    FT_Face face = nullptr;

    bool open(const std::string& file, int index)
    {
        if (FT_Init_FreeType(&library) != 0)
            return false;
        if (FT_New_Face(library, file.c_str(), index, &face) != 0)
            return false;
        return FT_IS_SCALABLE(face);
    }
    ~FreeTypeFace()
    {
        if (face)
            FT_Done_Face(face);
        if (library)
            FT_Done_FreeType(library);
    }
};

// Turns an outline into closed polygons in em units, flattening its curves.
class OutlineFlattener
{
public:
    explicit OutlineFlattener(double unitsPerEm) : scale(1.0 / unitsPerEm) {}

    std::vector<Contour> flatten(FT_Outline& outline)
    {
        contours.clear();
        FT_Outline_Funcs functions = {};
        functions.move_to = &OutlineFlattener::moveTo;
        functions.line_to = &OutlineFlattener::lineTo;
        functions.conic_to = &OutlineFlattener::conicTo;
        functions.cubic_to = &OutlineFlattener::cubicTo;
        FT_Outline_Decompose(&outline, &functions, this);
        closeContour();
        return std::move(contours);
    }

private:
    double scale;
    std::vector<Contour> contours;
    Point current = {0, 0};

    Point toEm(const FT_Vector* v) const { return {v->x * scale, v->y * scale}; }

    void closeContour()
    {
        // The decomposition ends each contour back on its start point: drop the duplicate.
        if (!contours.empty() && contours.back().size() > 1 && contours.back().front() == contours.back().back())
            contours.back().pop_back();
        if (!contours.empty() && contours.back().size() < 3)
            contours.pop_back();
    }

    void addPoint(const Point& p)
    {
        if (contours.back().empty() || contours.back().back() != p)
            contours.back().push_back(p);
        current = p;
    }

    static int segmentCount(double secondDifference)
    {
        const int count = static_cast<int>(std::ceil(std::sqrt(secondDifference / flatness)));
        return std::clamp(count, 1, maximumCurveSegments);
    }

    static int moveTo(const FT_Vector* to, void* user)
    {
        auto* self = static_cast<OutlineFlattener*>(user);
        self->closeContour();
        self->contours.emplace_back();
        self->addPoint(self->toEm(to));
        return 0;
    }

    static int lineTo(const FT_Vector* to, void* user)
    {
        auto* self = static_cast<OutlineFlattener*>(user);
        self->addPoint(self->toEm(to));
        return 0;
    }

    static int conicTo(const FT_Vector* control, const FT_Vector* to, void* user)
    {
        auto* self = static_cast<OutlineFlattener*>(user);
        const Point p0 = self->current, c = self->toEm(control), p1 = self->toEm(to);
        // A quadratic with n segments strays at most |p0 - 2c + p1| / (4 n^2) from its chords.
        const double d = std::hypot(p0[0] - 2 * c[0] + p1[0], p0[1] - 2 * c[1] + p1[1]);
        const int n = segmentCount(d / 4);
        for (int i = 1; i <= n; ++i)
        {
            const double t = double(i) / n, u = 1 - t;
            self->addPoint(
                {u * u * p0[0] + 2 * u * t * c[0] + t * t * p1[0], u * u * p0[1] + 2 * u * t * c[1] + t * t * p1[1]});
        }
        return 0;
    }

    static int cubicTo(const FT_Vector* control1, const FT_Vector* control2, const FT_Vector* to, void* user)
    {
        auto* self = static_cast<OutlineFlattener*>(user);
        const Point p0 = self->current, c1 = self->toEm(control1), c2 = self->toEm(control2), p1 = self->toEm(to);
        // A cubic with n segments strays at most 3/4 max|second differences| / n^2 from its chords.
        const double d = std::max(std::hypot(p0[0] - 2 * c1[0] + c2[0], p0[1] - 2 * c1[1] + c2[1]),
                                  std::hypot(c1[0] - 2 * c2[0] + p1[0], c1[1] - 2 * c2[1] + p1[1]));
        const int n = segmentCount(d * 3 / 4);
        for (int i = 1; i <= n; ++i)
        {
            const double t = double(i) / n, u = 1 - t;
            const double a = u * u * u, b = 3 * u * u * t, e = 3 * u * t * t, f = t * t * t;
            self->addPoint(
                {a * p0[0] + b * c1[0] + e * c2[0] + f * p1[0], a * p0[1] + b * c1[1] + e * c2[1] + f * p1[1]});
        }
        return 0;
    }
};

// The tessellator's callbacks emit straight into the display list being compiled.
struct Tessellation
{
    GLdouble normalZ;
    std::deque<std::array<GLdouble, 3>> combined; // stable addresses for vertices made at crossings
};

// The normal goes inside glBegin/glEnd: Mesa 22.3 leaks memory from display lists that record a
// normal outside a primitive (seen with LeakSanitizer).
void GLAPIENTRY onBegin(GLenum type, void* polygon)
{
    glBegin(type);
    glNormal3d(0, 0, static_cast<Tessellation*>(polygon)->normalZ);
}

void GLAPIENTRY onVertex(void* vertex)
{
    glVertex3dv(static_cast<const GLdouble*>(vertex));
}

void GLAPIENTRY onEnd()
{
    glEnd();
}

void GLAPIENTRY onCombine(const GLdouble coordinates[3], void* /*vertices*/[4], const GLfloat /*weights*/[4],
                          void** result, void* polygon)
{
    auto* tessellation = static_cast<Tessellation*>(polygon);
    tessellation->combined.push_back({coordinates[0], coordinates[1], coordinates[2]});
    *result = tessellation->combined.back().data();
}

// Fills the contours at depth z, wound counter-clockwise as seen from the side `normalZ` points to.
void fillFace(GLUtesselator* tessellator, const std::vector<Contour>& contours, GLdouble z, GLdouble normalZ,
              GLenum windingRule)
{
    std::vector<std::array<GLdouble, 3>> vertices;
    size_t total = 0;
    for (const Contour& contour : contours)
        total += contour.size();
    vertices.reserve(total); // the tessellator keeps pointers into it until the polygon ends

    Tessellation tessellation{normalZ, {}};
    gluTessProperty(tessellator, GLU_TESS_WINDING_RULE, windingRule);
    gluTessNormal(tessellator, 0, 0, normalZ);
    gluTessBeginPolygon(tessellator, &tessellation);
    for (const Contour& contour : contours)
    {
        gluTessBeginContour(tessellator);
        for (const Point& p : contour)
        {
            vertices.push_back({p[0], p[1], z});
            gluTessVertex(tessellator, vertices.back().data(), vertices.back().data());
        }
        gluTessEndContour(tessellator);
    }
    gluTessEndPolygon(tessellator);
}

// One quad per contour edge between the two faces, facing away from the filled side.
void buildSideWalls(const std::vector<Contour>& contours, bool fillOnRight)
{
    glBegin(GL_QUADS);
    for (const Contour& contour : contours)
    {
        for (size_t i = 0; i < contour.size(); ++i)
        {
            const Point& a = contour[i];
            const Point& b = contour[(i + 1) % contour.size()];
            const double dx = b[0] - a[0], dy = b[1] - a[1];
            const double length = std::hypot(dx, dy);
            if (length == 0)
                continue;
            // Outwards is left of the direction of travel when the fill is on the right.
            const double side = fillOnRight ? 1.0 : -1.0;
            glNormal3d(-dy / length * side, dx / length * side, 0);
            if (fillOnRight)
            {
                glVertex3d(a[0], a[1], 0);
                glVertex3d(b[0], b[1], 0);
                glVertex3d(b[0], b[1], -extrusion);
                glVertex3d(a[0], a[1], -extrusion);
            }
            else
            {
                glVertex3d(a[0], a[1], 0);
                glVertex3d(a[0], a[1], -extrusion);
                glVertex3d(b[0], b[1], -extrusion);
                glVertex3d(b[0], b[1], 0);
            }
        }
    }
    glEnd();
}

// Compiles list `list` for `glyphIndex` and writes its metrics; a glyph FreeType cannot load gives
// an empty list and leaves its (zero) metrics.
void buildGlyph(FT_Face face, FT_UInt glyphIndex, GLuint list, GLUtesselator* tessellator, Font::GlyphMetrics& metrics)
{
    glNewList(list, GL_COMPILE);
    if (FT_Load_Glyph(face, glyphIndex, FT_LOAD_NO_SCALE | FT_LOAD_NO_BITMAP) == 0 &&
        face->glyph->format == FT_GLYPH_FORMAT_OUTLINE)
    {
        FT_Outline& outline = face->glyph->outline;
        const double scale = 1.0 / face->units_per_EM;
        FT_BBox box = {0, 0, 0, 0};
        if (outline.n_points > 0)
            FT_Outline_Get_BBox(&outline, &box);
        metrics.blackBoxX = float((box.xMax - box.xMin) * scale);
        metrics.blackBoxY = float((box.yMax - box.yMin) * scale);
        metrics.originX = float(box.xMin * scale);
        metrics.originY = float(box.yMax * scale);
        metrics.cellIncX = float(face->glyph->advance.x * scale);
        metrics.cellIncY = float(face->glyph->advance.y * scale);

        const std::vector<Contour> contours = OutlineFlattener(face->units_per_EM).flatten(outline);
        if (!contours.empty())
        {
            const GLenum windingRule =
                (outline.flags & FT_OUTLINE_EVEN_ODD_FILL) ? GLU_TESS_WINDING_ODD : GLU_TESS_WINDING_NONZERO;
            fillFace(tessellator, contours, 0, 1, windingRule);
            fillFace(tessellator, contours, -extrusion, -1, windingRule);
            buildSideWalls(contours, FT_Outline_Get_Orientation(&outline) != FT_ORIENTATION_POSTSCRIPT);
        }
        // Like the WGL lists: each glyph moves the origin on to the next one.
        glTranslatef(metrics.cellIncX, metrics.cellIncY, 0.0f);
    }
    glEndList();
}
} // namespace

unsigned int Detail::buildFontOutlines(const std::string& name, int listCount, Font::GlyphMetrics* metrics)
{
    std::string file;
    int index = 0;
    FreeTypeFace freeType;
    if (!findFaceFile(name, file, index) || !freeType.open(file, index))
    {
        warnFont();
        return 0;
    }
    // Codes are Unicode code points, as for wglUseFontOutlinesW; without a Unicode map the face's
    // default map stays selected.
    FT_Select_Charmap(freeType.face, FT_ENCODING_UNICODE);

    if (!hasCurrentContext())
    {
        warnOutline(noCurrentContextCode);
        return 0;
    }
    const GLuint listBase = glGenLists(listCount);
    if (listBase == 0)
    {
        warnOutline(noListsCode);
        return 0;
    }
    GLUtesselator* tessellator = gluNewTess();
    if (!tessellator)
    {
        glDeleteLists(listBase, listCount);
        warnOutline(noListsCode);
        return 0;
    }
    gluTessCallback(tessellator, GLU_TESS_BEGIN_DATA, reinterpret_cast<_GLUfuncptr>(&onBegin));
    gluTessCallback(tessellator, GLU_TESS_VERTEX, reinterpret_cast<_GLUfuncptr>(&onVertex));
    gluTessCallback(tessellator, GLU_TESS_END, reinterpret_cast<_GLUfuncptr>(&onEnd));
    gluTessCallback(tessellator, GLU_TESS_COMBINE_DATA, reinterpret_cast<_GLUfuncptr>(&onCombine));

    // One code fewer than the lists reserved: the last list stays empty, as on Windows.
    for (int code = 0; code < listCount - 1; ++code)
        buildGlyph(freeType.face, FT_Get_Char_Index(freeType.face, FT_ULong(code)), listBase + GLuint(code),
                   tessellator, metrics[code]);
    gluDeleteTess(tessellator);
    return listBase;
}
} // namespace OpenGL
} // namespace Tavrin
