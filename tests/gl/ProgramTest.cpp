// Programs on real GL: stage files, the driver's own logs on failure, uniforms read back.
#include "DeviceTestSupport.h"

#include <core/FileLoader.h>
#include <opengl/GLSLException.h>
#include <opengl/ProgramReloader.h>

#include <chrono>
#include <filesystem>
#include <set>

using namespace Tavrin::OpenGL;
using Stages = std::vector<std::pair<GLenum, std::string>>;
using DeviceTest::integer;
using TavrinTest::thrownBy;

namespace
{
const std::string header = "#version 430 compatibility\nout vec4 color;\n";
const std::string vertex = "#version 430 compatibility\nin vec4 position;\nvoid main() { gl_Position = position; }\n";
const std::string fragment = header + "void main() { color = vec4(1.0); }\n";
const std::string compute = "#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n";
const std::string broken = header + "void main() { color = undeclared; }\n";

Program* fromFragment(const std::string& source)
{
    return Program::loadFromSource("", "", "", "", source, "");
}

// What the driver itself says: the first failing stage's compile log, else the link log.
std::string driverLog(const Stages& stages)
{
    const GLuint program = glCreateProgram();
    GLint compiled = GL_TRUE;
    char log[4096] = {};
    for (auto stage = stages.begin(); compiled && stage != stages.end(); ++stage)
    {
        const GLuint shader = glCreateShader(stage->first);
        const char* text = stage->second.c_str();
        glShaderSource(shader, 1, &text, nullptr);
        glCompileShader(shader);
        glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
        glGetShaderInfoLog(shader, sizeof log, nullptr, log);
        glAttachShader(program, shader);
        glDeleteShader(shader);
    }
    if (compiled)
        glLinkProgram(program), glGetProgramInfoLog(program, sizeof log, nullptr, log);
    glDeleteProgram(program);
    return log;
}

// The log of the GLSLException that `load` throws; what it returns is deleted.
template <typename Load> std::string glslLog(Load load)
{
    try
    {
        delete load();
    }
    catch (const GLSLException& error)
    {
        return error.what();
    }
    return "<no GLSLException>";
}

} // namespace

TEST(Program, LoadsStageFilesAndFailuresCarryTheDriversLogReleaseEverythingAndKeepTheProgramInUse)
{
    TavrinTest::TemporaryDirectory directory;
    directory.write("shaders/blurVertex.glsl", vertex);
    directory.write("shaders/blurFragment.glsl", fragment);
    directory.write("shaders/cCompute.glsl", compute);
    const Tavrin::DirectoryFileLoader loader({directory.path()});
    for (const auto& files : {std::make_pair("shaders/blur", 2), {"shaders/c", 1}})
        for (const std::string& name : {std::string(files.first), directory.file(files.first)})
        {
            const std::unique_ptr<Program> program(Program::loadFromFile(name, &loader));
            GLint attached = 0, linked = 0;
            glGetProgramiv(program->getHandle(), GL_ATTACHED_SHADERS, &attached);
            glGetProgramiv(program->getHandle(), GL_LINK_STATUS, &linked);
            EXPECT_EQ(attached * 10 + linked, files.second * 10 + GL_TRUE) << name;
        }
    EXPECT_EQ(thrownBy([&] { delete Program::loadFromFile("none", &loader); }), "No shader file for program'none'");

    // Failures carry the driver's log, release everything and keep the program in use.
    std::unique_ptr<Program> used(fromFragment(fragment));
    used->use();
    const std::vector<std::string> before = TavrinTest::liveGLObjects();
    const std::string compileLog = driverLog({{GL_FRAGMENT_SHADER, broken}});
    const std::string unresolved = header + "vec4 elsewhere();\nvoid main() { color = elsewhere(); }\n";
    EXPECT_NE(compileLog, "");
    EXPECT_EQ(glslLog([] { return Program::loadFromSource(vertex, "", "", "", broken, ""); }), compileLog);
    EXPECT_EQ(glslLog([&] { return fromFragment(unresolved); }), driverLog({{GL_FRAGMENT_SHADER, unresolved}}));
    directory.write("mixedFragment.glsl", fragment);
    directory.write("mixedCompute.glsl", compute);
    EXPECT_EQ(glslLog([&] { return Program::loadFromFile(directory.file("mixed")); }),
              driverLog({{GL_FRAGMENT_SHADER, fragment}, {GL_COMPUTE_SHADER, compute}}));
    EXPECT_EQ(TavrinTest::liveGLObjects(), before);
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), GLint(used->getHandle()));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));

    // A program in use that was flagged for deletion goes with the failed build's release.
    const GLuint flagged = used->getHandle();
    glDeleteProgram(flagged);
    EXPECT_EQ(glslLog([] { return fromFragment(broken); }), compileLog);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM) + glIsProgram(flagged), 0);
    used.reset(); // deletes that name again: GL refuses
    TavrinTest::drainGLErrors();

    // Destruction unbinds whatever program is in use.
    used.reset(fromFragment(fragment));
    used->use();
    delete fromFragment(fragment);
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), 0);
    const std::string vendor = reinterpret_cast<const char*>(glGetString(GL_VENDOR));
    EXPECT_EQ(TavrinTest::outcomeOf([] { Program::initVendor(); }).out, "INFO: " + vendor);
    EXPECT_EQ(GLEW_NV_transform_feedback ? "" : thrownBy([&] { used->getVaryingLocation("position"); }),
              GLEW_NV_transform_feedback ? "" : "glGetVaryingLocationNV not available for ATI GPUs");
}

