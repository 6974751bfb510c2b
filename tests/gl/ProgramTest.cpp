// Programs on real GL: stage files, the driver's own logs on failure with everything released,
// uniforms and subroutines read back.
#include "support/TestSupport.h"

#include <core/FileLoader.h>
#include <opengl/GLSLException.h>
#include <opengl/Program.h>
#include <opengl/Shader.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>

using namespace Tavrin::OpenGL;
using Stages = std::vector<std::pair<GLenum, std::string>>;
using TavrinTest::thrownBy;

namespace
{
const std::string header = "#version 430 compatibility\nout vec4 color;\n";
const std::string vertex = "#version 430 compatibility\nin vec4 position;\nvoid main() { gl_Position = position; }\n";
const std::string fragment = header + "void main() { color = vec4(1.0); }\n";
const std::string compute = "#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n";
const std::string broken = header + "void main() { color = undeclared; }\n";

GLint currentProgram()
{
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    return program;
}

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

// A host's derived shader: assembles its source from parts and maps the compile log to them.
struct AssembledShader : Shader
{
    AssembledShader(const std::vector<std::pair<std::string, std::string>>& parts) : Shader(ShaderType::Fragment)
    {
        std::string source, unused;
        for (const auto& part : parts)
            for (std::size_t at = 0, line = 1; at < part.second.size(); source += part.second[at++])
                if (part.second[at] == '\n')
                    lines.push_back(int(line++)), files.push_back(part.first);
        const char* text = source.c_str();
        glShaderSource(handle, 1, &text, nullptr);
        glCompileShader(handle);
        checkStatus(unused, lines, files);
    }
    std::vector<int> lines;
    std::vector<std::string> files;
};
} // namespace

TEST(Program, LoadsTheStageFilesFoundFromDiskOrThroughALoader)
{
    TavrinTest::TemporaryDirectory directory;
    directory.write("shaders/blurVertex.glsl", vertex);
    directory.write("shaders/blurFragment.glsl", fragment);
    directory.write("shaders/cCompute.glsl", compute);
    const Tavrin::DirectoryFileLoader loader({directory.path()});
    const std::pair<std::string, std::multiset<GLint>> cases[] = {
        {directory.file("shaders/blur"), {GL_VERTEX_SHADER, GL_FRAGMENT_SHADER}},
        {"shaders/blur", {GL_VERTEX_SHADER, GL_FRAGMENT_SHADER}},
        {"shaders/c", {GL_COMPUTE_SHADER}}};
    for (const auto& c : cases)
    {
        const std::unique_ptr<Program> program(Program::loadFromFile(c.first, &loader));
        GLuint shaders[8] = {};
        GLint count = 0, type = 0, linked = 0;
        std::multiset<GLint> attached;
        glGetAttachedShaders(program->getHandle(), 8, &count, shaders);
        for (; count > 0; attached.insert(type))
            glGetShaderiv(shaders[--count], GL_SHADER_TYPE, &type);
        glGetProgramiv(program->getHandle(), GL_LINK_STATUS, &linked);
        EXPECT_EQ(attached, c.second) << c.first;
        EXPECT_EQ(linked, GL_TRUE);
    }
    EXPECT_EQ(thrownBy([&] { delete Program::loadFromFile("none", &loader); }), "No shader file for program'none'");
}

TEST(Program, FailuresCarryTheDriversLogReleaseEverythingAndKeepTheProgramInUse)
{
    std::unique_ptr<Program> used(fromFragment(fragment));
    used->use();
    const std::vector<std::string> before = TavrinTest::liveGLObjects();
    const std::string compileLog = driverLog({{GL_FRAGMENT_SHADER, broken}});
    const std::string unresolved = header + "vec4 elsewhere();\nvoid main() { color = elsewhere(); }\n";
    EXPECT_NE(compileLog, "");
    EXPECT_EQ(glslLog([] { return Program::loadFromSource(vertex, "", "", "", broken, ""); }), compileLog);
    EXPECT_EQ(glslLog([&] { return fromFragment(unresolved); }), driverLog({{GL_FRAGMENT_SHADER, unresolved}}));
    TavrinTest::TemporaryDirectory directory;
    directory.write("mixedFragment.glsl", fragment);
    directory.write("mixedCompute.glsl", compute);
    EXPECT_EQ(glslLog([&] { return Program::loadFromFile(directory.file("mixed")); }),
              driverLog({{GL_FRAGMENT_SHADER, fragment}, {GL_COMPUTE_SHADER, compute}}));
    EXPECT_EQ(TavrinTest::liveGLObjects(), before);
    EXPECT_EQ(currentProgram(), GLint(used->getHandle()));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));

    // A program in use that was flagged for deletion goes with the failed build's release.
    const GLuint flagged = used->getHandle();
    glDeleteProgram(flagged);
    EXPECT_EQ(glslLog([] { return fromFragment(broken); }), compileLog);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    EXPECT_EQ(currentProgram() + glIsProgram(flagged), 0);
    used.reset(); // deletes that name again: GL refuses
    TavrinTest::drainGLErrors();

    // Destruction unbinds whatever program is in use.
    used.reset(fromFragment(fragment));
    used->use();
    delete fromFragment(fragment);
    EXPECT_EQ(currentProgram(), 0);
}

