// Outline fonts built from real faces, read back as the triangles their display lists send down
// the pipeline: metrics and placement, the extruded solid, failures, and the font cache.
#include "support/GLTestEnvironment.h"
#include "support/TestSupport.h"

#include <opengl/FontManager.h>
#include <opengl/Framebuffer.h>
#include <opengl/Program.h>
#include <opengl/Texture2D.h>

#include <Eigen/Geometry>
#include <GL/glew.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <tuple>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#endif

using Tavrin::OpenGL::Font;
using Tavrin::OpenGL::FontManager;
using TavrinTest::outcomeOf;

namespace
{
struct Vertex
{
    Eigen::Vector3f position, normal;
};
using Triangle = std::array<Vertex, 3>;

// What drawing `text` from an identity model-view sends to GL, split into triangles as GL splits
// quads, strips and fans: captured by transform feedback, nothing rasterised.
std::vector<Triangle> trianglesOf(const Font& font, const std::string& text)
{
    const std::unique_ptr<Tavrin::OpenGL::Program> capture(
        Tavrin::OpenGL::Program::loadFromSource(R"(#version 440 compatibility
layout(xfb_buffer = 0, xfb_offset = 0) out vec3 position;
layout(xfb_buffer = 0, xfb_offset = 12) out vec3 normal;
void main() { position = (gl_ModelViewMatrix * gl_Vertex).xyz; normal = gl_Normal; gl_Position = vec4(0.0); }
)",
                                                "", "", "", "", ""));
    Tavrin::OpenGL::Texture2D pixel; // a draw needs a complete framebuffer, even one that draws nothing
    pixel.reserveStorage(1, Eigen::Vector2i(1, 1), GL_RGBA8);
    Tavrin::OpenGL::Framebuffer target;
    target.attachTexture2D(&pixel, GL_COLOR_ATTACHMENT0, 0);
    target.bind();
    GLuint buffer = 0, query = 0, count = 0;
    glGenBuffers(1, &buffer);
    glGenQueries(1, &query);
    glBindBufferBase(GL_TRANSFORM_FEEDBACK_BUFFER, 0, buffer);
    glBufferData(GL_TRANSFORM_FEEDBACK_BUFFER, 1 << 24, nullptr, GL_STATIC_READ);
    glEnable(GL_RASTERIZER_DISCARD);
    capture->use();
    glLoadIdentity();
    glBeginQuery(GL_TRANSFORM_FEEDBACK_PRIMITIVES_WRITTEN, query);
    glBeginTransformFeedback(GL_TRIANGLES);
    font.draw(text);
    glEndTransformFeedback();
    glEndQuery(GL_TRANSFORM_FEEDBACK_PRIMITIVES_WRITTEN);
    glGetQueryObjectuiv(query, GL_QUERY_RESULT, &count);
    std::vector<Triangle> triangles(count);
    glGetBufferSubData(GL_TRANSFORM_FEEDBACK_BUFFER, 0, GLsizeiptr(count * sizeof(Triangle)), triangles.data());
    glLoadIdentity();
    glUseProgram(0);
    glDisable(GL_RASTERIZER_DISCARD);
    Tavrin::OpenGL::Framebuffer::unbind();
    glDeleteQueries(1, &query);
    glDeleteBuffers(1, &buffer);
    return triangles;
}

// The shape that a glyph's triangles make.
struct Solid
{
    Eigen::AlignedBox2f front; // the front faces' extent in x and y
    double frontArea = 0, backArea = 0, volume = 0;
    int loops = 0;    // closed runs of side walls, one per contour
    int misfits = 0;  // triangles whose normal is not unit length, disagrees with their winding or
                      // with their depth (front z = 0, back z = -0.2, walls between)
    int misfills = 0; // sample points that the front faces cover unless the walls wind around them
};