TEST(Program, UniformAndSubroutineSettersReadBackAndMismatchesRaiseTheCheckedError)
{
    const std::string source = header + R"(uniform int i1; uniform uint u1; uniform float f1; uniform vec2 f2;
uniform vec3 f3; uniform vec4 f4; uniform ivec2 iv2; uniform struct { int size; float v[4]; } k;
subroutine vec4 Colour();
subroutine uniform Colour colourA, colourB;
subroutine(Colour) vec4 red() { return vec4(1.0); }
subroutine(Colour) vec4 green() { return vec4(0.5); }
void main() { color = vec4(i1 + int(u1) + iv2.y, f1 + f2.y + f3.z + f4.w, k.size, k.v[3]) + colourA() + colourB(); })";
    const std::unique_ptr<Program> program(fromFragment(source));
    const auto values = [&](const char* name, const Program* of = nullptr) {
        float read[4] = {};
        glGetUniformfv((of ? of : program.get())->getHandle(), (of ? of : program.get())->getUniformLocation(name),
                       read);
        return std::vector<float>(read, read + 4); // GL converts integers
    };
    Program::useFixed();
    for (const float k : {1.0f, -2.0f}) // every setter by name, then by location
    {
        const auto set = [&](const char* name, auto... v) {
            k > 0 ? program->uniform(name, v...) : program->uniform(program->getUniformLocation(name), v...);
        };
        set("i1", int(7 * k)), set("u1", k > 0 ? 4000000000u : 3u), set("f1", 1.5f * k);
        set("f2", k, 2 * k), set("f3", k, 2 * k, 3 * k), set("f4", k, 2 * k, 3 * k, 4 * k);
        EXPECT_EQ(std::vector<float>({values("i1")[0], values("u1")[0], values("f1")[0], values("f2")[1]}),
                  (std::vector<float>{7 * k, k > 0 ? 4e9f : 3.0f, 1.5f * k, 2 * k}));
        EXPECT_EQ(values("f3"), (std::vector<float>{k, 2 * k, 3 * k, 0}));
        EXPECT_EQ(values("f4"), (std::vector<float>{k, 2 * k, 3 * k, 4 * k}));
    }
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM), 0);
    // A float vector goes into a { size; v[] } structure: the size always, elements when any.
    program->uniform("k.v[3]", 9.0f);
    program->uniform("k", Eigen::VectorXf());
    EXPECT_EQ(values("k.size")[0] + values("k.v[3]")[0], 9.0f);
    program->uniform("k", Eigen::VectorXf(Eigen::Vector4f(1.5f, -2.0f, 3.25f, 4.0f)));
    EXPECT_EQ(values("k.size")[0] * values("k.v[3]")[0], 16.0f);
    // An integer pair goes to the program in use, whichever program is asked.
    const std::unique_ptr<Program> inUse(fromFragment(source));
    inUse->use();
    program->uniform("iv2", Eigen::Vector2i(3, -4));
    EXPECT_EQ(values("iv2")[1] * 10 + values("iv2", inUse.get())[1], -4.0f);
    // A value of the wrong type: GL refuses, and the check names the setter's file.
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] { program->uniform("i1", 1.5f); }),
                              header = TavrinTest::outcomeOf([&] { program->uniform("f2", Eigen::Vector2i(1, 2)); });
    EXPECT_EQ(TavrinTest::withoutLineNumbers(outcome.out + header.out) + outcome.thrown + header.thrown,
              "WARNING: Program.cpp (line N) GLCheck: Invalid operationWARNING: Program.h (line N) GLCheck: Invalid "
              "operationGLCheck: Invalid operationGLCheck: Invalid operation");
    // Subroutines of a stage by index order; setting acts on the program in use, one index per location.
    const ShaderType stage = ShaderType::Fragment;
    std::vector<std::string> names = {"kept"};
    std::vector<int> compatible(10, -1);
    program->getSubroutineNames(stage, names);
    program->getCompatibleSubroutines(stage, 1, compatible);
    const unsigned int red = program->getSubroutineIndex(stage, "red"),
                       green = program->getSubroutineIndex(stage, "green");
    EXPECT_EQ(program->getActiveSubroutineCount(stage) * 10 + program->getActiveSubroutineUniformCount(stage), 22);
    EXPECT_EQ(names.at(1 + red) + names.at(1 + green) + names.at(0), "redgreenkept");
    EXPECT_EQ(std::set<int>(compatible.begin(), compatible.end()), (std::set<int>{int(red), int(green)}));
    EXPECT_EQ(program->getActiveSubroutineUniformName(stage, 1).substr(0, 6), "colour");
    program->setUniformSubroutines(stage, {green, red});
    GLuint chosen[2] = {9, 9};
    for (GLint location : {0, 1})
        glGetUniformSubroutineuiv(GL_FRAGMENT_SHADER, location, &chosen[location]);
    EXPECT_EQ(chosen[0] * 10 + chosen[1], green * 10 + red);
    Program::useFixed();
}

