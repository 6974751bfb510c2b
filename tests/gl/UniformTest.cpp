// Uniform setters and subroutines read back from real GL.
#include "support/TestSupport.h"

#include <opengl/Program.h>
#include <opengl/Shader.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using Tavrin::OpenGL::Program;
using Tavrin::OpenGL::ShaderType;
using TavrinTest::Outcome;

namespace
{
const char* const uniformSource = R"(#version 400 compatibility
uniform int i1;
uniform uint u1;
uniform float f1;
uniform vec2 f2;
uniform vec3 f3;
uniform vec4 f4;
uniform ivec2 iv2;
struct FloatArray { int size; float v[4]; };
uniform FloatArray kernel;
struct IntArray { int size; int v[2]; };
uniform IntArray ints;
struct FloatSize { float size; float v[2]; };
uniform FloatSize floatSize;
out vec4 color;
void main()
{
    float sum = 0.0;
    for (int k = 0; k < kernel.size; ++k)
        sum += kernel.v[k];
    color = vec4(float(i1) + float(u1) + f1 + f2.x + f2.y + f3.x + f3.y + f3.z + dot(f4, vec4(1.0)) +
                 float(iv2.x + iv2.y + ints.size + ints.v[0] + ints.v[1]) + floatSize.size + floatSize.v[0] +
                 floatSize.v[1] + sum);
}
)";

const char* const subroutineSource = R"(#version 400 compatibility
subroutine vec4 Colour(vec4 c);
subroutine vec4 Tone(vec4 c);
subroutine uniform Colour colourA;
subroutine uniform Colour colourB;
subroutine uniform Tone tone;
subroutine(Colour) vec4 red(vec4 c) { return c + vec4(1.0, 0.0, 0.0, 1.0); }
subroutine(Colour) vec4 green(vec4 c) { return c + vec4(0.0, 1.0, 0.0, 1.0); }
subroutine(Tone) vec4 keep(vec4 c) { return c; }
subroutine(Colour, Tone) vec4 blue(vec4 c) { return c + vec4(0.0, 0.0, 1.0, 1.0); }
out vec4 color;
void main() { color = tone(colourA(vec4(0.0)) + colourB(vec4(0.0))); }
)";

GLint currentProgram()
{
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    return program;
}

std::vector<double> readBack(const Program& program, int location, char kind, std::size_t count)
{
    std::vector<double> values;
    if (kind == 'i')
    {
        GLint read[4] = {};
        glGetUniformiv(program.getHandle(), location, read);
        values.assign(read, read + count);
    }
    else if (kind == 'u')
    {
        GLuint read[4] = {};
        glGetUniformuiv(program.getHandle(), location, read);
        values.assign(read, read + count);
    }
    else
    {
        GLfloat read[4] = {};
        glGetUniformfv(program.getHandle(), location, read);
        values.assign(read, read + count);
    }
    return values;
}

// One setter overload chosen by the uniform's kind and component count; `target` is a name or
// a location.
template <typename Target> void set(const Program& program, Target target, char kind, const std::vector<double>& v)
{
    const auto f = [&](std::size_t i) { return static_cast<float>(v[i]); };
    if (kind == 'i')
        program.uniform(target, static_cast<int>(v[0]));
    else if (kind == 'u')
        program.uniform(target, static_cast<unsigned int>(v[0]));
    else if (v.size() == 1)
        program.uniform(target, f(0));
    else if (v.size() == 2)
        program.uniform(target, f(0), f(1));
    else if (v.size() == 3)
        program.uniform(target, f(0), f(1), f(2));
    else
        program.uniform(target, f(0), f(1), f(2), f(3));
}

struct SetterCase
{
    const char* name;
    const char* uniform;
    char kind;
    std::vector<double> byName, byLocation;
};

class ProgramUniformSetters : public ::testing::TestWithParam<SetterCase>
{
};

