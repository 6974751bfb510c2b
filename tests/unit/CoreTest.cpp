// The core companions: string tools, file lookup, directories, and images in and out of files.
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

using namespace Tavrin;
using namespace std::string_literals;
using Pieces = std::vector<std::string>;

TEST(StringTools, ParseSplitLowerAndTrimAsDocumented)
{
    const char* const texts[] = {
        "12",         "  -7: rest",  "+3",         "\t\n\v\f\r 5",  "abc",           "", "-", "0x1F", "09", "1 2",
        "2147483647", "-2147483648", "2147483648", "9999999999999", "-9999999999999"};
    const int values[] = {12, -7, 3, 5, 0, 0, 0, 0, 9, 1, INT_MAX, INT_MIN, INT_MAX, INT_MAX, INT_MIN};
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(StringTools::stringToInt(texts[i]), values[i]) << '"' << texts[i] << '"';
    EXPECT_EQ(StringTools::stringToInt("-99999999999999999999"), INT_MIN); // past any integer type
    EXPECT_EQ(StringTools::intToString(INT_MIN), "-2147483648");
    EXPECT_EQ(StringTools::tokenize("a\n\nb\nc\n", "\n"), (Pieces{"a", "b", "c"}));
    EXPECT_EQ(StringTools::tokenize("\nx,y;z", ",;\n"), (Pieces{"x", "y", "z"}));
    EXPECT_EQ(StringTools::tokenize("\n\n", "\n"), Pieces{});
    EXPECT_EQ(StringTools::tokenize("abc", ""), Pieces{"abc"});
    EXPECT_EQ(StringTools::toLower("AZaz@[\xC4Z"), "azaz@[\xC4z"); // bytes outside ASCII stay
    EXPECT_EQ(StringTools::trim(" \t\r\n\v\fa b \t\r\n\v\f") + StringTools::trim(" \t\r\n\v\f") +
                  StringTools::trim("x"),
              "a bx");
}

TEST(FileTools, LoadsFilesSearchesLoaderDirectoriesInOrderAndListsDirectories)
{
    TavrinTest::TemporaryDirectory first, second;
    const std::string binary("line1\nline2\0tail", 16);
    EXPECT_EQ(FileTools::loadFileAsString(first.write("a.glsl", binary)), binary);
    EXPECT_EQ(FileTools::loadFileAsString(first.write("empty.glsl", "")), "");
    for (const std::string& unreadable : {first.file("missing.glsl"), first.path()}) // a directory is no file
        EXPECT_EQ(std::to_string(FileTools::fileExists(unreadable)) +
                      TavrinTest::thrownBy([&] { FileTools::loadFileAsString(unreadable); }),
                  "0Cannot read file '" + unreadable + "'");
    second.write("shaders/blurVertex.glsl", "second");
    second.write("only.txt", "only in second");
    first.write("shaders/blurVertex.glsl", "first");
    DirectoryFileLoader loader({first.path(), second.path()});
    EXPECT_TRUE(FileTools::fileExists("shaders/blurVertex.glsl", &loader));
    EXPECT_EQ(loader.loadFileAsString("shaders/blurVertex.glsl") + loader.loadFileAsString("only.txt") +
                  loader.loadFileAsString(second.file("only.txt")), // absolute: as it is
              "firstonly in secondonly in second");
    EXPECT_FALSE(loader.fileExists("nothing.txt") || loader.fileExists(first.file("nothing.txt")));
    EXPECT_EQ(TavrinTest::thrownBy([&] { loader.loadFileAsString("nothing.txt"); }), "Cannot read file 'nothing.txt'");
    // A directory's entries, each once.
    DirectoryIterator iterator(first.path());
    Pieces names;
    std::string name;
    while (iterator.next(name))
        names.push_back(name);
    EXPECT_FALSE(iterator.next(name));
    EXPECT_EQ(name, names.back()); // left alone at the end
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (Pieces{"a.glsl", "empty.glsl", "shaders"}));
    DirectoryIterator moved(std::move(iterator));
    EXPECT_FALSE(iterator.next(name) || moved.next(name));
    const std::string missing = first.file("missing");
    EXPECT_EQ(TavrinTest::thrownBy([&] { DirectoryIterator{missing}; }), "Cannot read directory '" + missing + "'");
}

