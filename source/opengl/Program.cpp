#include <opengl/DebugOutput.h>
#include <opengl/GLCheck.h>
#include <opengl/GLSLException.h>
#include <opengl/Program.h>
#include <opengl/Shader.h>
#include <opengl/ShaderSource.h>

#include <core/FileLoader.h>
#include <core/FileTools.h>

#include <GL/glew.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
struct Stage
{
    ShaderType type;
    const char* suffix;
};

// The attach order of both factories.
const Stage stages[] = {{ShaderType::Vertex, "Vertex.glsl"},
                        {ShaderType::TessellationControl, "TessellationControl.glsl"},
                        {ShaderType::TessellationEvaluation, "TessellationEvaluation.glsl"},
                        {ShaderType::Geometry, "Geometry.glsl"},
                        {ShaderType::Fragment, "Fragment.glsl"},
                        {ShaderType::Compute, "Compute.glsl"}};
const int stageCount = 6;

// The characters of a GL-filled buffer up to its first NUL (or its end, should GL not write one).
std::string untilNul(const std::vector<char>& buffer)
{
    return std::string(buffer.begin(), std::find(buffer.begin(), buffer.end(), '\0'));
}

// Releases a program whose build failed. ~Program unbinds whatever program is in use; the
// failed one never was, so the caller's binding is put back, unless that program was only
// flagged for deletion: the unbinding deleted it, and binding its name would raise an error.
void discard(Program* program)
{
    GLint inUse = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &inUse);
    delete program;
    if (glIsProgram(static_cast<GLuint>(inUse)))
        glUseProgram(static_cast<GLuint>(inUse));
}

// Capture and debugging tools then show the program by the base name it was loaded from.
void labelWhileDebugging(const Program& program, const std::string& baseName)
{
    if (DebugOutput::isEnabled())
        DebugOutput::setLabel(program, baseName);
}

// The stages whose files exist, in attach order; all six are asked before anything is built.
std::vector<int> existingStages(const std::string& baseName, const FileLoader* loader)
{
    std::vector<int> found;
    for (int i = 0; i < stageCount; ++i)
        if (FileTools::fileExists(baseName + stages[i].suffix, loader))
            found.push_back(i);
    if (found.empty())
        throw std::runtime_error("No shader file for program'" + baseName + "'");
    return found;
}
} // namespace

Program::Vendor Program::vendor = Program::NVIDIA;

Program::Program() : handle(glCreateProgram()) {}

Program::~Program()
{
    glUseProgram(0);
    glDeleteProgram(handle);
}

unsigned int Program::getHandle() const
{
    return handle;
}

template <typename AttachStages> Program* Program::build(const AttachStages& attachStages)
{
    Program* program = new Program;
    try
    {
        attachStages(*program);
        program->link();
    }
    catch (...)
    {
        discard(program);
        throw;
    }
    return program;
}

Program* Program::loadFromFile(const std::string& baseName, const FileLoader* loader)
{
    const std::vector<int> found = existingStages(baseName, loader);
    return build([&](const Program& program) {
        labelWhileDebugging(program, baseName);
        for (const int i : found)
        {
            // The GL shader lives on while attached; the wrapper goes at once.
            Shader shader(stages[i].type, baseName + stages[i].suffix, loader);
            program.attach(shader);
        }
    });
}

Program* Program::loadFromFileWithIncludes(const std::string& baseName, const FileLoader* loader,
                                           std::vector<std::string>* filesRead)
{
    std::vector<std::pair<ShaderType, ShaderSource>> sources;
    std::vector<std::string> read;
    for (const int i : existingStages(baseName, loader))
    {
        sources.emplace_back(stages[i].type, ShaderSource::assemble(baseName + stages[i].suffix, loader));
        for (const std::string& file : sources.back().second.filesRead)
            if (std::find(read.begin(), read.end(), file) == read.end())
                read.push_back(file);
    }
    if (filesRead)
        *filesRead = read;
    return build([&](const Program& program) {
        labelWhileDebugging(program, baseName);
        for (const auto& source : sources)
        {
            Shader shader(source.first, source.second);
            program.attach(shader);
        }
    });
}