// True when `out` is exactly one checked-error warning from `file` at some line.
bool isWarningFrom(const std::string& out, const std::string& file, const std::string& message)
{
    const std::string head = "WARNING: " + file + " (line ";
    const std::string tail = ") " + message;
    if (out.size() <= head.size() + tail.size() || out.compare(0, head.size(), head) != 0 ||
        out.compare(out.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    const std::string line = out.substr(head.size(), out.size() - head.size() - tail.size());
    return line.find_first_not_of("0123456789") == std::string::npos;
}

std::unique_ptr<Program> uniformProgram()
{
    return std::unique_ptr<Program>(Program::loadFromSource("", "", "", "", uniformSource, ""));
}
} // namespace

TEST_P(ProgramUniformSetters, WriteWithoutBindingByNameAndByLocation)
{
    const SetterCase& c = GetParam();
    const auto program = uniformProgram();
    const int location = program->getUniformLocation(c.uniform);
    ASSERT_GE(location, 0);
    Program::useFixed();

    const Outcome byName = TavrinTest::outcomeOf([&] { set(*program, std::string(c.uniform), c.kind, c.byName); });
    EXPECT_EQ(byName.out + byName.thrown, "");
    EXPECT_EQ(readBack(*program, location, c.kind, c.byName.size()), c.byName);

    const Outcome byLocation = TavrinTest::outcomeOf([&] { set(*program, location, c.kind, c.byLocation); });
    EXPECT_EQ(byLocation.out + byLocation.thrown, "");
    EXPECT_EQ(readBack(*program, location, c.kind, c.byLocation.size()), c.byLocation);

    EXPECT_EQ(currentProgram(), 0); // direct state access: nothing was bound
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

INSTANTIATE_TEST_SUITE_P(Families, ProgramUniformSetters,
                         ::testing::Values(SetterCase{"Int", "i1", 'i', {-7}, {42}},
                                           SetterCase{"UnsignedInt", "u1", 'u', {4000000000.0}, {3}},
                                           SetterCase{"Float", "f1", 'f', {1.5}, {-2.25}},
                                           SetterCase{"Float2", "f2", 'f', {1, 2}, {-3, 0.5}},
                                           SetterCase{"Float3", "f3", 'f', {1, 2, 3}, {4, 5, 6}},
                                           SetterCase{"Float4", "f4", 'f', {1, 2, 3, 4}, {-1, -2, -3, -4}}),
                         [](const ::testing::TestParamInfo<SetterCase>& info) { return std::string(info.param.name); });

TEST(ProgramUniforms, FloatVectorStructureWritesSizeAlwaysAndElementsWhenThereAreAny)
{
    const auto program = uniformProgram();
    const auto element = [&](int k) { return program->getUniformLocation("kernel.v[" + std::to_string(k) + "]"); };
    for (int k = 0; k < 4; ++k)
        program->uniform(element(k), 9.0f);
    program->uniform("kernel.size", 5);

    program->uniform("kernel", Eigen::VectorXf());
    EXPECT_EQ(readBack(*program, program->getUniformLocation("kernel.size"), 'i', 1), std::vector<double>{0});
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(readBack(*program, element(k), 'f', 1), std::vector<double>{9}) << k;

    Eigen::VectorXf values(3);
    values << 1.5f, -2.0f, 3.25f;
    program->uniform("kernel", values);
    EXPECT_EQ(readBack(*program, program->getUniformLocation("kernel.size"), 'i', 1), std::vector<double>{3});
    const std::vector<double> expected = {1.5, -2.0, 3.25, 9};
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(readBack(*program, element(k), 'f', 1), std::vector<double>{expected[k]}) << k;

    // Unknown names are ignored without a word.
    const Outcome missing = TavrinTest::outcomeOf([&] {
        program->uniform("missing", 1.0f);
        program->uniform("missing", values);
    });
    EXPECT_EQ(missing.out + missing.thrown, "");
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST(ProgramUniforms, IntegerPairGoesToTheProgramInUse)
{
    const auto program = uniformProgram();
    const auto inUse = uniformProgram(); // same source, same locations
    ASSERT_EQ(program->getUniformLocation("iv2"), inUse->getUniformLocation("iv2"));
    const int location = program->getUniformLocation("iv2");

    inUse->use();
    program->uniform("iv2", Eigen::Vector2i(3, -4));
    EXPECT_EQ(readBack(*inUse, location, 'i', 2), (std::vector<double>{3, -4}));
    EXPECT_EQ(readBack(*program, location, 'i', 2), (std::vector<double>{0, 0}));

    program->use();
    program->uniform("iv2", Eigen::Vector2i(5, 6));
    EXPECT_EQ(readBack(*program, location, 'i', 2), (std::vector<double>{5, 6}));
    Program::useFixed();
}

struct MismatchCase
{
    const char* name;
    void (*write)(const Program&);
    const char* file;
};

class ProgramUniformMismatch : public ::testing::TestWithParam<MismatchCase>
{
};

TEST_P(ProgramUniformMismatch, RaisesTheCheckedErrorWhereTheSetterSits)
{
    const auto program = uniformProgram();
    TavrinTest::drainGLErrors();
    const Outcome outcome = TavrinTest::outcomeOf([&] { GetParam().write(*program); });
    Program::useFixed();
    EXPECT_EQ(outcome.thrown, "GLCheck: Invalid operation");
    EXPECT_TRUE(isWarningFrom(outcome.out, GetParam().file, "GLCheck: Invalid operation")) << outcome.out;
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

INSTANTIATE_TEST_SUITE_P(
    Setters, ProgramUniformMismatch,
    ::testing::Values(
        MismatchCase{"FloatIntoIntByName", [](const Program& p) { p.uniform("i1", 1.5f); }, "Program.cpp"},
        MismatchCase{"IntIntoFloatByLocation", [](const Program& p) { p.uniform(p.getUniformLocation("f1"), 3); },
                     "Program.cpp"},
        MismatchCase{"VectorSizeIntoFloat",
                     [](const Program& p) { p.uniform("floatSize", Eigen::VectorXf::Ones(2).eval()); }, "Program.cpp"},
        MismatchCase{"VectorElementsIntoInts",
                     [](const Program& p) { p.uniform("ints", Eigen::VectorXf::Ones(2).eval()); }, "Program.h"},
        MismatchCase{"IntegerPairIntoFloatPair",
                     [](const Program& p) {
                         p.use();
                         p.uniform("f2", Eigen::Vector2i(1, 2));
                     },
                     "Program.h"}),
    [](const ::testing::TestParamInfo<MismatchCase>& info) { return std::string(info.param.name); });

TEST(ProgramSubroutines, ListsAndSetsTheSubroutinesOfAStage)
{
    std::unique_ptr<Program> program(Program::loadFromSource("", "", "", "", subroutineSource, ""));
    const ShaderType stage = ShaderType::Fragment;
    EXPECT_EQ(program->getActiveSubroutineCount(stage), 4);
    ASSERT_EQ(program->getActiveSubroutineUniformCount(stage), 3);

    std::map<std::string, int> uniformIndex;
    for (int k = 0; k < 3; ++k)
        uniformIndex[program->getActiveSubroutineUniformName(stage, k)] = k;
    EXPECT_EQ(uniformIndex.size(), 3u);
    EXPECT_EQ(uniformIndex.count("colourA") + uniformIndex.count("colourB") + uniformIndex.count("tone"), 3u);

    // Names are appended in index order after what the vector held.
    std::vector<std::string> names = {"kept"};
    program->getSubroutineNames(stage, names);
    ASSERT_EQ(names.size(), 5u);
    EXPECT_EQ(names[0], "kept");
    std::map<std::string, unsigned int> index;
    for (unsigned int k = 0; k < 4; ++k)
    {
        EXPECT_EQ(program->getSubroutineIndex(stage, names[k + 1]), k) << names[k + 1];
        index[names[k + 1]] = k;
    }
    EXPECT_EQ(index.count("red") + index.count("green") + index.count("blue") + index.count("keep"), 4u);
    EXPECT_EQ(program->getSubroutineIndex(stage, "nosuch"), GL_INVALID_INDEX);

    // Compatible subroutines per subroutine uniform; the vector is resized to fit.
    EXPECT_EQ(program->getCompatibleSubroutineCount(stage, uniformIndex["colourA"]), 3);
    std::vector<int> compatible(10, -1);
    program->getCompatibleSubroutines(stage, uniformIndex["colourA"], compatible);
    std::sort(compatible.begin(), compatible.end());
    std::vector<int> expected = {int(index["red"]), int(index["green"]), int(index["blue"])};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(compatible, expected);
    program->getCompatibleSubroutines(stage, uniformIndex["tone"], compatible);
    std::sort(compatible.begin(), compatible.end());
    expected = {int(index["keep"]), int(index["blue"])};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(compatible, expected);

    // A stage without subroutines: names untouched; no compatible list (GL flags the index, the
    // count query is unchecked).
    std::vector<std::string> none = {"a"};
    program->getSubroutineNames(ShaderType::Vertex, none);
    EXPECT_EQ(none, std::vector<std::string>{"a"});
    program->getCompatibleSubroutines(ShaderType::Vertex, 0, compatible);
    EXPECT_TRUE(compatible.empty());
    TavrinTest::drainGLErrors();

    // Setting acts on the program in use: one index per subroutine uniform location.
    const int locationA = program->getSubroutineUniformLocation(stage, "colourA");
    const int locationB = program->getSubroutineUniformLocation(stage, "colourB");
    const int locationTone = program->getSubroutineUniformLocation(stage, "tone");
    EXPECT_EQ(program->getSubroutineUniformLocation(stage, "nosuch"), -1);
    std::vector<unsigned int> selection(3);
    selection.at(locationA) = index["green"];
    selection.at(locationB) = index["blue"];
    selection.at(locationTone) = index["keep"];
    program->use();
    program->setUniformSubroutines(stage, selection);
    for (int location : {locationA, locationB, locationTone})
    {
        GLuint selected = 0;
        glGetUniformSubroutineuiv(GL_FRAGMENT_SHADER, location, &selected);
        EXPECT_EQ(selected, selection[location]) << location;
    }

    const Outcome tooFew = TavrinTest::outcomeOf([&] { program->setUniformSubroutines(stage, {index["red"]}); });
    EXPECT_EQ(tooFew.thrown, "GLCheck: Invalid value");
    EXPECT_TRUE(isWarningFrom(tooFew.out, "Program.cpp", "GLCheck: Invalid value")) << tooFew.out;
    Program::useFixed();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}