TEST(Program, ReloaderRebuildsForAnEditedIncludeCarriesUniformsAndKeepsTheOldProgramOnFailure)
{
    TavrinTest::TemporaryDirectory directory;
    const auto edit = [&](const std::string& name, const std::string& text) {
        const std::filesystem::path path = std::filesystem::u8path(directory.file(name));
        const auto seen = std::filesystem::last_write_time(path);
        directory.write(name, text);
        std::filesystem::last_write_time(path, seen + std::chrono::seconds(1)); // coarse clocks
    };
    directory.write("tintFragment.glsl",
                    header + "#include \"tint.glsl\"\nuniform float gain; uniform uint u; "
                             "uniform ivec2 i2; uniform struct { int size; float v[3]; } k;\n"
                             "void main() { color = tint() * gain + vec4(u, i2.y, k.v[2], k.size); }\n");
    directory.write("tint.glsl", "uniform vec3 shade;\nvec4 tint() { return vec4(shade, 1.0); }\n");
    const Tavrin::DirectoryFileLoader loader({directory.path()});
    ProgramReloader reloader("tint", &loader);
    const std::shared_ptr<Program> program = reloader.getProgram();
    program->use();
    program->uniform("gain", 2.5f), program->uniform("u", 7u), program->uniform("shade", 1.0f, 2.0f, 3.0f);
    program->uniform("i2", Eigen::Vector2i(4, -5)), program->uniform("k", Eigen::VectorXf(Eigen::Vector3f(1, 2, 6)));
    EXPECT_EQ(reloader.poll(), ProgramReloader::Result::Unchanged);
    const GLuint first = program->getHandle();
    edit("tint.glsl", "uniform vec3 shade;\nvec4 tint() { return vec4(shade.zyx, 1.0); }\n");
    EXPECT_EQ(reloader.poll(), ProgramReloader::Result::Reloaded);
    const GLuint handle = program->getHandle();
    std::string carried; // each uniform's four components, times ten
    for (const char* name : {"gain", "u", "shade", "i2", "k.size", "k.v[2]"})
    {
        float value[4] = {};
        glGetUniformfv(handle, program->getUniformLocation(name), value);
        for (const float component : value)
            carried += std::to_string(int(component * 10)) + " ";
    }
    EXPECT_EQ(carried, "25 0 0 0 70 0 0 0 10 20 30 0 40 -50 0 0 30 0 0 0 60 0 0 0 ");
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM) * 10 + glIsProgram(first), GLint(handle) * 10);
    edit("tint.glsl", "uniform vec3 shade;\nvec4 tint() { return shade; }\n");
    EXPECT_EQ(reloader.poll(), ProgramReloader::Result::Failed);
    // It names the included file: Mesa's log exactly, another driver's (NVIDIA form) by file and line.
    const bool isMesa =
        std::string(reinterpret_cast<const char*>(glGetString(GL_VERSION))).find("Mesa") != std::string::npos;
    EXPECT_EQ(isMesa ? reloader.getLog() : reloader.getLog().substr(0, 15),
              isMesa ? "tint.glsl:2(15): error: could not implicitly convert return value to vec4, in function `tint'"
                     : "tint.glsl (2) :");
    EXPECT_EQ(reloader.poll(), ProgramReloader::Result::Unchanged); // a failing version is built once
    EXPECT_EQ(integer(GL_CURRENT_PROGRAM) * 10 + (program->getHandle() == handle), GLint(handle) * 10 + 1);
}