Program* Program::loadFromSource(const std::string& vertex, const std::string& tessellationControl,
                                 const std::string& tessellationEvaluation, const std::string& geometry,
                                 const std::string& fragment, const std::string& compute)
{
    const std::string* sources[stageCount] = {
        &vertex, &tessellationControl, &tessellationEvaluation, &geometry, &fragment, &compute};
    return build([&](const Program& program) {
        for (int i = 0; i < stageCount; ++i)
        {
            if (sources[i]->empty())
                continue;
            Shader shader(stages[i].type, *sources[i]);
            program.attach(shader);
        }
    });
}

void Program::attach(const Shader& shader) const
{
    glAttachShader(handle, shader.getHandle());
}

void Program::link() const
{
    glLinkProgram(handle);
    if (getStatus(handle, GL_LINK_STATUS))
        return;
    std::string log;
    getText(handle, log);
    throw GLSLException(log);
}

void Program::use() const
{
    glUseProgram(handle);
}

void Program::useFixed()
{
    glUseProgram(0);
}

int Program::getUniformLocation(const std::string& name) const
{
    return glGetUniformLocation(handle, name.c_str());
}

int Program::getAttribLocation(const std::string& name) const
{
    return glGetAttribLocation(handle, name.c_str());
}

int Program::getVaryingLocation(const std::string& name) const
{
    if (!GLEW_NV_transform_feedback)
        throw std::runtime_error("glGetVaryingLocationNV not available for ATI GPUs");
    return glGetVaryingLocationNV(handle, name.c_str());
}

bool Program::getStatus(GLuint program, GLenum pname)
{
    GLint value = 0;
    glGetProgramiv(program, pname, &value);
    return value == GL_TRUE;
}

void Program::getText(GLuint program, std::string& text)
{
    text.clear();
    GLint length = 0;
    glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
    if (length <= 0)
        return;
    std::vector<char> buffer(static_cast<std::size_t>(length), '\0');
    GLsizei written = 0;
    glGetProgramInfoLog(program, length, &written, buffer.data());
    text = untilNul(buffer);
}

void Program::initVendor()
{
    // glGetString gives null without a current context; a null char pointer must not reach
    // the stream.
    const GLubyte* shown = glGetString(GL_VENDOR);
    std::cout << "INFO: " << (shown ? reinterpret_cast<const char*>(shown) : "");
    const GLubyte* name = glGetString(GL_VENDOR);
    vendor = vendorFromName(name ? reinterpret_cast<const char*>(name) : "");
}

Program::Vendor Program::getVendor()
{
    return vendor;
}

Program::Vendor Program::vendorFromName(const std::string& vendorName)
{
    return vendorName.find("NVIDIA") != std::string::npos ? NVIDIA : ATI;
}

void Program::uniform(const std::string& name, int value) const
{
    glProgramUniform1iEXT(handle, glGetUniformLocation(handle, name.c_str()), value);
    TAVRIN_GL_CHECK();
}

void Program::uniform(const std::string& name, unsigned int value) const
{
    glProgramUniform1uiEXT(handle, glGetUniformLocation(handle, name.c_str()), value);
    TAVRIN_GL_CHECK();
}

void Program::uniform(const std::string& name, float value) const
{
    glProgramUniform1fEXT(handle, glGetUniformLocation(handle, name.c_str()), value);
    TAVRIN_GL_CHECK();
}

void Program::uniform(const std::string& name, float x, float y) const
{
    glProgramUniform2fEXT(handle, glGetUniformLocation(handle, name.c_str()), x, y);
    TAVRIN_GL_CHECK();
}

void Program::uniform(const std::string& name, float x, float y, float z) const
{
    glProgramUniform3fEXT(handle, glGetUniformLocation(handle, name.c_str()), x, y, z);
    TAVRIN_GL_CHECK();
}

void Program::uniform(const std::string& name, float x, float y, float z, float w) const
{
    glProgramUniform4fEXT(handle, glGetUniformLocation(handle, name.c_str()), x, y, z, w);
    TAVRIN_GL_CHECK();
}

void Program::uniform(int location, int value) const
{
    glProgramUniform1iEXT(handle, location, value);
    TAVRIN_GL_CHECK();
}

void Program::uniform(int location, unsigned int value) const
{
    glProgramUniform1uiEXT(handle, location, value);
    TAVRIN_GL_CHECK();
}

