// Programs from stage files and sources on real GL: compile and link failures, stage subsets,
// file loaders, nothing leaked on failure, vendor detection and the NV-only query.
#include "support/TestSupport.h"

#include <core/FileLoader.h>
#include <opengl/GLSLException.h>
#include <opengl/Program.h>
#include <opengl/Shader.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using Tavrin::FileLoader;
using Tavrin::OpenGL::GLSLException;
using Tavrin::OpenGL::Program;
using Tavrin::OpenGL::Shader;
using Tavrin::OpenGL::ShaderType;
using TavrinTest::StreamCapture;
using TavrinTest::TemporaryDirectory;

namespace
{
const char* const vertexSource = "#version 330 compatibility\n"
                                 "in vec4 position;\n"
                                 "void main() { gl_Position = position; }\n";
const char* const fragmentSource = "#version 330 compatibility\n"
                                   "out vec4 color;\n"
                                   "void main() { color = vec4(1.0); }\n";
const char* const computeSource = "#version 430\n"
                                  "layout(local_size_x = 1) in;\n"
                                  "void main() {}\n";
const char* const brokenSource = "#version 330 compatibility\n"
                                 "out vec4 color;\n"
                                 "void main() { color = undeclared; }\n";
// Compiles, but the called function is defined nowhere: the link fails.
const char* const unresolvedSource = "#version 330 compatibility\n"
                                     "out vec4 color;\n"
                                     "vec4 elsewhere();\n"
                                     "void main() { color = elsewhere(); }\n";

// What the driver itself says, without the library: the first failing stage's compile log,
// else the link log.
std::string driverLog(const std::vector<std::pair<GLenum, std::string>>& stages)
{
    const GLuint program = glCreateProgram();
    std::string log;
    GLint status = GL_TRUE, length = 0;
    for (const auto& stage : stages)
    {
        const GLuint shader = glCreateShader(stage.first);
        const char* text = stage.second.c_str();
        glShaderSource(shader, 1, &text, nullptr);
        glCompileShader(shader);
        glGetShaderiv(shader, GL_COMPILE_STATUS, &status);
        glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
        log.assign(static_cast<std::size_t>(std::max(length, 1)), '\0');
        glGetShaderInfoLog(shader, length, nullptr, &log[0]);
        glAttachShader(program, shader);
        glDeleteShader(shader);
        if (status != GL_TRUE)
            break;
    }
    if (status == GL_TRUE)
    {
        glLinkProgram(program);
        glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
        log.assign(static_cast<std::size_t>(std::max(length, 1)), '\0');
        glGetProgramInfoLog(program, length, nullptr, &log[0]);
    }
    glDeleteProgram(program);
    return log.c_str();
}

std::multiset<GLenum> attachedStages(const Program& program)
{
    GLuint shaders[8] = {};
    GLsizei count = 0;
    glGetAttachedShaders(program.getHandle(), 8, &count, shaders);
    std::multiset<GLenum> stages;
    for (GLsizei i = 0; i < count; ++i)
    {
        GLint type = 0;
        glGetShaderiv(shaders[i], GL_SHADER_TYPE, &type);
        stages.insert(static_cast<GLenum>(type));
    }
    return stages;
}

GLint currentProgram()
{
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    return program;
}

// A host's loader that serves files from memory and claims some it cannot read.
class MemoryLoader : public FileLoader
{
public:
    std::map<std::string, std::string> files;
    std::set<std::string> unreadable;

    bool fileExists(const std::string& fileName) const override
    {
        return files.count(fileName) > 0 || unreadable.count(fileName) > 0;
    }
    std::string loadFileAsString(const std::string& fileName) const override
    {
        const auto found = files.find(fileName);
        if (found == files.end())
            throw std::runtime_error("Cannot read file '" + fileName + "'");
        return found->second;
    }
};

// A host's derived shader: assembles its source from parts and maps the compile log to them.
class AssembledShader : public Shader
{
public:
    AssembledShader(ShaderType type, const std::vector<std::pair<std::string, std::string>>& parts) : Shader(type)
    {
        std::string source;
        for (const auto& part : parts)
        {
            int line = 1;
            for (const char c : part.second)
            {
                source += c;
                if (c == '\n')
                {
                    lines.push_back(line++);
                    files.push_back(part.first);
                }
            }
        }
        const char* text = source.c_str();
        glShaderSource(handle, 1, &text, nullptr);
        glCompileShader(handle);
        std::string unused;
        checkStatus(unused, lines, files);
    }
    ~AssembledShader() = default;

    std::vector<int> lines;
    std::vector<std::string> files;
};

struct StageFiles
{
    const char* name;
    std::vector<std::pair<const char*, const char*>> files; // suffix, source
    std::multiset<GLenum> stages;
};

class ProgramFromFiles : public ::testing::TestWithParam<std::tuple<StageFiles, bool>>
{
};
} // namespace

