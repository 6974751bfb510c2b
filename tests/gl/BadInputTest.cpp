// Bad input fed to every entry point that takes it: each case must end in the documented error,
// with nothing leaked and the GL state still usable (a texture can be made, filled and read
// back, and no GL error is left pending).
#include "DeviceTestSupport.h"

#include <core/FileLoader.h>
#include <core/FileTools.h>
#include <core/Image2D.h>
#include <opengl/ComputeDevice.h>
#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/GLSLException.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
// What the caller gets from one call: the exception (type and text), or what it returned, and
// what was written to std::cout / std::cerr, with GL check line numbers replaced by "N".
std::string outcomeOf(const std::function<std::string()>& call)
{
    TavrinTest::StreamCapture out(std::cout);
    TavrinTest::StreamCapture err(std::cerr);
    std::string result;
    try
    {
        result = call();
    }
    catch (const GLSLException&)
    {
        result = "GLSLException"; // the driver's log: its wording is the driver's own
    }
    catch (const std::runtime_error& error)
    {
        result = std::string("runtime_error \"") + error.what() + "\"";
    }
    const std::regex lineNumber(" \\(line [0-9]+\\) ");
    for (const std::string& stream : {out.text(), err.text()})
        if (!stream.empty())
            result += "; " + std::regex_replace(stream, lineNumber, " (line N) ");
    return result;
}

struct BadInput
{
    const char* name;
    std::function<std::string(const TavrinTest::TemporaryDirectory&)> call;
    // "%DIR%" stands for the case's temporary directory.
    std::string expected;
};

std::string replaceDirectory(std::string text, const std::string& directory)
{
    for (std::size_t at = text.find("%DIR%"); at != std::string::npos; at = text.find("%DIR%", at + directory.size()))
        text.replace(at, 5, directory);
    return text;
}

// A resource index that still lists a stage whose file has since become unreadable (here: a
// directory stands in its place): existence is answered from the index, reading goes to disk.
class StaleIndexLoader : public Tavrin::FileLoader
{
public:
    explicit StaleIndexLoader(std::string listed) : listed(std::move(listed)) {}
    bool fileExists(const std::string& fileName) const override { return fileName == listed; }
    std::string loadFileAsString(const std::string& fileName) const override
    {
        return Tavrin::FileTools::loadFileAsString(fileName);
    }

private:
    std::string listed;
};

std::string loadProgram(const std::string& baseName, const Tavrin::FileLoader* loader = nullptr)
{
    delete Program::loadFromFile(baseName, loader);
    return "a program";
}

// Loads `bytes` as an image file into an image that already holds a 2x1 GL_R8 picture, and
// reports whether that picture survived the failure.
std::string loadImage(const TavrinTest::TemporaryDirectory& directory, const std::string& bytes)
{
    Tavrin::Image2D image(Eigen::Vector2i(2, 1), GL_R8);
    static_cast<unsigned char*>(image.getData())[1] = 77;
    const std::string file = directory.write("picture.png", bytes);
    try
    {
        image.load(file);
    }
    catch (...)
    {
        if (image.getSize() != Eigen::Vector2i(2, 1) || image.getInternalFormat() != GL_R8 ||
            static_cast<unsigned char*>(image.getData())[1] != 77)
            return "the image was changed";
        throw;
    }
    return "an image";
}

std::string validPng()
{
    Tavrin::Image2D image(Eigen::Vector2i(4, 4), GL_RGBA8);
    TavrinTest::TemporaryDirectory directory;
    image.save(directory.file("valid.png"));
    std::ifstream stream(directory.file("valid.png"), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

std::string reserve(int levels, const Eigen::Vector2i& size, unsigned int format)
{
    Texture2D texture;
    texture.reserveStorage(levels, size, format);
    return "storage";
}

GLint maxTextureSize()
{
    GLint value = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &value);
    return value;
}

const char* const uniformFragment = R"(#version 430 compatibility
uniform float gain;
out vec4 colour;
void main() { colour = vec4(gain); }
)";

