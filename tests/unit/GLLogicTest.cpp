// What the GL classes do without a context: messages, log mapping, vendor detection.
#include "support/TestSupport.h"

#include <core/FileLoader.h>
#include <core/StringTools.h>
#include <opengl/Framebuffer.h>
#include <opengl/GLCheck.h>
#include <opengl/GLSLException.h>
#include <opengl/OpenGLContext.h>
#include <opengl/Program.h>
#include <opengl/Shader.h>
#include <opengl/ShaderSource.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

using namespace Tavrin::OpenGL;

TEST(GLMessages, EveryCodeHasItsExactTextAndAnExceptionItsOwnLog)
{
    const GLSLException original("0(3) : error C0000: syntax error");
    GLSLException copy(original), assigned("other");
    EXPECT_NE(copy.what(), original.what()); // own storage
    assigned = original;
    assigned = *&assigned;
    EXPECT_STREQ(static_cast<const std::exception&>(assigned).what(), original.what());
    EXPECT_EQ(copy.getInfoLogText(), original.getInfoLogText());
    const std::vector<std::string> checks = Tavrin::StringTools::tokenize(
        "Invalid enum,Invalid value,Invalid operation,Stack overflow,Stack underflow,Out of memory,"
        "Invalid framebuffer operation,Unknown error",
        ",");
    for (unsigned int code = 0x04FF; code <= 0x0507; ++code)
        EXPECT_EQ(GLCheck::errorMessage(code), "GLCheck: " + checks[code - 0x0500 < 7 ? code - 0x0500 : 7]);
    EXPECT_EQ(Framebuffer::statusMessage(GL_FRAMEBUFFER_COMPLETE), nullptr);
    const std::pair<unsigned int, std::string> statuses[] = {
        {GL_FRAMEBUFFER_INCOMPLETE_ATTACHMENT, "Framebuffer incomplete: Incomplete attachment"},
        {GL_FRAMEBUFFER_INCOMPLETE_MISSING_ATTACHMENT, "Framebuffer incomplete: Missing attachment"},
        {GL_FRAMEBUFFER_INCOMPLETE_DRAW_BUFFER, "Framebuffer incomplete: Missing drawbuffer"},
        {GL_FRAMEBUFFER_INCOMPLETE_READ_BUFFER, "Framebuffer incomplete: Missing readbuffer"},
        {GL_FRAMEBUFFER_UNSUPPORTED, "Framebuffer unsupported"},
        {GL_FRAMEBUFFER_INCOMPLETE_MULTISAMPLE, "Framebuffer incomplete (Multisample)"},
        {GL_FRAMEBUFFER_UNDEFINED, "Framebuffer Object Error"}};
    for (const auto& status : statuses)
        EXPECT_EQ(Framebuffer::statusMessage(status.first), status.second);
    EXPECT_STREQ(Detail::bareFileName("C:\\src\\opengl/Program.cpp"), "Program.cpp");
    EXPECT_EQ(OpenGLContext::getContext({}), nullptr); // no device context: no render context
}

TEST(ShaderLogMapping, RewritesEachLineByItsVendorsFormAndTheVendorFollowsTheName)
{
    const std::vector<int> lines = {7, 12, 13}; // source lines 1, 2, 3
    const std::vector<std::string> files = {"common.glsl", "lighting.glsl", "lighting.glsl"};
    const Program::Vendor N = Program::NVIDIA, A = Program::ATI;
    const std::tuple<Program::Vendor, const char*, const char*> cases[] = {
        {N, "0(3) : error C0000: syntax error", "lighting.glsl (14) : error C0000: syntax error"},
        {N, "0(0) : e", "common.glsl (8) : e"},
        {N, "0(-99999999999) : e", "common.glsl (8) : e"},
        {N, "error: bad", "common.glsl (8) : bad"}, // no parentheses: the number is read from the start
        {N, "0(2 : e", "lighting.glsl (13) : e"},   // ")" before "(": read to the end
        {N, "0(2) no colon", "0(2) no colon"},
        {N, "0(4) : beyond", "0(4) : beyond"},
        {N, "0(2) : A\n\n0(3) : B\n", "lighting.glsl (13) : A\nlighting.glsl (14) : B"},
        {A, "ERROR: 0:2: 'x' : undeclared identifier", "lighting.glsl(12) : 'x' : undeclared identifier"},
        {A, "ERROR: 0:0: early", "common.glsl(7) : early"},
        {A, "ERROR: 0:3 nothing", "ERROR: 0:3 nothing"},
        {A, "E::2: m", "lighting.glsl(12) : m"},
        {A, "2 compilation errors", "2 compilation errors"},
        {A, "ERROR: 0:3:", "lighting.glsl(13) : "},
        {A, "ERROR: 0:3:xy", "lighting.glsl(13) : y"},
        {A, "ERROR: 0:40: far", "ERROR: 0:40: far"},
        {A, "ERROR: 0:3: a\nERROR: 2 compilation errors.\n", "lighting.glsl(13) : a\nERROR: 2 compilation errors."},
        {A, "", ""},
        // Mesa's form under either vendor, the stored line read by that vendor's convention.
        {A, "0:3(10): error: `x' undeclared", "lighting.glsl:13(10): error: `x' undeclared"},
        {N, "0:2(1): preprocessor error: m", "lighting.glsl:13(1): preprocessor error: m"},
        {A, "0:0(1): e\n0:9(1): e", "common.glsl:7(1): e\n0:9(1): e"},
        {N, "0:3(2)x: e", "lighting.glsl (13) :3(2)x: e"}, // near misses take the vendor's form
        {N, "0:3(): e", "common.glsl (8) :3(): e"},
        {A, ":3(2): e", ":3(2): e"},
        {A, "0:3x2): e", "0:3x2): e"}};
    for (const auto& c : cases)
        EXPECT_EQ(Shader::mapInfoLog(std::get<1>(c), lines, files, std::get<0>(c)), std::get<2>(c)) << std::get<1>(c);
    // An index with no entry in either vector passes the line through.
    for (const std::string log : {"0(2) : error C0000: e", "ERROR: 0:2: e"})
        EXPECT_EQ(Shader::mapInfoLog(log, {1}, {"a.glsl", "b.glsl"}, log[0] == '0' ? N : A) +
                      Shader::mapInfoLog(log, {1, 2}, {"a.glsl"}, log[0] == '0' ? N : A),
                  log + log);
    EXPECT_EQ(Shader::mapInfoLog("0(1) : e", {2147483647}, {"a.glsl"}, N), "a.glsl (2147483648) : e");
    // NVIDIA only when the name says so in capitals.
    for (const char* name : {"NVIDIA Corporation", "Vendor: NVIDIA"})
        EXPECT_EQ(Program::vendorFromName(name), Program::NVIDIA) << name;
    for (const char* name : {"ATI Technologies Inc.", "nvidia", "Mesa", "NVIDI", ""})
        EXPECT_EQ(Program::vendorFromName(name), Program::ATI) << name;
    // No context here: the start value stays until initVendor() finds no vendor string.
    EXPECT_EQ(Program::getVendor(), Program::NVIDIA);
    EXPECT_EQ(TavrinTest::outcomeOf([] { Program::initVendor(); }).out, "INFO: ");
    EXPECT_EQ(Program::getVendor(), Program::ATI);
}