TEST(Program, DerivedShaderMapsTheDriversLogWithTheVendorFound)
{
    const std::string vendorName = reinterpret_cast<const char*>(glGetString(GL_VENDOR));
    EXPECT_EQ(TavrinTest::outcomeOf([] { Program::initVendor(); }).out, "INFO: " + vendorName);
    EXPECT_EQ(Program::getVendor(), Program::vendorFromName(vendorName));
    // Which file a line names depends on the driver's log form; that the log is mapped with the
    // shader's own entries and the vendor found does not.
    const std::string body = "void main()\n{\n    color = undeclared;\n}\n";
    const std::vector<std::string> before = TavrinTest::liveGLObjects();
    EXPECT_EQ(glslLog([&] {
                  return new AssembledShader({{"header.glsl", header}, {"body.glsl", body}});
              }),
              Shader::mapInfoLog(driverLog({{GL_FRAGMENT_SHADER, header + body}}), {1, 2, 1, 2, 3, 4},
                                 {"header.glsl", "header.glsl", "body.glsl", "body.glsl", "body.glsl", "body.glsl"},
                                 Program::getVendor()));
    EXPECT_EQ(TavrinTest::liveGLObjects(), before); // the base's destructor ran
    EXPECT_EQ(AssembledShader({{"whole.glsl", fragment}}).getSource(), fragment);

    std::unique_ptr<Program> program(Program::loadFromSource(vertex, "", "", "", fragment, ""));
    EXPECT_GE(program->getAttribLocation("position"), 0);
    EXPECT_EQ(program->getAttribLocation("missing") + program->getUniformLocation("missing"), -2);
    if (!GLEW_NV_transform_feedback)
        EXPECT_EQ(thrownBy([&] { program->getVaryingLocation("position"); }),
                  "glGetVaryingLocationNV not available for ATI GPUs");
}

TEST(Program, UniformSettersWriteWithoutBindingAndMismatchesRaiseTheCheckedError)
{
    const std::string source = header + R"(uniform int i1; uniform uint u1; uniform float f1; uniform vec2 f2;
uniform vec3 f3; uniform vec4 f4; uniform ivec2 iv2; uniform struct { int size; float v[4]; } k;
void main() { color = vec4(i1 + int(u1) + iv2.y, f1 + f2.y + f3.z + f4.w, k.size, k.v[3]); })";
    const std::unique_ptr<Program> program(fromFragment(source));
    const auto uniformOf = [](const Program& of, const char* name) {
        float read[4] = {};
        glGetUniformfv(of.getHandle(), of.getUniformLocation(name), read);
        return std::vector<float>(read, read + 4); // GL converts integers
    };
    const auto values = [&](const char* name) { return uniformOf(*program, name); };
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
    EXPECT_EQ(currentProgram(), 0);
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
    EXPECT_EQ(values("iv2")[1] * 10 + uniformOf(*inUse, "iv2")[1], -4.0f);
    // A value of the wrong type: GL refuses, and the check names the setter's file.
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] { program->uniform("i1", 1.5f); }),
                              header = TavrinTest::outcomeOf([&] { program->uniform("f2", Eigen::Vector2i(1, 2)); });
    EXPECT_EQ(TavrinTest::withoutLineNumbers(outcome.out + header.out) + outcome.thrown + header.thrown,
              "WARNING: Program.cpp (line N) GLCheck: Invalid operationWARNING: Program.h (line N) GLCheck: Invalid "
              "operationGLCheck: Invalid operationGLCheck: Invalid operation");
    Program::useFixed();
}

TEST(Program, ListsAndSetsTheSubroutinesOfAStage)
{
    const std::unique_ptr<Program> program(fromFragment(header + R"(subroutine vec4 Colour();
subroutine vec4 Tone(vec4 c);
subroutine uniform Colour colourA, colourB;
subroutine uniform Tone tone;
subroutine(Colour) vec4 red() { return vec4(1.0); }
subroutine(Colour) vec4 green() { return vec4(0.5); }
subroutine(Tone) vec4 keep(vec4 c) { return c; }
subroutine(Tone) vec4 halve(vec4 c) { return c * 0.5; }
void main() { color = tone(colourA() + colourB()); })"));
    const ShaderType stage = ShaderType::Fragment;
    std::vector<std::string> names = {"kept"};
    program->getSubroutineNames(stage, names); // appended in index order
    EXPECT_EQ(program->getActiveSubroutineCount(stage) * 10 + program->getActiveSubroutineUniformCount(stage), 43);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()),
              (std::set<std::string>{"kept", "red", "green", "keep", "halve"}));
    EXPECT_EQ(program->getSubroutineIndex(stage, names[4]), 3u);
    EXPECT_EQ(program->getSubroutineUniformLocation(stage, "nosuch"), -1);
    // Compatible subroutines by uniform; setting acts on the program in use, one index per location.
    std::vector<int> compatible(10, -1);
    std::vector<unsigned int> selection(3);
    for (int k = 0; k < 3; ++k)
    {
        program->getCompatibleSubroutines(stage, k, compatible);
        const std::string name = program->getActiveSubroutineUniformName(stage, k);
        std::set<std::string> found;
        for (const int index : compatible)
            found.insert(names.at(std::size_t(index + 1)));
        EXPECT_EQ(found,
                  (name == "tone" ? std::set<std::string>{"keep", "halve"} : std::set<std::string>{"red", "green"}));
        selection.at(std::size_t(program->getSubroutineUniformLocation(stage, name))) = unsigned(compatible[k % 2]);
    }
    program->use();
    program->setUniformSubroutines(stage, selection);
    for (GLuint location = 0, value = 0; location < 3; ++location)
    {
        glGetUniformSubroutineuiv(GL_FRAGMENT_SHADER, GLint(location), &value);
        EXPECT_EQ(value, selection[location]);
    }
    Program::useFixed();
}
