// The text-measuring arithmetic of Font, on hand-made metric tables (no GL context).
#include <opengl/Font.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>

using Tavrin::OpenGL::Font;

namespace
{
using Table = std::array<Font::GlyphMetrics, 256>;

struct Box
{
    Eigen::Vector2f min, max;
};

Box measure(const Table& table, const std::string& text)
{
    Box box{Eigen::Vector2f(-7, -7), Eigen::Vector2f(-7, -7)};
    Font::measure(table.data(), text, box.min, box.max);
    return box;
}

// blackBoxX, blackBoxY, originX, originY, cellIncX, cellIncY
Table sampleTable()
{
    Table table{};
    table['a'] = {0.4f, 0.5f, 0.05f, 0.5f, 0.5f, 0};
    table['b'] = {0.5f, 0.7f, 0.06f, 0.7f, 0.6f, 0};
    table['g'] = {0.45f, 0.75f, 0.04f, 0.54f, 0.55f, 0};
    table[0xE9] = {0.47f, 0.75f, 0.04f, 0.74f, 0.56f, 0};
    table[0xFF] = {0.1f, 0.2f, 0.0f, -3.0f, 0.25f, 0};
    return table;
}

const float notANumber = std::numeric_limits<float>::quiet_NaN();
} // namespace

TEST(FontMeasure, WidthSumsAdvancesAndHeightSpansOriginsToBoxTops)
{
    const Table table = sampleTable();
    Box box = measure(table, "");
    EXPECT_EQ(box.min, Eigen::Vector2f(0.0f, 1e20f));
    EXPECT_EQ(box.max, Eigen::Vector2f(0.0f, -1e20f));

    box = measure(table, "ab");
    EXPECT_EQ(box.min, Eigen::Vector2f(0.0f, 0.5f));
    EXPECT_EQ(box.max, Eigen::Vector2f(0.5f + 0.6f, 0.7f + 0.7f));

    // The lowest origin y is the minimum even though 'g' reaches further down: the box runs
    // from origin y to origin y + black-box height, and horizontal offsets are ignored.
    box = measure(table, "gab");
    EXPECT_EQ(box.min, Eigen::Vector2f(0.0f, 0.5f));
    EXPECT_EQ(box.max, Eigen::Vector2f(0.55f + 0.5f + 0.6f, 0.7f + 0.7f));
}

TEST(FontMeasure, AccumulatesInSinglePrecision)
{
    Table table{};
    table['x'] = {0, 1.0f, 0, 16777216.0f, 16777216.0f, 0};
    table['y'] = {0, 0, 0, 0, 1.0f, 0};
    const Box box = measure(table, "xyy");
    // In float 2^24 + 1 rounds back to 2^24 each time; in double the sum would be 2^24 + 2.
    EXPECT_EQ(box.max.x(), 16777216.0f);
    EXPECT_EQ(box.max.y(), 16777216.0f);
    EXPECT_EQ(box.min.y(), 0.0f);
}

TEST(FontMeasure, HighBytesIndexTheTableUnsigned)
{
    const Table table = sampleTable();
    Box box = measure(table, "a\xE9");
    EXPECT_EQ(box.max.x(), 0.5f + 0.56f);
    EXPECT_EQ(box.max.y(), 0.74f + 0.75f);

    // Code 255 measures its own record, never something outside the table.
    box = measure(table, "\xFF");
    EXPECT_EQ(box.min, Eigen::Vector2f(0.0f, -3.0f));
    EXPECT_EQ(box.max, Eigen::Vector2f(0.25f, -3.0f + 0.2f));
}

TEST(FontMeasure, NaNReplacesTheRunningBoundsAndLaterValuesReplaceNaN)
{
    Table table = sampleTable();
    table['n'] = {0, 0.5f, 0, notANumber, 0.5f, 0};        // NaN origin: both its bottom and its top are NaN
    table['h'] = {0, notANumber, 0, 0.25f, notANumber, 0}; // NaN height and advance

    Box box = measure(table, "an");
    EXPECT_TRUE(std::isnan(box.min.y()));
    EXPECT_TRUE(std::isnan(box.max.y()));
    EXPECT_EQ(box.max.x(), 1.0f);

    // A number after a NaN bound replaces it again: !(x > NaN) holds for every x.
    box = measure(table, "na");
    EXPECT_EQ(box.min.y(), 0.5f);
    EXPECT_EQ(box.max.y(), 1.0f);

    box = measure(table, "ha");
    EXPECT_EQ(box.min.y(), 0.25f);
    EXPECT_EQ(box.max.y(), 1.0f);
    EXPECT_TRUE(std::isnan(box.max.x()));
    EXPECT_EQ(box.min.x(), 0.0f);

    box = measure(table, "ah");
    EXPECT_EQ(box.min.y(), 0.25f);
    EXPECT_TRUE(std::isnan(box.max.y()));
}