TEST(Image2D, SavesAndLoadsPngOfEveryByteFormatAndRefusesTheRestAndDamagedFiles)
{
    TavrinTest::TemporaryDirectory directory;
    for (unsigned int format : {0x8229u /* R8 */, 0x822Bu /* RG8 */, 0x8051u /* RGB8 */, 0x8058u /* RGBA8 */})
    {
        Image2D image(Eigen::Vector2i(3, 2), format);
        for (std::size_t i = 0; i < image.getByteCount(); ++i)
            static_cast<unsigned char*>(image.getData())[i] = static_cast<unsigned char>(i * 13 + 1);
        image.save(directory.file("image.png"));
        const Image2D loaded(directory.file("image.png"));
        EXPECT_TRUE(loaded.getSize() == Eigen::Vector2i(3, 2) && loaded.getInternalFormat() == format &&
                    std::memcmp(loaded.getData(), image.getData(), 6 * image.getBytesPerTexel()) == 0)
            << format;
    }
    const auto fails = [&](unsigned int format, Eigen::Vector2i size, const std::string& name) {
        return TavrinTest::thrownBy([&] { Image2D(size, format).save(directory.file(name)); });
    };
    EXPECT_EQ(fails(0x1234, {2, 2}, "a.png"), "Image2D: unsupported internal format 4660");
    EXPECT_EQ(fails(0x8058, {-1, 2}, "a.png"), "Image2D: negative size");
    EXPECT_EQ(fails(0x8814, {2, 2}, "f.png"),
              "Cannot save image file '" + directory.file("f.png") + "': only 8-bit formats have a PNG form");
    EXPECT_EQ(fails(0x8058, {2, 2}, "no/dir.png"), "Cannot write image file '" + directory.file("no/dir.png") + "'");
    EXPECT_EQ(Image2D::bytesPerTexel(0x822E) + Image2D::bytesPerTexel(0x8814), 20); // R32F, RGBA32F
    // Damaged and forged files (several once crashed the decoder): an error naming file and fault.
    const std::string png = "\x89PNG\r\n\x1a\n"s, soi = "\xff\xd8"s,
                      badTable = "\xff\xc4\x00\x13\x00"s + std::string(16, ' ');
    const std::pair<std::string, std::string> cases[] = {
        {"", "unknown image type"},
        {"GIF89a", "unknown image type"},
        {png + "\x7f\xff\xff\xf0IDATxx"s, "truncated PNG chunk"},
        {png + "\0\0\0\0IEND"s, "truncated PNG chunk"},
        {png + "\0\0\0\0IEND\xae\x42\x60\x82"s, "first not IHDR"},
        {soi + "\xff\xc4\x00\x03\x00\xff\xff"s, "corrupt JPEG Huffman table"}, // 510 codes
        {"\xff\xff"s + soi.substr(1) + badTable, "corrupt JPEG Huffman table"},
        {soi + "\xff\xd0\xff\x01\xff\xff"s + badTable, "corrupt JPEG Huffman table"},
        {soi + "\xff\xd7"s + badTable, "corrupt JPEG Huffman table"},
        {soi + "\xff\xc4\x00\x14"s + std::string(17, '\0') + "\x10" + std::string(16, ' '),
         "corrupt JPEG Huffman table"},
        {soi + "\xff\xda\x00\x02\x12\xff\x00\xff\xd3\x34"s + badTable, "corrupt JPEG Huffman table"},
        {soi + "\xff\xd9"s + badTable, "unknown marker"}, // nothing checked after the end
        {soi + "\0\0"s, "corrupt JPEG marker"},
        {soi + "\xff\xe0\x00\x01"s, "truncated JPEG segment"},
        {soi + "\xff\xe0\x00\x09xx"s, "truncated JPEG segment"},
        {soi + "\xff\xe0"s, "truncated JPEG segment"},
    };
    for (const auto& forged : cases)
    {
        Image2D image(Eigen::Vector2i(2, 1), 0x8229u);
        EXPECT_EQ(
            TavrinTest::thrownBy([&] { image.loadFromMemory(forged.first.data(), forged.first.size(), "f.img"); }),
            "Cannot decode image file 'f.img': " + forged.second);
        EXPECT_EQ(image.getSize(), Eigen::Vector2i(2, 1));
    }
}
