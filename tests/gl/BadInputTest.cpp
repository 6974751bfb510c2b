// Bad input fed to every entry point that takes it (the README's table): each case ends in its
// documented error, with nothing leaked, the program in use unchanged, no GL error pending, and
// a texture can still be made, filled and read back.
#include "DeviceTestSupport.h"

#include <core/FileLoader.h>
#include <core/FileTools.h>
#include <core/Image2D.h>
#include <opengl/ComputeDevice.h>
#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/GLSLException.h>

#include <filesystem>

using namespace Tavrin::OpenGL;
using DeviceTest::integer;
using Dir = const TavrinTest::TemporaryDirectory&;

namespace
{
// An index that lists a stage whose file is unreadable (a directory stands in its place).
struct StaleIndexLoader : Tavrin::FileLoader
{
    std::string listed;
    bool fileExists(const std::string& name) const override { return name == listed; }
    std::string loadFileAsString(const std::string& name) const override
    {
        return Tavrin::FileTools::loadFileAsString(name);
    }
};

// Writes `fragment` (if any) as the base's fragment stage and loads it. The driver's log is its
// own wording: a GLSLException is reported by its type only.
std::string loadProgram(Dir directory, const std::string& base, const char* fragment = nullptr,
                        const Tavrin::FileLoader* loader = nullptr)
{
    if (fragment)
        directory.write(base + "Fragment.glsl", fragment);
    try
    {
        delete Program::loadFromFile(directory.file(base), loader);
        return "a program";
    }
    catch (const GLSLException&)
    {
        return "GLSLException";
    }
}

// Loads `bytes` as an image file into an image that holds a 2x1 GL_R8 picture, which must survive.
std::string loadImage(Dir directory, const std::string& bytes)
{
    Tavrin::Image2D image(Eigen::Vector2i(2, 1), GL_R8);
    static_cast<unsigned char*>(image.getData())[1] = 77;
    const std::string thrown = TavrinTest::thrownBy([&] { image.load(directory.write("picture.png", bytes)); });
    EXPECT_TRUE(image.getSize() == Eigen::Vector2i(2, 1) && image.getInternalFormat() == GL_R8 &&
                static_cast<unsigned char*>(image.getData())[1] == 77);
    throw std::runtime_error(thrown);
}

std::string png(Dir directory)
{
    Tavrin::Image2D(Eigen::Vector2i(4, 4), GL_RGBA8).save(directory.file("valid.png"));
    return Tavrin::FileTools::loadFileAsString(directory.file("valid.png"));
}

std::string reserve(int levels, const Eigen::Vector2i& size, unsigned int format = GL_RGBA8)
{
    Texture2D().reserveStorage(levels, size, format);
    return "";
}

const char* const gain = "#version 430\nuniform float gain;\nout vec4 colour;\nvoid main() { colour = vec4(gain); }\n";

// A device with a program and slots, no texture set; `output` fills output slot 0. Neither kind
// gets as far as its program here.
template <typename Device> std::string update(int inputs, int outputs, bool output = false)
{
    DeviceTest::HostDevice<Device> device(std::shared_ptr<Program>(Program::loadFromSource("", "", "", "", gain, "")),
                                          inputs, outputs);
    if (output)
        device.outputTextures[0].texture = std::make_shared<Texture2D>();
    return device.update() ? "true" : "false";
}

using BadInput = std::tuple<const char*, std::string (*)(Dir), std::string>; // "%DIR%": the case's directory
const std::string decode = "runtime_error \"Cannot decode image file '%DIR%/picture.png': ";
const std::string invalid = "runtime_error \"GLCheck: Invalid value\"; WARNING: Texture2D.cpp (line N) "
                            "GLCheck: Invalid value";
const std::string oom =
    "runtime_error \"GLCheck: Out of memory\"; WARNING: Texture2D.cpp (line N) GLCheck: Out of memory";
const BadInput badInputs[] = {
    {"MissingShaderFiles", [](Dir d) { return loadProgram(d, "absent"); },
     "runtime_error \"No shader file for program'%DIR%/absent'\""},
    // Mesa refuses an empty stage, NVIDIA links it: either way nothing may leak.
    {"EmptyShaderFile", [](Dir d) { return loadProgram(d, "empty", "").substr(0, 0); }, ""},
    {"ShaderFileThatDoesNotCompile", [](Dir d) { return loadProgram(d, "broken", "#version 430\nvoid main() { x; }"); },
     "GLSLException"},
    {"UnreadableShaderFile",
     [](Dir d) {
         StaleIndexLoader stale;
         std::filesystem::create_directory(stale.listed = d.file("lockedVertex.glsl"));
         return loadProgram(d, "locked", nullptr, &stale);
     },
     "runtime_error \"Cannot read file '%DIR%/lockedVertex.glsl'\""},
    {"MissingImageFile", [](Dir d) { return std::to_string(Tavrin::Image2D(d.file("absent.png")).getByteCount()); },
     "runtime_error \"Cannot read image file '%DIR%/absent.png'\""},
    {"EmptyImageFile", [](Dir d) { return loadImage(d, ""); }, decode + "unknown image type\""},
    {"TruncatedPng", [](Dir d) { return loadImage(d, png(d).substr(0, png(d).size() / 2)); },
     decode + "truncated PNG chunk\""},
    {"CorruptPngData",
     [](Dir d) {
         std::string corrupt = png(d);
         std::fill(corrupt.begin() + 41, corrupt.end() - 16, char(0xA5)); // past the header chunk
         return loadImage(d, corrupt);
     },
     decode + "bad zlib header\""},
    {"CorruptJpegHeader", [](Dir d) { return loadImage(d, std::string("\xFF\xD8\xFF\xC0\x00\x02garbage", 13)); },
     decode + "corrupt JPEG marker\""},
    {"ZeroTextureSize", [](Dir) { return reserve(1, Eigen::Vector2i(0, 0)); }, invalid},
    {"TextureAboveTheMaximumSize",
     [](Dir) {
         return reserve(1, {integer(GL_MAX_TEXTURE_SIZE) + 1, 4});
     },
     invalid},
    {"ZeroMipLevels", [](Dir) { return reserve(0, Eigen::Vector2i(4, 4)); }, invalid},
    {"UniformThatDoesNotExist",
     [](Dir) {
         std::unique_ptr<Program> program(Program::loadFromSource("", "", "", "", gain, ""));
         program->uniform("gain", 0.5f);
         program->uniform("noSuchUniform", 2.0f);
         program->uniform("noSuchUniform", 1, 2);
         program->uniform("gain[7]", 3.0f);
         GLfloat value = 0;
         glGetUniformfv(program->getHandle(), program->getUniformLocation("gain"), &value);
         return "gain " + std::to_string(value);
     },
     "gain 0.500000"},
    {"ComputeDeviceWithoutOutputOrWithSlotEmpty",
     [](Dir) { return update<ComputeDevice>(1, 0) + update<ComputeDevice>(0, 2); },
     "falsefalse; ERROR: No output texture.ERROR: No output texture."},
    {"FramebufferDeviceWithOutputSlotEmpty", [](Dir) { return update<FramebufferTexture2DDevice>(1, 1); },
     "false; ERROR: No output texture."},
    {"FramebufferDeviceWithInputSlotEmptyOrWithoutInputSlot",
     [](Dir) {
         return TavrinTest::thrownBy([] { update<FramebufferTexture2DDevice>(1, 1, true); }) + "|" +
                TavrinTest::thrownBy([] { update<FramebufferTexture2DDevice>(0, 1, true); });
     },
     "No input texture.|No input texture."},
    // A driver that defers or over-commits a huge allocation reports nothing: `oom` then, too.
    {"HugeTextureSurfacesAsOutOfMemory",
     [](Dir) { return reserve(1, Eigen::Vector2i::Constant(integer(GL_MAX_TEXTURE_SIZE)), GL_RGBA32F) + oom; }, oom},
};

class BadInputTest : public ::testing::TestWithParam<BadInput>
{
};
} // namespace