Solid solidOf(const std::vector<Triangle>& triangles)
{
    Solid solid;
    std::vector<Eigen::Vector2d> fronts;                                  // three corners each
    std::vector<std::pair<Eigen::Vector3f, Eigen::Vector3f>> previous;    // the last wall's front edge
    std::vector<std::tuple<Eigen::Vector2d, Eigen::Vector2d, int>> edges; // a wall's front edge, its turn
    for (const Triangle& t : triangles)
    {
        const Eigen::Vector3d a = t[0].position.cast<double>(), b = t[1].position.cast<double>(),
                              c = t[2].position.cast<double>(), n = t[0].normal.cast<double>();
        const Eigen::Vector3d cross = (b - a).cross(c - a);
        const double area = cross.norm() / 2;
        if (area < 1e-12)
            continue;                          // Mesa joins the strips of a display list with degenerate triangles
        solid.volume += a.dot(b.cross(c)) / 6; // outward windings add up to the enclosed volume
        const bool wall = n.z() == 0;
        const float depth = n.z() > 0 ? 0.0f : -0.2f;
        bool fits = std::abs(n.norm() - 1) < 1e-6 && (wall || std::abs(n.z()) == 1) && cross.dot(n) > 0;
        std::vector<Eigen::Vector3f> top;
        for (const Vertex& v : t)
        {
            fits = fits && v.normal == t[0].normal && (v.position.z() == depth || (wall && v.position.z() == 0));
            if (v.position.z() == 0)
                top.push_back(v.position);
        }
        solid.misfits += !fits;
        if (n.z() < 0)
            solid.backArea += area;
        else if (!wall)
        {
            solid.frontArea += area;
            for (const Vertex& v : t)
                solid.front.extend(v.position.head<2>()), fronts.push_back(v.position.head<2>().cast<double>());
        }
        else if (top.size() == 2) // one triangle of each wall quad holds its front edge
        {
            // Walls face away from the fill: the edge runs up (+1) or down (-1) the fill's left side.
            edges.emplace_back(top[0].head<2>().cast<double>(), top[1].head<2>().cast<double>(), n.x() > 0 ? 1 : -1);
            solid.loops += previous.empty() || (top[0] != previous[0].first && top[0] != previous[0].second &&
                                                top[1] != previous[0].first && top[1] != previous[0].second);
            previous = {{top[0], top[1]}};
        }
    }
    // The fill follows the non-zero rule: on a grid over the glyph, a point is covered by the front
    // faces exactly when the walls' front edges wind around it.
    for (int i = 0; i < 41 * 41; ++i)
    {
        const Eigen::Vector2d p =
            solid.front.min().cast<double>() + (solid.front.max() - solid.front.min())
                                                   .cast<double>()
                                                   .cwiseProduct(Eigen::Vector2d(i % 41 + 0.37, i / 41 + 0.61) / 41);
        int winding = 0;
        for (const auto& [from, to, turn] : edges)
            if ((from.y() > p.y()) != (to.y() > p.y()) &&
                from.x() + (p.y() - from.y()) / (to.y() - from.y()) * (to.x() - from.x()) > p.x())
                winding += turn;
        bool covered = false;
        for (std::size_t k = 0; k + 2 < fronts.size() && !covered; k += 3)
        {
            const Eigen::Vector2d u = fronts[k + 1] - fronts[k], v = fronts[k + 2] - fronts[k], w = p - fronts[k];
            const double d = u.x() * v.y() - u.y() * v.x(), s = (w.x() * v.y() - w.y() * v.x()) / d,
                         r = (u.x() * w.y() - u.y() * w.x()) / d;
            covered = s >= 0 && r >= 0 && s + r <= 1;
        }
        solid.misfills += covered != (winding != 0);
    }
    return solid;
}

// "Arial" resolves to Liberation Sans on both builds here (fontconfig natively; Wine, which finds
// the same file through fontconfig, names it as its face). Values in font units of its 2048-unit
// em: advances from hmtx, boxes from the outlines. Windows reports them rounded to 1/1024 em.
const struct
{
    char code;
    int blackBoxX, blackBoxY, originX, originY, cellIncX, contours;
} liberationSans[] = {{'A', 1358, 1409, 4, 1409, 1366, 2},
                      {'H', 1144, 1409, 168, 1409, 1479, 1},
                      {'g', 921, 1524, 86, 1099, 1139, 2},
                      {'j', 367, 1909, -50, 1484, 455, 2},
                      {'y', 1015, 1507, 5, 1082, 1024, 1},
                      {'0', 979, 1450, 80, 1430, 1139, 2},
                      {'.', 195, 219, 187, 219, 569, 1},
                      {'W', 1917, 1409, 9, 1409, 1933, 1},
                      {'%', 1675, 1433, 73, 1421, 1821, 5},
                      {'@', 1741, 1767, 161, 1484, 2079, 2},
                      {' ', 0, 0, 0, 0, 569, 0},
                      {'\xC5', 0, 0, 0, 0, 0, 4}};

