// Outline fonts from real faces, read back as the triangles their display lists send down the pipeline.
#include "DeviceTestSupport.h"
#include "support/GLTestEnvironment.h"

#include <opengl/FontManager.h>

#include <Eigen/Geometry>

#if defined(_WIN32)
#include <windows.h>
#endif

using Tavrin::OpenGL::Font;
using Tavrin::OpenGL::FontManager;
using TavrinTest::outcomeOf;

namespace
{
// Triangles that drawing `text` sends down (transform feedback): the front's extent, the front and
// back areas, and the volume that outward windings enclose.
struct Solid
{
    Eigen::AlignedBox2f front;
    double frontArea = 0, backArea = 0, volume = 0;
};

Solid solidOf(const Font& font, const std::string& text)
{
    const std::unique_ptr<Tavrin::OpenGL::Program> capture(
        Tavrin::OpenGL::Program::loadFromSource(R"(#version 440 compatibility
layout(xfb_buffer = 0, xfb_offset = 0) out vec3 position;
layout(xfb_buffer = 0, xfb_offset = 12) out vec3 normal;
void main() { position = (gl_ModelViewMatrix * gl_Vertex).xyz; normal = gl_Normal; gl_Position = vec4(0.0); })",
                                                "", "", "", "", ""));
    Tavrin::OpenGL::Framebuffer target; // a draw needs a complete framebuffer, even one that draws nothing
    glNamedFramebufferParameteriEXT(target.getHandle(), GL_FRAMEBUFFER_DEFAULT_WIDTH, 1);
    glNamedFramebufferParameteriEXT(target.getHandle(), GL_FRAMEBUFFER_DEFAULT_HEIGHT, 1);
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
    std::vector<std::array<Eigen::Vector3f, 6>> triangles(count); // position, normal; three corners
    glGetBufferSubData(GL_TRANSFORM_FEEDBACK_BUFFER, 0, GLsizeiptr(count * sizeof(triangles[0])), triangles.data());
    glUseProgram(0);
    glDisable(GL_RASTERIZER_DISCARD);
    Tavrin::OpenGL::Framebuffer::unbind();
    glDeleteQueries(1, &query);
    glDeleteBuffers(1, &buffer);
    Solid solid;
    for (const auto& t : triangles)
    {
        const Eigen::Vector3d a = t[0].cast<double>(), b = t[2].cast<double>(), c = t[4].cast<double>();
        const double area = (b - a).cross(c - a).norm() / 2, normalZ = t[1].z();
        solid.volume += a.dot(b.cross(c)) / 6; // degenerate joins of strips add nothing
        if (normalZ != 0)
            (normalZ > 0 ? solid.frontArea : solid.backArea) += area;
        for (int v = 0; v < 6 && normalZ > 0 && area > 1e-12; v += 2)
            solid.front.extend(t[v].head<2>());
    }
    return solid;
}

// "Arial" resolves to Liberation Sans on both builds (through fontconfig); font units of its 2048-unit em.
const struct
{
    char code;
    Eigen::Array4f box; // blackBoxX, blackBoxY, originX, originY
    float cellIncX;
} liberationSans[] = {{'A', {1358, 1409, 4, 1409}, 1366},   {'g', {921, 1524, 86, 1099}, 1139},
                      {'j', {367, 1909, -50, 1484}, 455},   {'0', {979, 1450, 80, 1430}, 1139},
                      {'.', {195, 219, 187, 219}, 569},     {'%', {1675, 1433, 73, 1421}, 1821},
                      {'@', {1741, 1767, 161, 1484}, 2079}, {' ', {0, 0, 0, 0}, 569}};

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
    static void TearDownTestSuite() { delete arial, delete nimbus; }
    void SetUp() override { TavrinTest::drainGLErrors(); }
    void TearDown() override { EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)); }

    static inline Font *arial = nullptr, *nimbus = nullptr;
    static inline std::string warnings;
};

