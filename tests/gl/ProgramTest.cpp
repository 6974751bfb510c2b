// Programs on real GL: stage files, the driver's own logs on failure with everything released,
// uniforms and subroutines read back.
#include "support/TestSupport.h"

#include <core/FileLoader.h>
#include <opengl/GLSLException.h>
#include <opengl/Program.h>
#include <opengl/Shader.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>

using namespace Tavrin::OpenGL;
using Stages = std::vector<std::pair<GLenum, std::string>>;

namespace
{
const std::string header = "#version 430 compatibility\nout vec4 color;\n";
const std::string vertex = "#version 430 compatibility\nin vec4 position;\nvoid main() { gl_Position = position; }\n";
const std::string fragment = header + "void main() { color = vec4(1.0); }\n";
const std::string compute = "#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n";
const std::string broken = header + "void main() { color = undeclared; }\n";
const std::string unresolved = header + "vec4 elsewhere();\nvoid main() { color = elsewhere(); }\n"; // links not

GLint currentProgram()
{
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    return program;
}

// What the driver itself says, without the library: the first failing stage's compile log, else
// the link log.
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

TEST(Program, LoadsEveryStageFileFoundFromDiskOrThroughALoader)
{
    const std::tuple<const char*, GLenum, std::string> stages[] = {{"Vertex.glsl", GL_VERTEX_SHADER, vertex},
                                                                   {"Fragment.glsl", GL_FRAGMENT_SHADER, fragment},
                                                                   {"Compute.glsl", GL_COMPUTE_SHADER, compute}};
    for (const unsigned int subset : {3u, 4u, 2u}) // bits of `stages`
    {
        TavrinTest::TemporaryDirectory directory;
        std::multiset<GLenum> expected, attached;
        for (unsigned int i = 0; i < 3; ++i)
        {
            if (!(subset >> i & 1))
                continue;
            directory.write("shaders/blur" + std::string(std::get<0>(stages[i])), std::get<2>(stages[i]));
            expected.insert(std::get<1>(stages[i]));
        }
        const Tavrin::DirectoryFileLoader loader({directory.path()});
        for (Program* program :
             {Program::loadFromFile(directory.file("shaders/blur")), Program::loadFromFile("shaders/blur", &loader)})
        {
            GLuint shaders[8] = {};
            GLint count = 0, type = 0, linked = 0;
            glGetAttachedShaders(program->getHandle(), 8, &count, shaders);
            for (attached.clear(); count > 0; attached.insert(GLenum(type)))
                glGetShaderiv(shaders[--count], GL_SHADER_TYPE, &type);
            glGetProgramiv(program->getHandle(), GL_LINK_STATUS, &linked);
            EXPECT_EQ(attached, expected);
            EXPECT_EQ(linked, GL_TRUE);
            delete program;
        }
        for (const Tavrin::FileLoader* with : std::initializer_list<const Tavrin::FileLoader*>{nullptr, &loader})
            EXPECT_EQ(TavrinTest::thrownBy([&] { delete Program::loadFromFile(directory.file("none"), with); }),
                      "No shader file for program'" + directory.file("none") + "'");
    }
}

TEST(Program, FailuresCarryTheDriversLogReleaseEverythingAndKeepTheProgramInUse)
{
    std::unique_ptr<Program> used(Program::loadFromSource("", "", "", "", fragment, ""));
    used->use();
    const std::vector<std::string> before = TavrinTest::liveGLObjects();
    const std::string compileLog = driverLog({{GL_FRAGMENT_SHADER, broken}});
    EXPECT_NE(compileLog, "");
    EXPECT_EQ(glslLog([] { return Program::loadFromSource(vertex, "", "", "", broken, ""); }), compileLog);
    EXPECT_EQ(glslLog([] { return Program::loadFromSource("", "", "", "", unresolved, ""); }),
              driverLog({{GL_FRAGMENT_SHADER, unresolved}}));
    TavrinTest::TemporaryDirectory directory;
    for (const auto& file : std::map<std::string, std::string>{{"badVertex.glsl", vertex},
                                                               {"badFragment.glsl", broken},
                                                               {"mixedFragment.glsl", fragment},
                                                               {"mixedCompute.glsl", compute}})
        directory.write(file.first, file.second);
    EXPECT_EQ(glslLog([&] { return Program::loadFromFile(directory.file("bad")); }), compileLog);
    EXPECT_EQ(glslLog([&] { return Program::loadFromFile(directory.file("mixed")); }),
              driverLog({{GL_FRAGMENT_SHADER, fragment}, {GL_COMPUTE_SHADER, compute}}));
    EXPECT_EQ(TavrinTest::liveGLObjects(), before);
    EXPECT_EQ(currentProgram(), GLint(used->getHandle()));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));

    // A program in use that was flagged for deletion goes with the failed build's release.
    const GLuint flagged = used->getHandle();
    glDeleteProgram(flagged);
    EXPECT_EQ(glslLog([] { return Program::loadFromSource("", "", "", "", broken, ""); }), compileLog);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    EXPECT_EQ(currentProgram() + glIsProgram(flagged), 0);
    used.reset(); // deletes that name again: GL refuses
    TavrinTest::drainGLErrors();

    // Destruction unbinds whatever program is in use.
    used.reset(Program::loadFromSource("", "", "", "", fragment, ""));
    used->use();
    delete Program::loadFromSource("", "", "", "", fragment, "");
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
    {
        EXPECT_EQ(TavrinTest::thrownBy([&] { program->getVaryingLocation("position"); }),
                  "glGetVaryingLocationNV not available for ATI GPUs");
    }
}

