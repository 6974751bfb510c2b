// The GL check against errors that real GL raises (every code's text: GLLogicTest); texture
// uploads and units as a stack; quads drawn into a framebuffer and read back.
#include "DeviceTestSupport.h"

#include <opengl/GLCheck.h>
#include <opengl/OpenGLTools.h>

#include <cstring>

using namespace Tavrin::OpenGL;
using DeviceTest::integer;
using Tavrin::Image2D;
using TavrinTest::thrownBy;

namespace
{
std::string checkAt(const char* file, int line) // what a host sees: stdout|stderr|thrown
{
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] { GLCheck::check(file, line); });
    return outcome.out + "|" + outcome.err + "|" + outcome.thrown;
}

// An image whose bytes all differ from their neighbours, so a shifted row shows up.
std::shared_ptr<Image2D> pattern(Eigen::Vector2i size, unsigned int format, int seed = 1)
{
    auto image = std::make_shared<Image2D>(size, format);
    for (std::size_t i = 0; i < image->getByteCount(); ++i)
        static_cast<unsigned char*>(image->getData())[i] = static_cast<unsigned char>(seed + 7 * i);
    return image;
}

bool sameImage(const Image2D& a, const Image2D& b)
{
    return a.getSize() == b.getSize() && a.getInternalFormat() == b.getInternalFormat() &&
           std::memcmp(a.getData(), b.getData(), a.getByteCount()) == 0;
}

using Pixel = std::array<unsigned char, 4>;
// The 2x2 source texture, bottom row first: texel (s, t) sits at texture corner (s, t).
const Pixel t00 = {255, 0, 0, 255}, t10 = {0, 255, 0, 255}, t01 = {0, 0, 255, 255}, t11 = {255, 255, 0, 255},
            clear = {0, 0, 0, 0};

// Draws with `culledFace` culled (GL_NONE: none) into a cleared 64x64 framebuffer, the 2x2 source
// texture replacing the colour, and reads the given pixels.
template <typename Draw>
std::vector<Pixel> drawn(Draw draw, GLenum culledFace, const std::vector<std::array<int, 2>>& at)
{
    Framebuffer framebuffer;
    Texture2D target, source;
    target.reserveStorage(1, Eigen::Vector2i(64, 64), GL_RGBA8);
    framebuffer.attachTexture2D(&target, GL_COLOR_ATTACHMENT0, 0);
    framebuffer.bind();
    glViewport(0, 0, 64, 64);
    const Pixel texels[] = {t00, t10, t01, t11};
    source.reserveStorage(1, Eigen::Vector2i(2, 2), GL_RGBA8);
    source.uploadData(Eigen::Vector2i(2, 2), texels, GL_RGBA, GL_UNSIGNED_BYTE, 0, GL_TEXTURE_2D);
    source.bind();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glClear(GL_COLOR_BUFFER_BIT);
    glCullFace(culledFace == GL_NONE ? GL_BACK : culledFace);
    (culledFace == GL_NONE ? glDisable : glEnable)(GL_CULL_FACE);
    draw();
    glDisable(GL_CULL_FACE);
    glDisable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    std::vector<Pixel> pixels(at.size());
    for (std::size_t i = 0; i < at.size(); ++i)
        glReadPixels(at[i][0], at[i][1], 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixels[i].data());
    Framebuffer::unbind();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    return pixels;
}
} // namespace

TEST(GLCheck, WarnsOnStdoutAndThrowsTheErrorGLRaised)
{
    TavrinTest::drainGLErrors();
    EXPECT_EQ(checkAt("a.cpp", 1), "||"); // nothing pending: silent
    glPopAttrib();
    EXPECT_EQ(checkAt("Texture2D.cpp", 41),
              "WARNING: Texture2D.cpp (line 41) GLCheck: Stack underflow||GLCheck: Stack underflow");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    // A stack overflow adds the three depths.
    GLint depth = 0;
    glGetIntegerv(GL_MAX_PROJECTION_STACK_DEPTH, &depth);
    glMatrixMode(GL_PROJECTION);
    for (GLint i = 0; i < depth; ++i) // one push more than fits
        glPushMatrix();
    const std::string seen = checkAt("Shader.cpp", 164);
    for (GLint i = 1; i < depth; ++i)
        glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    EXPECT_EQ(seen, "WARNING: Shader.cpp (line 164) Projection matrix stack depth: " + std::to_string(depth) +
                        "WARNING: Shader.cpp (line 164) Modelview matrix stack depth: 1"
                        "WARNING: Shader.cpp (line 164) Texture matrix stack depth: 1||GLCheck: Stack overflow");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    // Switched off, a check leaves the error; the macro reports its own place.
    glLineWidth(-1.0f);
    GLCheck::enableGLCheck = false;
    const TavrinTest::Outcome off = TavrinTest::outcomeOf([] {
        GLCheck::check("Off.cpp", 7);
        TAVRIN_GL_CHECK();
    });
    GLCheck::enableGLCheck = true;
    EXPECT_EQ(off.out + off.thrown, "");
    glEnable(0xFFFF); // a second error: one check reports the first only
    const int line = __LINE__ + 1;
    const TavrinTest::Outcome on = TavrinTest::outcomeOf([] { TAVRIN_GL_CHECK(); });
    EXPECT_EQ(on.out + "|" + on.thrown, "WARNING: GLObjectsTest.cpp (line " + std::to_string(line) +
                                            ") GLCheck: Invalid value|GLCheck: Invalid value");
    TavrinTest::drainGLErrors();
}