void Program::uniform(int location, float value) const
{
    glProgramUniform1fEXT(handle, location, value);
    TAVRIN_GL_CHECK();
}

void Program::uniform(int location, float x, float y) const
{
    glProgramUniform2fEXT(handle, location, x, y);
    TAVRIN_GL_CHECK();
}

void Program::uniform(int location, float x, float y, float z) const
{
    glProgramUniform3fEXT(handle, location, x, y, z);
    TAVRIN_GL_CHECK();
}

void Program::uniform(int location, float x, float y, float z, float w) const
{
    glProgramUniform4fEXT(handle, location, x, y, z, w);
    TAVRIN_GL_CHECK();
}

void Program::uniform(const std::string& name, const Eigen::VectorXf& values) const
{
    const int size = static_cast<int>(values.size());
    uniform(name + ".size", size);
    if (size > 0)
        uniformElements(name, values);
}

int Program::getActiveSubroutineCount(ShaderType type) const
{
    GLint count = 0;
    glGetProgramStageiv(handle, static_cast<GLenum>(type), GL_ACTIVE_SUBROUTINES, &count);
    TAVRIN_GL_CHECK();
    return count;
}

int Program::getActiveSubroutineUniformCount(ShaderType type) const
{
    GLint count = 0;
    glGetProgramStageiv(handle, static_cast<GLenum>(type), GL_ACTIVE_SUBROUTINE_UNIFORMS, &count);
    TAVRIN_GL_CHECK();
    return count;
}

std::string Program::getActiveSubroutineUniformName(ShaderType type, int index)
{
    std::vector<char> buffer(256, '\0');
    glGetActiveSubroutineUniformName(handle, static_cast<GLenum>(type), static_cast<GLuint>(index),
                                     static_cast<GLsizei>(buffer.size()), nullptr, buffer.data());
    TAVRIN_GL_CHECK();
    return untilNul(buffer);
}

int Program::getSubroutineUniformLocation(ShaderType type, const std::string& name) const
{
    return glGetSubroutineUniformLocation(handle, static_cast<GLenum>(type), name.c_str());
}

void Program::getSubroutineNames(ShaderType type, std::vector<std::string>& names) const
{
    const int count = getActiveSubroutineCount(type);
    std::vector<char> buffer(512);
    for (int index = 0; index < count; ++index)
    {
        std::fill(buffer.begin(), buffer.end(), '\0');
        glGetActiveSubroutineName(handle, static_cast<GLenum>(type), static_cast<GLuint>(index),
                                  static_cast<GLsizei>(buffer.size()), nullptr, buffer.data());
        TAVRIN_GL_CHECK();
        names.push_back(untilNul(buffer));
    }
}

int Program::getCompatibleSubroutineCount(ShaderType type, int uniformIndex) const
{
    GLint count = 0;
    glGetActiveSubroutineUniformiv(handle, static_cast<GLenum>(type), static_cast<GLuint>(uniformIndex),
                                   GL_NUM_COMPATIBLE_SUBROUTINES, &count);
    return count;
}

void Program::getCompatibleSubroutines(ShaderType type, int uniformIndex, std::vector<int>& indices) const
{
    const int count = getCompatibleSubroutineCount(type, uniformIndex);
    indices.resize(static_cast<std::size_t>(std::max(count, 0)));
    if (count > 0)
    {
        glGetActiveSubroutineUniformiv(handle, static_cast<GLenum>(type), static_cast<GLuint>(uniformIndex),
                                       GL_COMPATIBLE_SUBROUTINES, indices.data());
        TAVRIN_GL_CHECK();
    }
}

unsigned int Program::getSubroutineIndex(ShaderType type, const std::string& name) const
{
    const GLuint index = glGetSubroutineIndex(handle, static_cast<GLenum>(type), name.c_str());
    TAVRIN_GL_CHECK();
    return index;
}

void Program::setUniformSubroutines(ShaderType type, const std::vector<unsigned int>& indices) const
{
    glUniformSubroutinesuiv(static_cast<GLenum>(type), static_cast<GLsizei>(indices.size()), indices.data());
    TAVRIN_GL_CHECK();
}
} // namespace OpenGL
} // namespace Tavrin