TEST_P(ProgramFromFiles, AttachesEveryStageFoundAndLinks)
{
    const StageFiles& subset = std::get<0>(GetParam());
    const bool withLoader = std::get<1>(GetParam());
    TemporaryDirectory directory;
    for (const auto& file : subset.files)
        directory.write(std::string("shaders/blur") + file.first, file.second);

    // A base name with a directory: the stage suffix is appended to it as it stands.
    const Tavrin::DirectoryFileLoader loader({directory.path()});
    std::unique_ptr<Program> program(withLoader ? Program::loadFromFile("shaders/blur", &loader)
                                                : Program::loadFromFile(directory.file("shaders/blur")));
    GLint linked = 0;
    glGetProgramiv(program->getHandle(), GL_LINK_STATUS, &linked);
    EXPECT_EQ(linked, GL_TRUE);
    EXPECT_EQ(attachedStages(*program), subset.stages);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

INSTANTIATE_TEST_SUITE_P(
    Subsets, ProgramFromFiles,
    ::testing::Combine(
        ::testing::Values(StageFiles{"VertexFragment",
                                     {{"Vertex.glsl", vertexSource}, {"Fragment.glsl", fragmentSource}},
                                     {GL_VERTEX_SHADER, GL_FRAGMENT_SHADER}},
                          StageFiles{"ComputeAlone", {{"Compute.glsl", computeSource}}, {GL_COMPUTE_SHADER}},
                          StageFiles{"FragmentAlone", {{"Fragment.glsl", fragmentSource}}, {GL_FRAGMENT_SHADER}}),
        ::testing::Bool()),
    [](const ::testing::TestParamInfo<std::tuple<StageFiles, bool>>& info) {
        return std::string(std::get<0>(info.param).name) + (std::get<1>(info.param) ? "WithLoader" : "FromDisk");
    });

TEST(Program, LoadFromFileUsesTheLoadersTextAndNamesAMissingProgram)
{
    MemoryLoader loader;
    loader.files["mem/quadVertex.glsl"] = vertexSource;
    loader.files["mem/quadFragment.glsl"] = fragmentSource;
    std::unique_ptr<Program> program(Program::loadFromFile("mem/quad", &loader));
    EXPECT_EQ(attachedStages(*program), (std::multiset<GLenum>{GL_VERTEX_SHADER, GL_FRAGMENT_SHADER}));
    EXPECT_GE(program->getAttribLocation("position"), 0);
    EXPECT_EQ(program->getAttribLocation("missing"), -1);
    EXPECT_EQ(program->getUniformLocation("missing"), -1);

    // No stage file at all: the text names the base name, and no GL object was made.
    TemporaryDirectory directory;
    const std::vector<std::string> before = TavrinTest::liveGLObjects();
    for (const FileLoader* with : {static_cast<const FileLoader*>(nullptr), static_cast<const FileLoader*>(&loader)})
    {
        const std::string base = directory.file("shaders/none");
        try
        {
            delete Program::loadFromFile(base, with);
            ADD_FAILURE() << "no exception";
        }
        catch (const std::runtime_error& error)
        {
            EXPECT_STREQ(error.what(), ("No shader file for program'" + base + "'").c_str());
        }
    }
    EXPECT_EQ(TavrinTest::liveGLObjects(), before);
}

TEST(Program, CompileAndLinkFailuresCarryTheDriversLogAndLeakNothing)
{
    std::unique_ptr<Program> used(Program::loadFromSource("", "", "", "", fragmentSource, ""));
    used->use();
    const GLint inUse = static_cast<GLint>(used->getHandle());
    const std::vector<std::string> before = TavrinTest::liveGLObjects();
    auto thrownLog = [](auto load) {
        try
        {
            delete load();
        }
        catch (const GLSLException& error)
        {
            return std::string(error.what());
        }
        return std::string("<no GLSLException>");
    };

    const std::string compileLog = driverLog({{GL_FRAGMENT_SHADER, brokenSource}});
    EXPECT_FALSE(compileLog.empty());
    EXPECT_EQ(thrownLog([] { return Program::loadFromSource(vertexSource, "", "", "", brokenSource, ""); }),
              compileLog);

    const std::string linkLog = driverLog({{GL_FRAGMENT_SHADER, unresolvedSource}});
    EXPECT_FALSE(linkLog.empty());
    EXPECT_EQ(thrownLog([] { return Program::loadFromSource("", "", "", "", unresolvedSource, ""); }), linkLog);

    // The same through stage files: a broken stage, and a compute stage beside graphics ones.
    TemporaryDirectory directory;
    directory.write("brokenVertex.glsl", vertexSource);
    directory.write("brokenFragment.glsl", brokenSource);
    EXPECT_EQ(thrownLog([&] { return Program::loadFromFile(directory.file("broken"), nullptr); }), compileLog);
    directory.write("mixedFragment.glsl", fragmentSource);
    directory.write("mixedCompute.glsl", computeSource);
    EXPECT_EQ(thrownLog([&] { return Program::loadFromFile(directory.file("mixed"), nullptr); }),
              driverLog({{GL_FRAGMENT_SHADER, fragmentSource}, {GL_COMPUTE_SHADER, computeSource}}));

    // A stage the loader lists but cannot read: its error, after the vertex stage was built.
    MemoryLoader loader;
    loader.files["liarVertex.glsl"] = vertexSource;
    loader.unreadable.insert("liarFragment.glsl");
    try
    {
        delete Program::loadFromFile("liar", &loader);
        ADD_FAILURE() << "no exception";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_STREQ(error.what(), "Cannot read file 'liarFragment.glsl'");
    }

    // Every failure released its program and shaders, and left the program in use bound.
    EXPECT_EQ(TavrinTest::liveGLObjects(), before);
    EXPECT_EQ(currentProgram(), inUse);
    Program::useFixed();
    EXPECT_EQ(currentProgram(), 0);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    used.reset();
}

TEST(Program, DestructionUnbindsWhateverProgramIsInUse)
{
    std::unique_ptr<Program> used(Program::loadFromSource("", "", "", "", fragmentSource, ""));
    Program* other = Program::loadFromSource("", "", "", "", fragmentSource, "");
    const GLuint otherHandle = other->getHandle();
    used->use();
    EXPECT_EQ(currentProgram(), static_cast<GLint>(used->getHandle()));
    delete other;
    EXPECT_EQ(currentProgram(), 0);
    EXPECT_FALSE(glIsProgram(otherHandle));
}

TEST(Shader, DerivedShaderMapsItsLogToTheAssembledFilesAndReadsItsSource)
{
    {
        StreamCapture quiet(std::cout);
        Program::initVendor(); // Mesa's log form is the ATI one ("0:3(12): error: ...")
    }
    const std::vector<std::pair<std::string, std::string>> parts = {
        {"header.glsl", "#version 330 compatibility\nout vec4 color;\n"},
        {"body.glsl", "void main()\n{\n    color = undeclared;\n}\n"}};
    std::string source;
    for (const auto& part : parts)
        source += part.second;
    const std::vector<int> lines = {1, 2, 1, 2, 3, 4};
    const std::vector<std::string> files = {"header.glsl", "header.glsl", "body.glsl",
                                            "body.glsl",   "body.glsl",   "body.glsl"};
    const std::string rawLog = driverLog({{GL_FRAGMENT_SHADER, source}});
    const std::string expected = Shader::mapInfoLog(rawLog, lines, files, Program::getVendor());
    EXPECT_NE(expected, rawLog);
    EXPECT_NE(expected.find("header.glsl"), std::string::npos);
    const std::vector<std::string> before = TavrinTest::liveGLObjects();
    try
    {
        AssembledShader shader(ShaderType::Fragment, parts);
        ADD_FAILURE() << "compiled";
    }
    catch (const GLSLException& error)
    {
        EXPECT_EQ(error.getInfoLogText(), expected);
    }
    EXPECT_EQ(TavrinTest::liveGLObjects(), before); // the base's destructor ran

    AssembledShader good(ShaderType::Fragment, {{"whole.glsl", fragmentSource}});
    EXPECT_EQ(good.getSource(), fragmentSource);
}

TEST(Program, InitVendorReportsTheDriversVendorAndClassifiesIt)
{
    const std::string vendorName = reinterpret_cast<const char*>(glGetString(GL_VENDOR));
    StreamCapture out(std::cout), err(std::cerr);
    Program::initVendor();
    EXPECT_EQ(out.text(), "INFO: " + vendorName);
    EXPECT_EQ(err.text(), "");
    if (vendorName.find("NVIDIA") != std::string::npos)
        GTEST_SKIP() << "an NVIDIA driver: " << vendorName;
    // Mesa (natively and under Wine) is neither NVIDIA nor ATI, which counts as ATI.
    EXPECT_EQ(Program::getVendor(), Program::ATI);
}

TEST(Program, VaryingLocationNeedsNvTransformFeedback)
{
    std::unique_ptr<Program> program(Program::loadFromSource(vertexSource, "", "", "", fragmentSource, ""));
    if (GLEW_NV_transform_feedback)
        GTEST_SKIP() << "GL_NV_transform_feedback is available; only its absence is tested here";
    try
    {
        program->getVaryingLocation("position");
        ADD_FAILURE() << "no exception";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_STREQ(error.what(), "glGetVaryingLocationNV not available for ATI GPUs");
    }
}