TEST(Texture2D, UploadsReadBackAndKeepOrReplaceTheStorage)
{
    // An image of the same size and format keeps the storage and its chain; any other replaces it.
    Texture2D texture;
    EXPECT_EQ(texture.getMipLevelCount() + texture.getFullMipLevelCount() + int(texture.getVersion()), 0);
    texture.reserveStorage(2, Eigen::Vector2i(4, 4), GL_RGBA8);
    const unsigned int name = texture.getHandle();
    const auto same = pattern({4, 4}, GL_RGBA8, 9), level1 = pattern({2, 2}, GL_RGBA8, 90),
               rgb = pattern({3, 2}, GL_RGB8);
    texture.uploadImage(same, 0, GL_TEXTURE_2D);
    texture.uploadData(level1->getSize(), level1->getData(), GL_RGBA, GL_UNSIGNED_BYTE, 1, GL_TEXTURE_2D);
    EXPECT_EQ(texture.getHandle(), name);
    EXPECT_TRUE(sameImage(*texture.downloadImage(0), *same) && sameImage(*texture.downloadImage(1), *level1));
    texture.uploadImage(pattern({4, 8}, GL_RGBA8), 0, GL_TEXTURE_2D); // size changed
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);                            // rows of 9 bytes: the caller sets the alignment
    texture.uploadImage(rgb, 0, GL_TEXTURE_2D);                       // format changed
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    EXPECT_EQ(texture.getVersion() * 10 + unsigned(texture.getMipLevelCount()), 31u);
    GLuint packBuffer = 0; // downloadImage packs tightly into client memory, then gives the host's state back
    glGenBuffers(1, &packBuffer);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, packBuffer);
    EXPECT_TRUE(sameImage(*texture.downloadImage(0), *rgb));
    EXPECT_EQ(integer(GL_PIXEL_PACK_BUFFER_BINDING) * 10 + integer(GL_PACK_ALIGNMENT), GLint(packBuffer) * 10 + 4);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glDeleteBuffers(1, &packBuffer);
    // downloadData keeps the pack alignment: rows padded to 12 bytes; a short buffer is refused.
    unsigned char padded[24] = {};
    texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded, 24);
    EXPECT_EQ(std::memcmp(padded + 12, static_cast<unsigned char*>(rgb->getData()) + 9, 9), 0);
    EXPECT_EQ(thrownBy([&] { texture.downloadData(0, GL_RGB, GL_UNSIGNED_BYTE, padded, 20); }),
              "GLCheck: Invalid operation");
    // Other image formats throw before any GL call: the pending error stays for the caller; every
    // Image2D format reads back, others do not.
    for (unsigned int format : {GL_R8, GL_RG8, GL_R32F, GL_RGBA32F, GL_RGBA16F})
    {
        glLineWidth(-1.0f);
        const auto image = std::make_shared<Image2D>(Eigen::Vector2i(3, 3), format == GL_RGBA16F ? GL_R8 : format);
        EXPECT_EQ(thrownBy([&] { texture.uploadImage(image, 0, GL_TEXTURE_2D); }), "Unsupported image format.");
        EXPECT_EQ(glGetError(), GLenum(GL_INVALID_VALUE));
        texture.reserveStorage(1, Eigen::Vector2i(3, 1), format);
        EXPECT_EQ(thrownBy([&] { texture.downloadImage(0); }), format == GL_RGBA16F ? "Unsupported image format." : "");
    }
    // Destructors report a pending error without throwing.
    auto doomed = std::make_unique<Texture2D>();
    auto framebuffer = std::make_unique<Framebuffer>();
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] {
        glLineWidth(-1.0f);
        doomed.reset();
        glLineWidth(-1.0f);
        framebuffer.reset();
    });
    EXPECT_EQ(TavrinTest::withoutLineNumbers(outcome.out) + outcome.thrown,
              "WARNING: Texture2D.cpp (line N) GLCheck: Invalid value"
              "WARNING: Framebuffer.cpp (line N) GLCheck: Invalid value");
}

