#include <opengl/GLSLException.h>
#include <opengl/ProgramReloader.h>

#include <core/FileLoader.h>

#include <GL/glew.h>

#include <algorithm>
#include <map>
#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
struct PlainKind
{
    GLenum type;
    int components;
    char scalar; // 'f', 'i' or 'u'
};

const PlainKind plainKinds[] = {{GL_FLOAT, 1, 'f'},
                                {GL_FLOAT_VEC2, 2, 'f'},
                                {GL_FLOAT_VEC3, 3, 'f'},
                                {GL_FLOAT_VEC4, 4, 'f'},
                                {GL_INT, 1, 'i'},
                                {GL_INT_VEC2, 2, 'i'},
                                {GL_INT_VEC3, 3, 'i'},
                                {GL_INT_VEC4, 4, 'i'},
                                {GL_UNSIGNED_INT, 1, 'u'},
                                {GL_UNSIGNED_INT_VEC2, 2, 'u'},
                                {GL_UNSIGNED_INT_VEC3, 3, 'u'},
                                {GL_UNSIGNED_INT_VEC4, 4, 'u'}};

const PlainKind* plainKind(GLenum type)
{
    for (const PlainKind& kind : plainKinds)
        if (kind.type == type)
            return &kind;
    return nullptr;
}

// The program's active uniforms of a plain kind by name; an array gives one name per element.
std::map<std::string, GLenum> plainUniforms(GLuint program)
{
    GLint count = 0, longest = 0;
    glGetProgramiv(program, GL_ACTIVE_UNIFORMS, &count);
    glGetProgramiv(program, GL_ACTIVE_UNIFORM_MAX_LENGTH, &longest);
    std::vector<char> buffer(static_cast<std::size_t>(std::max(longest, 1)), '\0');
    std::map<std::string, GLenum> uniforms;
    for (GLint index = 0; index < count; ++index)
    {
        GLint size = 0;
        GLenum type = 0;
        glGetActiveUniform(program, static_cast<GLuint>(index), static_cast<GLsizei>(buffer.size()), nullptr, &size,
                           &type, buffer.data());
        const std::string name(buffer.data());
        if (!plainKind(type))
            continue;
        if (size == 1)
            uniforms[name] = type;
        // GL names an array by its first element, "v[0]".
        for (GLint element = 0; size > 1 && element < size; ++element)
            uniforms[name.substr(0, name.rfind('[')) + "[" + std::to_string(element) + "]"] = type;
    }
    return uniforms;
}

// Copies every plain uniform value of `from` into the uniform of the same name and type of `to`.
void carryUniforms(GLuint from, GLuint to)
{
    const std::map<std::string, GLenum> targets = plainUniforms(to);
    for (const auto& uniform : plainUniforms(from))
    {
        const auto target = targets.find(uniform.first);
        const GLint source = glGetUniformLocation(from, uniform.first.c_str());
        const GLint destination = glGetUniformLocation(to, uniform.first.c_str());
        if (target == targets.end() || target->second != uniform.second || source < 0 || destination < 0)
            continue; // no counterpart, another type, or a block member
        const PlainKind& kind = *plainKind(uniform.second);
        const int n = kind.components - 1;
        if (kind.scalar == 'f')
        {
            GLfloat value[4] = {};
            glGetUniformfv(from, source, value);
            const PFNGLPROGRAMUNIFORM1FVEXTPROC set[] = {glProgramUniform1fvEXT, glProgramUniform2fvEXT,
                                                         glProgramUniform3fvEXT, glProgramUniform4fvEXT};
            set[n](to, destination, 1, value);
        }
        else if (kind.scalar == 'i')
        {
            GLint value[4] = {};
            glGetUniformiv(from, source, value);
            const PFNGLPROGRAMUNIFORM1IVEXTPROC set[] = {glProgramUniform1ivEXT, glProgramUniform2ivEXT,
                                                         glProgramUniform3ivEXT, glProgramUniform4ivEXT};
            set[n](to, destination, 1, value);
        }
        else
        {
            GLuint value[4] = {};
            glGetUniformuiv(from, source, value);
            const PFNGLPROGRAMUNIFORM1UIVEXTPROC set[] = {glProgramUniform1uivEXT, glProgramUniform2uivEXT,
                                                          glProgramUniform3uivEXT, glProgramUniform4uivEXT};
            set[n](to, destination, 1, value);
        }
    }
}

// The path a watched name has on the file system; empty when the loader cannot say.
std::string pathOf(const std::string& name, const FileLoader* loader)
{
    if (!loader)
        return name;
    const auto* directories = dynamic_cast<const DirectoryFileLoader*>(loader);
    return directories ? directories->resolve(name) : std::string();
}

std::filesystem::file_time_type modified(const std::string& path)
{
    std::error_code error;
    const auto time = std::filesystem::last_write_time(std::filesystem::u8path(path), error);
    return error ? std::filesystem::file_time_type::min() : time;
}
} // namespace

ProgramReloader::ProgramReloader(const std::string& baseName, const FileLoader* loader)
    : baseName(baseName), loader(loader)
{
    std::vector<std::string> files;
    program.reset(Program::loadFromFileWithIncludes(baseName, loader, &files));
    watch(files);
}

const std::shared_ptr<Program>& ProgramReloader::getProgram() const
{
    return program;
}

const std::string& ProgramReloader::getLog() const
{
    return log;
}

void ProgramReloader::watch(const std::vector<std::string>& files)
{
    if (!files.empty())
    {
        paths.clear();
        for (const std::string& file : files)
        {
            const std::string path = pathOf(file, loader);
            if (!path.empty())
                paths.push_back(path);
        }
    }
    times.clear();
    for (const std::string& path : paths)
        times.push_back(modified(path));
}

bool ProgramReloader::changed()
{
    for (std::size_t i = 0; i < paths.size(); ++i)
        if (modified(paths[i]) != times[i])
            return true;
    return false;
}

ProgramReloader::Result ProgramReloader::poll()
{
    if (!changed())
        return Result::Unchanged;
    std::vector<std::string> files;
    std::unique_ptr<Program> rebuilt;
    try
    {
        rebuilt.reset(Program::loadFromFileWithIncludes(baseName, loader, &files));
    }
    catch (const GLSLException& error)
    {
        log = error.what();
    }
    catch (const std::runtime_error& error)
    {
        log = error.what();
    }
    // A failed build that got past assembling names the files it read; otherwise the old list stays.
    watch(files);
    if (!rebuilt)
        return Result::Failed;

    carryUniforms(program->handle, rebuilt->handle);
    GLint inUse = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &inUse);
    const GLuint old = program->handle;
    std::swap(program->handle, rebuilt->handle);
    rebuilt.reset(); // unbinds whatever is in use and deletes the old GL program
    if (static_cast<GLuint>(inUse) == old)
        glUseProgram(program->handle);
    else if (glIsProgram(static_cast<GLuint>(inUse)))
        glUseProgram(static_cast<GLuint>(inUse));
    log.clear();
    return Result::Reloaded;
}
} // namespace OpenGL
} // namespace Tavrin