class SlotComputeDevice : public ComputeDevice
{
public:
    SlotComputeDevice(int inputs, int outputs)
    {
        program.reset(Program::loadFromSource("", "", "", "", "",
                                              "#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n"));
        inputTextures.resize(std::size_t(inputs));
        outputTextures.resize(std::size_t(outputs));
    }
};

class SlotFramebufferDevice : public FramebufferTexture2DDevice
{
public:
    SlotFramebufferDevice(int inputs, int outputs)
    {
        program.reset(Program::loadFromSource("", "", "", "", uniformFragment, ""));
        inputTextures.resize(std::size_t(inputs));
        outputTextures.resize(std::size_t(outputs));
    }
    using FramebufferTexture2DDevice::setOutputTexture;
};

std::vector<BadInput> badInputs()
{
    using Dir = const TavrinTest::TemporaryDirectory&;
    const std::string png = validPng();
    return {
        {"MissingShaderFiles", [](Dir d) { return loadProgram(d.file("absent")); },
         "runtime_error \"No shader file for program'%DIR%/absent'\""},
        {"EmptyShaderFile",
         [](Dir d) {
             d.write("emptyFragment.glsl", "");
             return loadProgram(d.file("empty"));
         },
         "GLSLException"},
        {"ShaderFileThatDoesNotCompile",
         [](Dir d) {
             d.write("brokenFragment.glsl", "#version 430\nvoid main() { undeclared = 1; }\n");
             return loadProgram(d.file("broken"));
         },
         "GLSLException"},
        {"UnreadableShaderFile",
         [](Dir d) {
             std::filesystem::create_directory(d.file("lockedVertex.glsl"));
             const StaleIndexLoader loader(d.file("lockedVertex.glsl"));
             return loadProgram(d.file("locked"), &loader);
         },
         "runtime_error \"Cannot read file '%DIR%/lockedVertex.glsl'\""},
        {"MissingImageFile",
         [](Dir d) {
             Tavrin::Image2D image;
             image.load(d.file("absent.png"));
             return std::string("an image");
         },
         "runtime_error \"Cannot read image file '%DIR%/absent.png'\""},
        {"EmptyImageFile", [](Dir d) { return loadImage(d, ""); },
         "runtime_error \"Cannot decode image file '%DIR%/picture.png': unknown image type\""},
        {"TruncatedPng", [png](Dir d) { return loadImage(d, png.substr(0, png.size() / 2)); },
         "runtime_error \"Cannot decode image file '%DIR%/picture.png': truncated PNG chunk\""},
        {"CorruptPngData",
         [png](Dir d) {
             std::string bytes = png;
             for (std::size_t i = 41; i + 16 < bytes.size(); ++i) // past the header chunk
                 bytes[i] = char(0xA5);
             return loadImage(d, bytes);
         },
         "runtime_error \"Cannot decode image file '%DIR%/picture.png': bad zlib header\""},
        {"CorruptJpegHeader", [](Dir d) { return loadImage(d, std::string("\xFF\xD8\xFF\xC0\x00\x02garbage", 13)); },
         "runtime_error \"Cannot decode image file '%DIR%/picture.png': corrupt JPEG marker\""},
        {"ZeroTextureSize", [](Dir) { return reserve(1, Eigen::Vector2i(0, 0), GL_RGBA8); },
         "runtime_error \"GLCheck: Invalid value\"; WARNING: Texture2D.cpp (line N) GLCheck: Invalid value"},
        {"TextureAboveTheMaximumSize",
         [](Dir) { return reserve(1, Eigen::Vector2i(maxTextureSize() + 1, 4), GL_RGBA8); },
         "runtime_error \"GLCheck: Invalid value\"; WARNING: Texture2D.cpp (line N) GLCheck: Invalid value"},
        {"ZeroMipLevels", [](Dir) { return reserve(0, Eigen::Vector2i(4, 4), GL_RGBA8); },
         "runtime_error \"GLCheck: Invalid value\"; WARNING: Texture2D.cpp (line N) GLCheck: Invalid value"},
        {"UniformThatDoesNotExist",
         [](Dir) {
             std::unique_ptr<Program> program(Program::loadFromSource("", "", "", "", uniformFragment, ""));
             program->uniform("gain", 0.5f);
             program->uniform("noSuchUniform", 2.0f);
             program->uniform("noSuchUniform", 1, 2);
             program->uniform("gain[7]", 3.0f);
             GLfloat gain = 0;
             glGetUniformfv(program->getHandle(), program->getUniformLocation("gain"), &gain);
             return "nothing thrown; gain " + std::to_string(gain);
         },
         "nothing thrown; gain 0.500000"},
        {"ComputeDeviceWithoutOutputSlot",
         [](Dir) { return std::string(SlotComputeDevice(1, 0).update() ? "true" : "false"); },
         "false; ERROR: No output texture."},
        {"ComputeDeviceWithOutputSlotEmpty",
         [](Dir) { return std::string(SlotComputeDevice(0, 2).update() ? "true" : "false"); },
         "false; ERROR: No output texture."},
        {"FramebufferDeviceWithOutputSlotEmpty",
         [](Dir) { return std::string(SlotFramebufferDevice(1, 1).update() ? "true" : "false"); },
         "false; ERROR: No output texture."},
        {"FramebufferDeviceWithInputSlotEmpty",
         [](Dir) {
             SlotFramebufferDevice device(1, 1);
             device.setOutputTexture(0, std::make_shared<Texture2D>());
             return std::string(device.update() ? "true" : "false");
         },
         "runtime_error \"No input texture.\""},
        {"FramebufferDeviceWithoutInputSlot",
         [](Dir) {
             SlotFramebufferDevice device(0, 1);
             device.setOutputTexture(0, std::make_shared<Texture2D>());
             return std::string(device.update() ? "true" : "false");
         },
         "runtime_error \"No input texture.\""},
    };
}

