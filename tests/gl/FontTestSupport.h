#pragma once

// Shared by the font and font-cache tests: an offscreen target that text is drawn into, and a
// scope in which building a font fails.

#include "support/GLTestEnvironment.h"

#include <opengl/Font.h>

#include <GL/glew.h>

#include <algorithm>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace FontTest
{
/// A texture + framebuffer object of width x height pixels, bound while alive, with projection
/// and model-view set up so that pixel (x, y) is at (x, y) and text of `emPixels` per em sits
/// with its origin at (originX, originY). The GL state it changes is restored on destruction.
class TextTarget
{
public:
    TextTarget(int width, int height) : width(width), height(height)
    {
        // Everything changed here goes back in the destructor: later tests expect GL's defaults.
        glPushAttrib(GL_COLOR_BUFFER_BIT | GL_CURRENT_BIT | GL_VIEWPORT_BIT | GL_ENABLE_BIT | GL_POLYGON_BIT);
        glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
        glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glBindTexture(GL_TEXTURE_2D, 0);
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
        glViewport(0, 0, width, height);
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glOrtho(0, width, 0, height, -100, 100);
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
        glColor3f(1, 1, 1);
    }
    ~TextTarget()
    {
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glDeleteFramebuffers(1, &framebuffer);
        glDeleteTextures(1, &texture);
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
        glPopClientAttrib();
        glPopAttrib();
    }
    TextTarget(const TextTarget&) = delete;
    TextTarget& operator=(const TextTarget&) = delete;

    bool complete() const { return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE; }

    /// Clears to black, draws `text` white at `emPixels` pixels per em with its origin at
    /// (originX, originY), rotated by `yawDegrees` about the y axis, and returns the red channel,
    /// row by row from the bottom.
    std::vector<unsigned char> draw(const Tavrin::OpenGL::Font& font, const std::string& text, float originX,
                                    float originY, float emPixels, float yawDegrees = 0)
    {
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        glLoadIdentity();
        glTranslatef(originX, originY, 0);
        glRotatef(yawDegrees, 0, 1, 0);
        glScalef(emPixels, emPixels, emPixels);
        font.draw(text);
        glLoadIdentity();
        std::vector<unsigned char> red(size_t(width) * size_t(height));
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(0, 0, width, height, GL_RED, GL_UNSIGNED_BYTE, red.data());
        glPixelStorei(GL_PACK_ALIGNMENT, 4); // GL's default, which later tests rely on
        return red;
    }

    const int width, height;

private:
    GLuint texture = 0, framebuffer = 0;
};

/// Pixels brighter than half, and the box around them (inclusive pixel indices).
struct LitPixels
{
    int count = 0;
    int minX = 1 << 30, maxX = -1, minY = 1 << 30, maxY = -1;

    LitPixels(const std::vector<unsigned char>& red, int width)
    {
        for (size_t i = 0; i < red.size(); ++i)
        {
            if (red[i] < 128)
                continue;
            const int x = int(i % size_t(width)), y = int(i / size_t(width));
            ++count;
            minX = std::min(minX, x);
            maxX = std::max(maxX, x);
            minY = std::min(minY, y);
            maxY = std::max(maxY, y);
        }
    }
};

#if defined(_WIN32)
/// While alive, building a font fails at its first step: every GDI handle of the process is
/// taken, so CreateFontA returns null (the handle table is full after about 65000 objects under
/// Wine; Windows' default quota is 10000).
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
    FontFailure(const FontFailure&) = delete;
    FontFailure& operator=(const FontFailure&) = delete;

    static std::string warning() { return "WARNING: Failed to create font"; }

private:
    std::vector<HFONT> fonts;
};
#else
/// While alive, building a font fails at its outline step: no GL context is current (fontconfig
/// substitutes every face name, so a face itself never fails to resolve).
class FontFailure
{
public:
    static std::string warning() { return "WARNING: Failed to create font outline. Error code: 6"; }

private:
    TavrinTest::NoCurrentContext noContext;
};
#endif
} // namespace FontTest