#if defined(_WIN32)
// While alive, every GDI handle of the process is taken: CreateFontA returns null.
struct FontFailure
{
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
    std::vector<HFONT> fonts;
    const std::string warning = "WARNING: Failed to create font";
};
#else
// While alive, no GL context is current: the outline step fails (fontconfig resolves every name).
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
            const Eigen::Array4f box = Eigen::Array4f(glyph.blackBoxX, glyph.blackBoxY, glyph.originX, glyph.originY);
            EXPECT_TRUE(font != arial || (((box * 2048 - expected.box).abs() < 10).all() && glyph.cellIncY == 0 &&
                                          std::abs(glyph.cellIncX * 2048 - expected.cellIncX) < 4))
                << box.transpose() * 2048 << ", " << glyph.cellIncX * 2048;
            // The front face fills the black box; list 255 neither draws nor advances.
            const Solid solid = solidOf(*font, std::string(1, expected.code));
            const Solid twice = solidOf(*font, std::string{expected.code, '\xFF', expected.code});
            EXPECT_NEAR(twice.frontArea, 2 * solid.frontArea, 1e-6);
            if (expected.code == ' ')
                continue;
            EXPECT_NEAR(solid.front.min().x(), glyph.originX, tolerance);
            EXPECT_NEAR(solid.front.max().x(), glyph.originX + glyph.blackBoxX, tolerance);
            EXPECT_NEAR(solid.front.min().y(), glyph.originY - glyph.blackBoxY, tolerance);
            EXPECT_NEAR(solid.front.max().y(), glyph.originY, tolerance);
            EXPECT_NEAR(twice.front.max().x(), solid.front.max().x() + glyph.cellIncX, 1e-5f);
#if !defined(_WIN32) // Wine's wglUseFontOutlinesW builds flat glyphs (it ignores the extrusion)
            // A closed solid, every face wound counter-clockwise seen from outside.
            EXPECT_NEAR(solid.backArea, solid.frontArea, 1e-5);
            EXPECT_NEAR(solid.volume, 0.2 * solid.frontArea, 1e-5);
#endif
        }
    EXPECT_EQ(std::make_pair(DeviceTest::integer(GL_FRONT_FACE), DeviceTest::integer(GL_LIST_BASE)),
              std::make_pair(GL_CCW, 0));
    glActiveTexture(GL_TEXTURE0 - 1); // and checks for errors (a space draws nothing)
    EXPECT_EQ(outcomeOf([] { arial->draw(" "); }).thrown, "GLCheck: Invalid enum");
    glLoadIdentity();                                             // drawing advanced the origin
    const Font::GlyphMetrics& last = arial->getGlyphMetrics(255); // never built: zero-filled
    EXPECT_EQ(last.blackBoxX + last.blackBoxY + last.originX + last.originY + last.cellIncX + last.cellIncY, 0.0f);
    EXPECT_EQ(arial->getGlyphMetrics(0xE9).cellIncX, arial->getGlyphMetrics('e').cellIncX); // U+00E9, e acute
    const Font::GlyphMetrics &h = arial->getGlyphMetrics('H'), &g = arial->getGlyphMetrics('g');
    Eigen::Vector2f min, max;
    arial->getBBox("Hg", min, max);
    EXPECT_EQ(Eigen::Vector2f(min.y(), max.x()), Eigen::Vector2f(g.originY, h.cellIncX + g.cellIncX));
}

TEST_F(FontTest, FontsThatFailWarnAndStayOutOfTheCacheWhichKeysTrimmedLowerCaseNames)
{
    FontManager::getInstance()->dispose(); // fonts are released while the context is current
    FontManager* manager = FontManager::getInstance();
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
    EXPECT_EQ(outcomeOf([&] { EXPECT_TRUE(manager->getFont("Tavrin No Such Face")); }).out, ""); // substituted
    manager->dispose(); // a fresh cache builds the face again
    EXPECT_TRUE(FontManager::getInstance()->getFont("arial") != font && font.use_count() == 1);
    FontManager::getInstance()->dispose();
}