TEST(ProgramUniforms, SettersWriteWithoutBindingAndMismatchesRaiseTheCheckedError)
{
    const std::string source = header + R"(uniform int i1; uniform uint u1; uniform float f1; uniform vec2 f2;
uniform vec3 f3; uniform vec4 f4; uniform ivec2 iv2; uniform struct { int size; float v[4]; } kernel;
uniform struct { int size; int v[2]; } ints; uniform struct { float size; float v[2]; } floatSize;
void main() { color = vec4(i1 + int(u1) + iv2.x + iv2.y + ints.size + ints.v[1], f1 + f2.y + f3.z + f4.w +
                           floatSize.size + floatSize.v[1], kernel.size, kernel.v[0] + kernel.v[3]); })";
    const std::unique_ptr<Program> program(Program::loadFromSource("", "", "", "", source, "")),
        inUse(Program::loadFromSource("", "", "", "", source, ""));
    const auto values = [](const std::unique_ptr<Program>& from, const char* name, int count) {
        float read[4] = {};
        glGetUniformfv(from->getHandle(), from->getUniformLocation(name), read);
        return std::vector<float>(read, read + count); // GL converts integers
    };
    Program::useFixed();
    for (const bool byName : {true, false}) // every setter by name, then by location, other values
    {
        const float k = byName ? 1.0f : -2.0f;
        const auto set = [&](const char* name, auto... v) {
            byName ? program->uniform(name, v...) : program->uniform(program->getUniformLocation(name), v...);
        };
        set("i1", int(7 * k)), set("u1", byName ? 4000000000u : 3u), set("f1", 1.5f * k);
        set("f2", k, 2 * k), set("f3", k, 2 * k, 3 * k), set("f4", k, 2 * k, 3 * k, 4 * k);
        std::vector<float> all;
        for (const auto& uniform : {std::make_pair("i1", 1), {"u1", 1}, {"f1", 1}, {"f2", 2}, {"f3", 3}, {"f4", 4}})
            for (const float value : values(program, uniform.first, uniform.second))
                all.push_back(value);
        EXPECT_EQ(all, (std::vector<float>{7 * k, byName ? 4e9f : 3.0f, 1.5f * k, k, 2 * k, k, 2 * k, 3 * k, k, 2 * k,
                                           3 * k, 4 * k}));
    }
    EXPECT_EQ(currentProgram(), 0);
    // A float vector goes into a { size; v[] } structure: the size always, elements when any.
    program->uniform("kernel.v[3]", 9.0f);
    program->uniform("kernel", Eigen::VectorXf());
    EXPECT_EQ(values(program, "kernel.size", 1)[0] + values(program, "kernel.v[3]", 1)[0], 9.0f);
    program->uniform("kernel", Eigen::VectorXf(Eigen::Vector3f(1.5f, -2.0f, 3.25f)));
    EXPECT_EQ(values(program, "kernel.size", 1)[0] * values(program, "kernel.v[2]", 1)[0], 9.75f);
    EXPECT_EQ(TavrinTest::outcomeOf([&] { program->uniform("missing", Eigen::VectorXf::Ones(2).eval()); }).out, "");
    // An integer pair goes to the program in use, whichever program is asked.
    inUse->use();
    program->uniform("iv2", Eigen::Vector2i(3, -4));
    EXPECT_EQ(values(inUse, "iv2", 2), (std::vector<float>{3, -4}));
    EXPECT_EQ(values(program, "iv2", 2), (std::vector<float>{0, 0}));

    // A value of the wrong type: GL refuses, and the check names the setter's file.
    const std::pair<void (*)(const Program&), const char*> mismatches[] = {
        {[](const Program& p) { p.uniform("i1", 1.5f); }, "Program.cpp"},
        {[](const Program& p) { p.uniform(p.getUniformLocation("f1"), 3); }, "Program.cpp"},
        {[](const Program& p) { p.uniform("floatSize", Eigen::VectorXf::Ones(2).eval()); }, "Program.cpp"},
        {[](const Program& p) { p.uniform("ints", Eigen::VectorXf::Ones(2).eval()); }, "Program.h"},
        {[](const Program& p) { p.uniform("f2", Eigen::Vector2i(1, 2)); }, "Program.h"}};
    for (const auto& mismatch : mismatches)
    {
        const TavrinTest::Outcome outcome = TavrinTest::outcomeOf([&] { mismatch.first(*inUse); });
        EXPECT_EQ(TavrinTest::withoutLineNumbers(outcome.out) + "|" + outcome.thrown,
                  "WARNING: " + std::string(mismatch.second) +
                      " (line N) GLCheck: Invalid operation|GLCheck: Invalid operation");
    }
    Program::useFixed();
}

