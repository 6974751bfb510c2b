// The text-measuring arithmetic of Font, on a hand-made metric table (no GL context).
#include <opengl/Font.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

using Tavrin::OpenGL::Font;

TEST(FontMeasure, WalksTheTableInSinglePrecisionLettingNaNAndLaterEqualBoundsWin)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::array<Font::GlyphMetrics, 256> table{}; // blackBoxX, blackBoxY, originX, originY, cellIncX, cellIncY
    table['a'] = {0.4f, 0.5f, 0.05f, 0.5f, 0.5f, 0};
    table['b'] = {0.5f, 0.7f, 0.06f, 0.7f, 0.6f, 0};
    table['g'] = {0.45f, 0.75f, 0.04f, 0.54f, 0.55f, 0};
    table[0xE9] = {0.47f, 0.75f, 0.04f, 0.74f, 0.56f, 0};
    table[0xFF] = {0.1f, 0.2f, 0.0f, -3.0f, 0.25f, 0};
    table['x'] = {0, 1.0f, 0, 16777216.0f, 16777216.0f, 0};
    table['y'] = {0, 0, 0, 0, 1.0f, 0};
    table['n'] = {0, 0.5f, 0, nan, 0.5f, 0};
    table['h'] = {0, nan, 0, 0.25f, nan, 0};
    table['q'] = {0, -0.0f, 0, -0.0f, 0, 0}; // 'p' is all +0

    const struct
    {
        const char* text;
        float minY, width, maxY;
    } cases[] = {
        {"", 1e20f, 0.0f, -1e20f},
        {"gab", 0.5f, 0.55f + 0.5f + 0.6f, 0.7f + 0.7f}, // origin y, not the descender, is the bottom
        {"a\xE9", 0.5f, 0.5f + 0.56f, 0.74f + 0.75f},    // high bytes index the table unsigned
        {"\xFF", -3.0f, 0.25f, -3.0f + 0.2f},
        {"xyy", 0.0f, 16777216.0f, 16777216.0f}, // 2^24 + 1 rounds back to 2^24 in float
        {"an", nan, 1.0f, nan},
        {"na", 0.5f, 1.0f, 1.0f}, // !(x > NaN) holds: a number replaces a NaN bound again
        {"ah", 0.25f, nan, nan},
        {"pq", -0.0f, 0.0f, -0.0f}, // an equal bound replaces the running one
    };
    for (const auto& expected : cases)
    {
        Eigen::Vector2f min(-7, -7), max(-7, -7);
        Font::measure(table.data(), expected.text, min, max);
        // Equal, NaN to NaN, and with the same sign for zeros.
        const auto same = [](float a, float b) {
            return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
        };
        EXPECT_TRUE(same(min.x(), 0.0f) && same(min.y(), expected.minY) && same(max.x(), expected.width) &&
                    same(max.y(), expected.maxY))
            << '"' << expected.text << "\": min " << min.transpose() << ", max " << max.transpose();
    }
}