TEST_P(BadInputTest, GivesItsErrorAndLeavesGLUsable)
{
    const TavrinTest::TemporaryDirectory directory;
    const GLint program = integer(GL_CURRENT_PROGRAM);
    const std::vector<std::string> objects = TavrinTest::liveGLObjects();
    std::string expected = std::get<2>(GetParam()), seen;
    for (std::size_t at; (at = expected.find("%DIR%")) != std::string::npos;)
        expected.replace(at, 5, directory.path());
    // The exception or the result, then std::cout and std::cerr.
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] { seen = std::get<1>(GetParam())(directory); });
    if (!outcome.thrown.empty())
        seen = "runtime_error \"" + outcome.thrown + "\"";
    for (const std::string& stream : {outcome.out, outcome.err})
        seen += stream.empty() ? "" : "; " + TavrinTest::withoutLineNumbers(stream);
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(TavrinTest::liveGLObjects(), objects);
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), program);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    DeviceTest::Level level = DeviceTest::patternLevel(Eigen::Vector2i(3, 1), 5);
    EXPECT_EQ(DeviceTest::download(*DeviceTest::textureWith(level), 0).texels, level.texels);
}

INSTANTIATE_TEST_SUITE_P(Cases, BadInputTest, ::testing::ValuesIn(badInputs),
                         [](const ::testing::TestParamInfo<BadInput>& info) { return std::get<0>(info.param); });