TEST(ShaderSource, AssemblesIncludesOnceWithEveryLinesOriginAndNamesTheFilesOfAFailure)
{
    TavrinTest::TemporaryDirectory directory;
    directory.write("main.glsl",
                    "// head\n#version 430\n#include \"lib/a.glsl\"\n#include \"shared.glsl\"// again\nvoid main() {}\n"
                    " * include \"notes.glsl\"\n#undef A"); // the last two: no directives of ours
    directory.write("lib/a.glsl", "#version 430\n  # include \"b.glsl\" // beside a\nfloat a;\n");
    directory.write("lib/b.glsl", "#include \"shared.glsl\"\nfloat b;\n"); // not beside b: through the loader
    directory.write("shared.glsl", "float s;\n");
    directory.write("missing.glsl", "float m;\n#include \"nowhere.glsl\"\n");
    directory.write("cycle.glsl", "#include \"lib/c.glsl\"\n");
    directory.write("lib/c.glsl", "#include \"../cycle.glsl\"\n");
    for (int i = 0; i < 33; ++i)
        directory.write("n" + std::to_string(i) + ".glsl", "#include \"n" + std::to_string(i + 1) + ".glsl\"\n");
    const Tavrin::DirectoryFileLoader loader({directory.path()});
    const ShaderSource source = ShaderSource::assemble("./main.glsl", &loader);
    EXPECT_EQ(
        source.text,
        "#version 430\n// head\nfloat s;\nfloat b;\nfloat a;\nvoid main() {}\n * include \"notes.glsl\"\n#undef A\n");
    EXPECT_EQ(source.lines, (std::vector<int>{2, 1, 1, 2, 3, 5, 6, 7}));
    EXPECT_EQ(source.linesFor(Program::NVIDIA), (std::vector<int>{1, 0, 0, 1, 2, 4, 5, 6}));
    EXPECT_EQ(source.linesFor(Program::ATI), source.lines);
    EXPECT_EQ(source.files, (std::vector<std::string>{"main.glsl", "main.glsl", "shared.glsl", "lib/b.glsl",
                                                      "lib/a.glsl", "main.glsl", "main.glsl", "main.glsl"}));
    EXPECT_EQ(source.filesRead, (std::vector<std::string>{"main.glsl", "lib/a.glsl", "lib/b.glsl", "shared.glsl"}));
    const std::pair<const char*, const char*> failures[] = {
        {"missing.glsl", "Include file 'nowhere.glsl' not found (asked for by missing.glsl line 2)"},
        {"cycle.glsl", "Include cycle: cycle.glsl -> lib/c.glsl -> cycle.glsl"},
        {"n0.glsl", "Includes nested deeper than 32 (asked for by n31.glsl line 1)"},
        {"none.glsl", "Cannot read file 'none.glsl'"}};
    for (const auto& failure : failures)
        EXPECT_EQ(TavrinTest::thrownBy([&] { ShaderSource::assemble(failure.first, &loader); }), failure.second);
    // Without a loader names are paths: beside the including file, else from the working directory.
    const std::string thrown = TavrinTest::thrownBy([&] { ShaderSource::assemble(directory.file("main.glsl")); });
    EXPECT_EQ(thrown,
              "Include file 'shared.glsl' not found (asked for by " + directory.file("lib/b.glsl") + " line 1)");
}