TEST(Texture2D, PushesBindAndSetSamplersOnConsecutiveUnitsAndPopsStepBack)
{
    const std::unique_ptr<Program> program(Program::loadFromSource(
        "", "", "", "",
        "#version 430\nuniform sampler2D first, many[2];\nlayout(rgba32f) uniform image2D picture;\n"
        "layout(r32ui) uniform readonly uimage2DMSArray last;\nout vec4 color;\n"
        "void main() { color = texture(first, vec2(0.0)) + texture(many[1], vec2(0.0))\n"
        "  + imageLoad(picture, ivec2(0)) + float(imageLoad(last, ivec3(0), 0).x); }\n",
        ""));
    Texture2D textures[2];
    // An array element is bound as a sampler; an unknown or empty name still binds and takes a unit.
    glActiveTexture(GL_TEXTURE0);
    const char* names[] = {"many[1]", "absent", "", "first"};
    for (int i = 0; i < 4; ++i)
        textures[i % 2].pushToProgram(program.get(), names[i]);
    EXPECT_EQ(DeviceTest::uniformInt(*program, "first") * 10 + DeviceTest::uniformInt(*program, "many[1]"), 30);
    for (int unit = 3; unit >= 0; --unit)
    {
        EXPECT_EQ(Texture2D::getActiveTextureIndex(), unit + 1);
        textures[0].popFromProgram();
        EXPECT_EQ(GLuint(integer(GL_TEXTURE_BINDING_2D)), textures[unit % 2].getHandle()); // pops unbind nothing
    }
    EXPECT_EQ(thrownBy([&] { textures[0].popFromProgram(); }), "GLCheck: Invalid enum"); // no lower bound
    for (const char* image : {"picture", "last"}) // the first and the last image type
        EXPECT_EQ(thrownBy([&] { textures[1].pushToProgram(program.get(), image); }), "Unsupported bindImage");
    // The push from the last unit selects one unit more; the next throws with binding and uniform set.
    const GLint limit = integer(GL_MAX_TEXTURE_IMAGE_UNITS);
    glActiveTexture(GLenum(GL_TEXTURE0 + limit - 1));
    textures[0].pushToProgram(program.get(), "first");
    EXPECT_EQ(thrownBy([&] { textures[1].pushToProgram(program.get(), "first"); }), "Too many textures");
    EXPECT_EQ(Texture2D::getActiveTextureIndex() * 1000 + DeviceTest::uniformInt(*program, "first"), limit * 1001);
    EXPECT_EQ(GLuint(integer(GL_TEXTURE_BINDING_2D)), textures[1].getHandle());
    glActiveTexture(GL_TEXTURE0);
    TavrinTest::drainGLErrors();
}

TEST(OpenGLTools, QuadsCoverTheirRectangleOrTheViewportWithTheirWindingAndKeepTheMatrix)
{
    const auto quad = [] { OpenGLTools::drawViewportQuad(Eigen::Vector2f(0, 0), Eigen::Vector2f(1, 1)); };
    EXPECT_EQ(drawn(quad, GL_NONE, {{0, 0}, {63, 0}, {63, 63}, {0, 63}}), (std::vector<Pixel>{t00, t10, t11, t01}));
    EXPECT_EQ(drawn(quad, GL_BACK, {{10, 10}}), std::vector<Pixel>{clear}); // clockwise
    EXPECT_EQ(drawn(quad, GL_FRONT, {{10, 10}}), std::vector<Pixel>{t00});
    // Offset and scale move it to the upper right quarter; the matrix stays, the colour is white.
    glTranslatef(0, 0, 0.25f); // not the identity, yet moves nothing on screen
    glColor4f(0.2f, 0.3f, 0.4f, 0.5f);
    std::vector<GLfloat> before(16), after(16), color(4);
    glGetFloatv(GL_MODELVIEW_MATRIX, before.data());
    EXPECT_EQ(drawn([] { OpenGLTools::drawViewportQuad(Eigen::Vector2f(0.5f, 0.5f), Eigen::Vector2f(0.5f, 0.5f)); },
                    GL_NONE, {{31, 31}, {32, 32}, {63, 63}}),
              (std::vector<Pixel>{clear, t00, t11}));
    glGetFloatv(GL_MODELVIEW_MATRIX, after.data());
    glGetFloatv(GL_CURRENT_COLOR, color.data());
    EXPECT_EQ(std::make_pair(after, color), std::make_pair(before, std::vector<GLfloat>{1, 1, 1, 1}));

    // drawQuad: pixels 10..39 by 20..59 at one unit per pixel, texture corner (0, 0) at (10, 20).
    glLoadIdentity();
    glOrtho(0, 64, 0, 64, -1, 1);
    const auto rectangle = [] { OpenGLTools::drawQuad(Eigen::Vector2i(10, 20), Eigen::Vector2i(30, 40)); };
    EXPECT_EQ(
        drawn(rectangle, GL_NONE, {{10, 20}, {39, 20}, {39, 59}, {10, 59}, {9, 20}, {40, 20}, {10, 19}, {10, 60}}),
        (std::vector<Pixel>{t00, t10, t11, t01, clear, clear, clear, clear}));
    EXPECT_EQ(drawn(rectangle, GL_BACK, {{20, 30}}), std::vector<Pixel>{t00}); // counter-clockwise
    EXPECT_EQ(drawn(rectangle, GL_FRONT, {{20, 30}}), std::vector<Pixel>{clear});
    glLoadIdentity();
}