TEST(ProgramSubroutines, ListsAndSetsTheSubroutinesOfAStage)
{
    const std::unique_ptr<Program> program(Program::loadFromSource("", "", "", "", header + R"(
subroutine vec4 Colour();
subroutine vec4 Tone(vec4 c);
subroutine uniform Colour colourA, colourB;
subroutine uniform Tone tone;
subroutine(Colour) vec4 red() { return vec4(1.0, 0.0, 0.0, 1.0); }
subroutine(Colour) vec4 green() { return vec4(0.0, 1.0, 0.0, 1.0); }
subroutine(Tone) vec4 keep(vec4 c) { return c; }
subroutine(Tone) vec4 halve(vec4 c) { return c * 0.5; }
void main() { color = tone(colourA() + colourB()); })",
                                                                   ""));
    const ShaderType stage = ShaderType::Fragment;
    std::vector<std::string> names = {"kept"}, none = {"a"};
    program->getSubroutineNames(stage, names); // appended in index order
    EXPECT_EQ(program->getActiveSubroutineCount(stage) * 10 + program->getActiveSubroutineUniformCount(stage), 43);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()),
              (std::set<std::string>{"kept", "red", "green", "keep", "halve"}));
    std::map<std::string, int> index;
    for (int k = 1; k < int(names.size()); ++k)
        EXPECT_EQ(index[names[std::size_t(k)]] = int(program->getSubroutineIndex(stage, names[std::size_t(k)])), k - 1);
    EXPECT_EQ(program->getSubroutineIndex(stage, "nosuch"), GL_INVALID_INDEX);
    EXPECT_EQ(program->getSubroutineUniformLocation(stage, "nosuch"), -1);
    // Compatible subroutines per subroutine uniform (the vector is resized to fit); setting acts
    // on the program in use, one index per subroutine uniform location.
    std::vector<int> compatible(10, -1);
    std::vector<unsigned int> selection(3);
    for (int k = 0; k < 3; ++k)
    {
        const std::string name = program->getActiveSubroutineUniformName(stage, k);
        const bool tone = name == "tone";
        EXPECT_EQ(program->getCompatibleSubroutineCount(stage, k), 2);
        program->getCompatibleSubroutines(stage, k, compatible);
        EXPECT_EQ(std::set<int>(compatible.begin(), compatible.end()),
                  (std::set<int>{index[tone ? "keep" : "red"], index[tone ? "halve" : "green"]}))
            << name;
        selection.at(std::size_t(program->getSubroutineUniformLocation(stage, name))) = unsigned(compatible[k % 2]);
    }
    program->use();
    program->setUniformSubroutines(stage, selection);
    for (GLuint location = 0, selected = 0; location < 3; ++location)
    {
        glGetUniformSubroutineuiv(GL_FRAGMENT_SHADER, GLint(location), &selected);
        EXPECT_EQ(selected, selection[location]) << location;
    }
    Program::useFixed();
    // A stage without subroutines: names untouched, no compatible list (GL flags the index).
    program->getSubroutineNames(ShaderType::Vertex, none);
    program->getCompatibleSubroutines(ShaderType::Vertex, 0, compatible);
    EXPECT_EQ(none.size() + compatible.size(), 1u);
    TavrinTest::drainGLErrors();
}