// Building a font takes a while: one of each face for the whole suite.
class FontTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        warnings = outcomeOf([] {
                       arial = new Font("Arial");
                       nimbus = new Font("Nimbus Sans"); // cubic outlines wound the other way round
                   }).out;
    }
    static void TearDownTestSuite()
    {
        delete arial;
        delete nimbus;
    }
    void SetUp() override { TavrinTest::drainGLErrors(); }
    void TearDown() override { EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)); }

    static Font *arial, *nimbus;
    static std::string warnings;
};

Font *FontTest::arial = nullptr, *FontTest::nimbus = nullptr;
std::string FontTest::warnings;

#if defined(_WIN32)
// While alive, building a font fails at its first step: every GDI handle of the process is taken,
// so CreateFontA returns null (the handle table is full after about 65000 objects under Wine).
class FontFailure
{
public:
    FontFailure()
    {
        while (HFONT font = CreateFontA(0, 0, 0, 0, FW_NORMAL, 0, 0, 0, 0, 0, 0, 0, 0, "Arial"))
            fonts.push_back(font);
    }
    ~FontFailure()
    {
        for (HFONT font : fonts)
            DeleteObject(font);
    }
    const std::string warning = "WARNING: Failed to create font";

private:
    std::vector<HFONT> fonts;
};
#else
// While alive, building a font fails at its outline step: no GL context is current (fontconfig
// substitutes every face name, so a face itself never fails to resolve).
struct FontFailure : TavrinTest::NoCurrentContext
{
    const std::string warning = "WARNING: Failed to create font outline. Error code: 6";
};
#endif
} // namespace

TEST_F(FontTest, GlyphsAreSolidsOfTheirMetricsThatAdvanceTheOrigin)
{
    ASSERT_TRUE(arial->isValid() && nimbus->isValid());
    EXPECT_EQ(warnings, "");
    glFrontFace(GL_CW); // draw() leaves both at GL's defaults
    glListBase(7);
#if defined(_WIN32)
    const float tolerance = 0.01f; // Wine rounds its outlines and metrics
#else
    const float tolerance = 1.0f / 2048 + 1e-6f; // curves are flattened to within 1/2048 em
#endif
    for (const auto& expected : liberationSans)
        for (const Font* font : {arial, nimbus})
        {
            SCOPED_TRACE(std::string(font == arial ? "Arial '" : "Nimbus Sans '") + expected.code + "'");
            const Font::GlyphMetrics& glyph = font->getGlyphMetrics(static_cast<unsigned char>(expected.code));
            if (font == arial && expected.cellIncX != 0)
            {
                const float em = 2048.0f;
                EXPECT_NEAR(glyph.cellIncX, expected.cellIncX / em, 0.002f);
                EXPECT_EQ(glyph.cellIncY, 0.0f);
                EXPECT_NEAR(glyph.blackBoxX, expected.blackBoxX / em, 0.01f);
                EXPECT_NEAR(glyph.blackBoxY, expected.blackBoxY / em, 0.01f);
                EXPECT_NEAR(glyph.originX, expected.originX / em, 0.01f);
                EXPECT_NEAR(glyph.originY, expected.originY / em, 0.01f);
            }
            // The front face fills the black box; list 255 neither draws nor advances.
            const Solid solid = solidOf(trianglesOf(*font, std::string(1, expected.code)));
            const Solid twice = solidOf(trianglesOf(*font, std::string{expected.code, '\xFF', expected.code}));
            if (expected.code != ' ')
            {
                EXPECT_NEAR(solid.front.min().x(), glyph.originX, tolerance);
                EXPECT_NEAR(solid.front.max().x(), glyph.originX + glyph.blackBoxX, tolerance);
                EXPECT_NEAR(solid.front.min().y(), glyph.originY - glyph.blackBoxY, tolerance);
                EXPECT_NEAR(solid.front.max().y(), glyph.originY, tolerance);
                EXPECT_NEAR(twice.front.max().x(), solid.front.max().x() + glyph.cellIncX, 1e-5f);
            }
            EXPECT_NEAR(twice.frontArea, 2 * solid.frontArea, 1e-6);
#if !defined(_WIN32) // Wine's wglUseFontOutlinesW builds flat glyphs (it ignores the extrusion)
            // A closed solid: front and back alike, side walls around each contour, and every face
            // wound counter-clockwise seen from outside, where its normal points.
            EXPECT_EQ(solid.misfits, 0);
            EXPECT_EQ(solid.misfills, 0);
            EXPECT_EQ(solid.loops, expected.contours);
            EXPECT_NEAR(solid.backArea, solid.frontArea, 1e-5);
            if (expected.code != '\xC5') // Arial's ring overlaps the A: walls inside the fill add volume
            {
                EXPECT_NEAR(solid.volume, 0.2 * solid.frontArea, 1e-5);
            }
#endif
        }
    GLint state[2] = {0, -1};
    glGetIntegerv(GL_FRONT_FACE, &state[0]);
    glGetIntegerv(GL_LIST_BASE, &state[1]);
    EXPECT_EQ(std::vector<GLint>(state, state + 2), (std::vector<GLint>{GL_CCW, 0}));
    glActiveTexture(GL_TEXTURE0 - 1); // and checks for errors (a space draws nothing)
    EXPECT_EQ(outcomeOf([] { arial->draw(" "); }).thrown, "GLCheck: Invalid enum");
    glLoadIdentity();
    EXPECT_TRUE(trianglesOf(*arial, "\xFF").empty());
    const Font::GlyphMetrics& last = arial->getGlyphMetrics(255); // never built: zero-filled
    EXPECT_EQ(last.blackBoxX + last.blackBoxY + last.originX + last.originY + last.cellIncX + last.cellIncY, 0.0f);
    // 0xE9 is U+00E9 (e acute): a real glyph as wide as 'e'.
    EXPECT_EQ(arial->getGlyphMetrics(0xE9).cellIncX, arial->getGlyphMetrics('e').cellIncX);
    EXPECT_GT(arial->getGlyphMetrics(0xE9).originY, arial->getGlyphMetrics('e').originY);
    const Font::GlyphMetrics &h = arial->getGlyphMetrics('H'), &g = arial->getGlyphMetrics('g');
    Eigen::Vector2f min, max;
    arial->getBBox("Hg", min, max);
    EXPECT_EQ(min, Eigen::Vector2f(0.0f, g.originY));
    EXPECT_EQ(max,
              Eigen::Vector2f(h.cellIncX + g.cellIncX, std::max(h.originY + h.blackBoxY, g.originY + g.blackBoxY)));
}