// The GL state after a failure: no error pending, and a texture can still be made, filled and
// read back.
void expectUsableGLState()
{
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    const Level level = patternLevel(Eigen::Vector2i(3, 2), 9);
    const auto texture = textureWith(level);
    EXPECT_EQ(download(*texture, 0).texels, level.texels);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

void PrintTo(const BadInput& input, std::ostream* stream)
{
    *stream << input.name;
}

class BadInputTest : public ::testing::TestWithParam<BadInput>
{
protected:
    void TearDown() override { TavrinTest::drainGLErrors(); }
};
} // namespace

TEST_P(BadInputTest, GivesItsErrorAndLeavesGLUsable)
{
    const BadInput& input = GetParam();
    const TavrinTest::TemporaryDirectory directory;
    GLint program = -1;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    const std::vector<std::string> objects = TavrinTest::liveGLObjects();

    EXPECT_EQ(outcomeOf([&] { return input.call(directory); }), replaceDirectory(input.expected, directory.path()));

    EXPECT_EQ(TavrinTest::liveGLObjects(), objects);
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), program);
    expectUsableGLState();
}

INSTANTIATE_TEST_SUITE_P(Cases, BadInputTest, ::testing::ValuesIn(badInputs()),
                         [](const ::testing::TestParamInfo<BadInput>& info) { return std::string(info.param.name); });

// An allocation far beyond what the process can hold. GL may report it as GL_OUT_OF_MEMORY,
// which surfaces as the checked exception; a driver that defers or over-commits the allocation
// reports nothing, and then the test has nothing to check.
TEST(BadInputOutOfMemory, HugeTextureSurfacesAsOutOfMemory)
{
    const GLint side = maxTextureSize();
    const std::vector<std::string> objects = TavrinTest::liveGLObjects();
    const std::string outcome = outcomeOf([&] { return reserve(1, Eigen::Vector2i(side, side), GL_RGBA32F); });
    EXPECT_EQ(TavrinTest::liveGLObjects(), objects);
    expectUsableGLState();
    if (outcome == "storage")
        GTEST_SKIP() << "the driver allocated " << side << " x " << side << " RGBA32F without an error";
    EXPECT_EQ(outcome,
              "runtime_error \"GLCheck: Out of memory\"; WARNING: Texture2D.cpp (line N) GLCheck: Out of memory");
}
