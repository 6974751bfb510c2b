// The core and image companions: string tools, file lookup, directories, PNG round trip.
#include "support/TestSupport.h"

#include <core/DirectoryIterator.h>
#include <core/FileLoader.h>
#include <core/FileTools.h>
#include <core/Image2D.h>
#include <core/StringTools.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <stdexcept>

using namespace Tavrin;

TEST(StringTools, ConvertsIntegersLikeAtoiWithoutOverflow)
{
    EXPECT_EQ(StringTools::intToString(-42), "-42");
    EXPECT_EQ(StringTools::stringToInt("12"), 12);
    EXPECT_EQ(StringTools::stringToInt("  -7: rest"), -7);
    EXPECT_EQ(StringTools::stringToInt("+3"), 3);
    EXPECT_EQ(StringTools::stringToInt("abc"), 0);
    EXPECT_EQ(StringTools::stringToInt(""), 0);
    EXPECT_EQ(StringTools::stringToInt("99999999999999999999"), INT_MAX);
    EXPECT_EQ(StringTools::stringToInt("-99999999999999999999"), INT_MIN);
}

TEST(StringTools, TokenizeSplitsOnAnyDelimiterAndDropsEmptyPieces)
{
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(StringTools::tokenize("a\n\nb\nc\n", "\n"), (Pieces{"a", "b", "c"}));
    EXPECT_EQ(StringTools::tokenize("tex[2]", "["), (Pieces{"tex", "2]"}));
    EXPECT_EQ(StringTools::tokenize("a,b;c", ",;"), (Pieces{"a", "b", "c"}));
    EXPECT_EQ(StringTools::tokenize("", "\n"), Pieces{});
    EXPECT_EQ(StringTools::tokenize("\n\n", "\n"), Pieces{});
    EXPECT_EQ(StringTools::tokenize("abc", ""), (Pieces{"abc"}));
}

TEST(StringTools, LowerCaseAndTrim)
{
    EXPECT_EQ(StringTools::toLower(" ARIAL\t"), " arial\t");
    EXPECT_EQ(StringTools::trim(StringTools::toLower(" ARIAL\t")), "arial");
    EXPECT_EQ(StringTools::trim(" \t\r\n\v\f"), "");
    EXPECT_EQ(StringTools::trim("a b"), "a b");
    EXPECT_EQ(StringTools::toLower("\xC4Z"), "\xC4z"); // bytes outside ASCII stay as they are
}

TEST(FileTools, LoadsFilesAndReportsMissingOnes)
{
    TavrinTest::TemporaryDirectory directory;
    const std::string path = directory.write("a.glsl", std::string("line1\nline2\0tail", 16));
    EXPECT_TRUE(FileTools::fileExists(path));
    EXPECT_EQ(FileTools::loadFileAsString(path), std::string("line1\nline2\0tail", 16));
    EXPECT_FALSE(FileTools::fileExists(directory.file("missing.glsl")));
    EXPECT_FALSE(FileTools::fileExists(directory.path())); // a directory is not a file
    try
    {
        FileTools::loadFileAsString(directory.file("missing.glsl"));
        FAIL() << "no exception";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_EQ(std::string(error.what()), "Cannot read file '" + directory.file("missing.glsl") + "'");
    }
    EXPECT_THROW(FileTools::loadFileAsString(directory.path()), std::runtime_error);
}

TEST(FileTools, DirectoryLoaderSearchesItsDirectoriesInOrder)
{
    TavrinTest::TemporaryDirectory first, second;
    second.write("shaders/blurVertex.glsl", "second");
    second.write("only.txt", "only in second");
    first.write("shaders/blurVertex.glsl", "first");
    DirectoryFileLoader loader({first.path(), second.path()});

    EXPECT_TRUE(FileTools::fileExists("shaders/blurVertex.glsl", &loader));
    EXPECT_EQ(loader.loadFileAsString("shaders/blurVertex.glsl"), "first");
    EXPECT_EQ(loader.loadFileAsString("only.txt"), "only in second");
    EXPECT_FALSE(loader.fileExists("nothing.txt"));
    EXPECT_THROW(loader.loadFileAsString("nothing.txt"), std::runtime_error);
    // An absolute name is taken as it is.
    EXPECT_EQ(loader.loadFileAsString(second.file("only.txt")), "only in second");
}