TEST_F(FontTest, FontsThatFailWarnAndStayOutOfTheCacheWhichKeysTrimmedLowerCaseNames)
{
    FontManager::getInstance()->dispose(); // fonts are released while the context is current
    FontManager* manager = FontManager::getInstance();
    EXPECT_EQ(FontManager::getInstance(), manager);
    std::string text, warning;
    {
        FontFailure failure; // failed fonts are never cached: each request tries again
        text = outcomeOf([&] { EXPECT_TRUE(!manager->getFont("Arial") && !manager->getFont("Arial")); }).out;
        warning = failure.warning;
    }
    EXPECT_EQ(text, warning + warning);
    const std::shared_ptr<Font> font = manager->getFont("Arial");
    ASSERT_TRUE(font && font->isValid());
    EXPECT_EQ(manager->getFont(" ARIAL\t"), font);
    EXPECT_NE(manager->getFont("Ari al"), font);                 // inner blanks are part of the name
    const std::shared_ptr<Font> fallback = manager->getFont(""); // the default face, cached under ""
    EXPECT_TRUE(fallback && manager->getFont(" \t ") == fallback);
    text = outcomeOf([&] { EXPECT_TRUE(manager->getFont("Tavrin No Such Face")); }).out; // substituted
    EXPECT_EQ(text, "");
    // A fresh cache builds the face again; the font held from the old one still draws.
    manager->dispose();
    const std::shared_ptr<Font> rebuilt = FontManager::getInstance()->getFont("arial");
    EXPECT_TRUE(rebuilt != font && font.use_count() == 1);
    EXPECT_EQ(solidOf(trianglesOf(*font, "Ag")).frontArea, solidOf(trianglesOf(*rebuilt, "Ag")).frontArea);
    EXPECT_GT(solidOf(trianglesOf(*font, "Ag")).frontArea, 0.1);
    FontManager::getInstance()->dispose();
}