TEST(DirectoryIterator, ListsTheEntriesOfOneDirectory)
{
    TavrinTest::TemporaryDirectory directory;
    directory.write("b.txt", "");
    directory.write("a.txt", "");
    directory.write("sub/c.txt", "");
    DirectoryIterator iterator(directory.path());
    std::vector<std::string> names;
    std::string name;
    while (iterator.next(name))
        names.push_back(name);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"a.txt", "b.txt", "sub"}));
    EXPECT_FALSE(iterator.next(name));
    EXPECT_THROW(DirectoryIterator(directory.file("missing")), std::runtime_error);
}

TEST(Image2D, SavesAndLoadsPngWithRowsBottomUp)
{
    TavrinTest::TemporaryDirectory directory;
    Image2D image(Eigen::Vector2i(3, 2), 0x8051 /* GL_RGB8 */);
    EXPECT_EQ(image.getByteCount(), 18u);
    auto* bytes = static_cast<unsigned char*>(image.getData());
    for (int i = 0; i < 18; ++i)
        bytes[i] = static_cast<unsigned char>(i * 13);
    image.save(directory.file("rgb.png"));

    Image2D loaded(directory.file("rgb.png"));
    EXPECT_EQ(loaded.getSize(), Eigen::Vector2i(3, 2));
    EXPECT_EQ(loaded.getInternalFormat(), 0x8051u);
    EXPECT_EQ(0, std::memcmp(loaded.getData(), image.getData(), 18));

    Image2D rgba(Eigen::Vector2i(1, 2), 0x8058 /* GL_RGBA8 */);
    static_cast<unsigned char*>(rgba.getData())[0] = 255; // bottom row red
    rgba.save(directory.file("rgba.png"));
    Image2D copy = Image2D(directory.file("rgba.png"));
    EXPECT_EQ(copy.getInternalFormat(), 0x8058u);
    EXPECT_EQ(static_cast<unsigned char*>(copy.getData())[0], 255);
    EXPECT_EQ(static_cast<unsigned char*>(copy.getData())[4], 0);
}

TEST(Image2D, RejectsUnreadableFilesAndUnsupportedFormats)
{
    TavrinTest::TemporaryDirectory directory;
    const std::string garbage = directory.write("garbage.png", "not a png at all");
    Image2D image(Eigen::Vector2i(2, 2), 0x8058);
    try
    {
        image.load(garbage);
        FAIL() << "no exception";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_NE(std::string(error.what()).find(garbage), std::string::npos) << error.what();
    }
    EXPECT_EQ(image.getSize(), Eigen::Vector2i(2, 2)); // unchanged
    EXPECT_THROW(image.load(directory.file("missing.png")), std::runtime_error);
    EXPECT_THROW(Image2D(Eigen::Vector2i(2, 2), 0x1234), std::runtime_error);
    EXPECT_THROW(Image2D(Eigen::Vector2i(2, 2), 0x8814).save(directory.file("f.png")), std::runtime_error);
}

// Forged files that once crashed the decoder: each is reported as the file's fault.
TEST(Image2D, ForgedFilesEndInAnErrorNamingTheFile)
{
    struct Forged
    {
        const char* what;
        std::string bytes;
    };
    const std::string pngSignature("\x89PNG\r\n\x1a\n", 8);
    const Forged cases[] = {
        {"chunk longer than the file", pngSignature + std::string("\x7f\xff\xff\xf0IDATxx", 10)},
        {"chunk header cut off", pngSignature + std::string("\x00\x00", 2)},
        {"Huffman table with 510 codes", std::string("\xff\xd8\xff\xc4\x00\x03\x00\xff\xff", 9)},
        {"fill bytes before the JPEG start", std::string("\xff\xff\xd8\xff\xc4\xff\xff") + std::string(64, '\0')},
        {"empty", std::string()},
    };
    for (const Forged& forged : cases)
    {
        Image2D image;
        try
        {
            image.loadFromMemory(forged.bytes.data(), forged.bytes.size(), "forged.img");
            ADD_FAILURE() << forged.what << ": no exception";
        }
        catch (const std::runtime_error& error)
        {
            EXPECT_EQ(std::string(error.what()).rfind("Cannot decode image file 'forged.img'", 0), 0u)
                << forged.what << ": " << error.what();
        }
        EXPECT_EQ(image.getSize(), Eigen::Vector2i(0, 0)) << forged.what;
    }
}
