#pragma once

#include <opengl/GLCheck.h>
#include <opengl/GLSLException.h>
#include <opengl/Platform.h>

#include <Eigen/Core>
#include <GL/glew.h>

#include <string>
#include <vector>

namespace Tavrin
{
class FileLoader;

namespace OpenGL
{
// Shader.h defines both (it needs Program::Vendor); it is included at the end of this header.
enum class ShaderType : unsigned int;
class Shader;

/// One GL program object.
///
/// Copying a Program copies its GL name: both objects then share the program and both delete
/// it, so programs are passed by pointer or shared pointer. Every member runs against the
/// rendering context current on the calling thread.
class TAVRIN_OPENGL_EXPORT Program
{
public:
    /// The driver family that decides the compile-log format (see Shader::mapInfoLog).
    enum Vendor
    {
        NVIDIA = 0,
        ATI = 1
    };

    /// Creates the GL program (glCreateProgram); no check.
    Program();
    /// glUseProgram(0), then glDeleteProgram. Unbinds whatever program is in use, not only
    /// this one.
    ~Program();

    /// The GL program name.
    unsigned int getHandle() const;

    /// Builds a program from the stage files baseName + "Vertex.glsl",
    /// "TessellationControl.glsl", "TessellationEvaluation.glsl", "Geometry.glsl",
    /// "Fragment.glsl" and "Compute.glsl" (plain concatenation, so a base name may contain a
    /// directory). Existence of all six is asked first, through FileTools::fileExists with
    /// `loader`; every stage found is compiled (text read through the loader, or from disk
    /// without one), attached in that order, and the program is linked. The caller owns the
    /// result. `loader` may be left out (null): names are then plain paths.
    ///
    /// Throws std::runtime_error("No shader file for program'" + baseName + "'") when no stage
    /// file exists, before any GL object is made; GLSLException with the driver's log when a
    /// stage does not compile or the program does not link; std::runtime_error from the file
    /// loading or the GL error check.
    ///
    /// Deliberate fix: on any failure after the program was created, the factory releases
    /// everything it built (the Program object, its GL program, the stage's GL shader) before
    /// the exception leaves it unchanged, so a host never leaks a program because a shader
    /// did not compile. The release puts back the program that was in use, so a failed load
    /// leaves no GL binding changed; a program in use that was flagged for deletion is deleted
    /// by the release instead (no program is in use afterwards, no GL error is left).
    static Program* loadFromFile(const std::string& baseName, const FileLoader* loader = nullptr);

    /// loadFromFile for stage files that include others (addition): every stage file found is
    /// assembled with ShaderSource::assemble (`#include "name"` lines, resolved recursively)
    /// before any GL object is made, then compiled, attached and linked in the same order. A
    /// compile error throws GLSLException with the log mapped by Shader::mapInfoLog, so each
    /// line names the file and the line of that file where the offending text stands, in the
    /// NVIDIA, ATI and Mesa forms alike (the source's lines are given in the convention of the
    /// vendor in effect, ShaderSource::linesFor). A link failure throws the program's log
    /// unmapped, as link() does.
    ///
    /// Throws as loadFromFile does, and std::runtime_error from assembling (missing include,
    /// cycle) before any GL object exists. Releases everything on failure as loadFromFile does.
    /// `filesRead`, when given, receives every file read (stage files and includes, each once)
    /// as soon as all stages are assembled, so also when compiling or linking then fails.
    static Program* loadFromFileWithIncludes(const std::string& baseName, const FileLoader* loader = nullptr,
                                             std::vector<std::string>* filesRead = nullptr);

    /// Builds a program from sources, one per stage; an empty string skips that stage. Stages
    /// are compiled and attached in the order of the arguments, then the program is linked.
    /// Nothing requires a stage: six empty strings give a program without shaders, linked by
    /// the driver's rules (a compatibility profile may accept it; a refusal throws the
    /// driver's log). The caller owns the result. Throws and releases as loadFromFile does.
    static Program* loadFromSource(const std::string& vertex, const std::string& tessellationControl,
                                   const std::string& tessellationEvaluation, const std::string& geometry,
                                   const std::string& fragment, const std::string& compute);

    /// glAttachShader; no check.
    void attach(const Shader& shader) const;
    /// glLinkProgram; throws GLSLException with the program's info log when the link fails.
    /// No GL error check, no log rewriting.
    void link() const;
    /// glUseProgram(handle); no check.
    void use() const;
    /// glUseProgram(0); no check.
    static void useFixed();

    /// glGetUniformLocation; -1 for an unknown name. No check.
    int getUniformLocation(const std::string& name) const;
    /// glGetAttribLocation; -1 for an unknown name. No check.
    int getAttribLocation(const std::string& name) const;
    /// glGetVaryingLocationNV. Throws std::runtime_error("glGetVaryingLocationNV not available
    /// for ATI GPUs") when the driver lacks GL_NV_transform_feedback (the extension decides,
    /// not the vendor).
    int getVaryingLocation(const std::string& name) const;

    /// Writes "INFO: " + the GL vendor string to std::cout (no line break) and sets the
    /// process-wide vendor from it (vendorFromName). The host calls it once after
    /// OpenGLContext::init(); nothing in the library does. Without a vendor string (no current
    /// context) the line is "INFO: " alone and the vendor becomes ATI.
    static void initVendor();
    /// The process-wide vendor: NVIDIA until initVendor() runs.
    static Vendor getVendor();
    /// The vendor rule of initVendor(): NVIDIA when `vendorName` contains "NVIDIA"
    /// (case-sensitive, anywhere), otherwise ATI (every other vendor counts as ATI).
    static Vendor vendorFromName(const std::string& vendorName);

    ///@{
    /// Uniform setters. They write into this program without binding it (glProgramUniform*EXT
    /// with the handle), each followed by the GL error check (a type mismatch throws "GLCheck:
    /// Invalid operation"). By name, the location is looked up on every call; a location of -1
    /// is passed on and GL ignores it silently.
    void uniform(const std::string& name, int value) const;
    void uniform(const std::string& name, unsigned int value) const;
    void uniform(const std::string& name, float value) const;
    void uniform(const std::string& name, float x, float y) const;
    void uniform(const std::string& name, float x, float y, float z) const;
    void uniform(const std::string& name, float x, float y, float z, float w) const;
    void uniform(int location, int value) const;
    void uniform(int location, unsigned int value) const;
    void uniform(int location, float value) const;
    void uniform(int location, float x, float y) const;
    void uniform(int location, float x, float y, float z) const;
    void uniform(int location, float x, float y, float z, float w) const;
    ///@}

    /// Writes a float vector into the GLSL structure `name` { int size; float v[N]; }:
    /// name + ".size" gets the element count (also when it is 0), and only for a non-empty
    /// vector name + ".v" gets the elements.
    void uniform(const std::string& name, const Eigen::VectorXf& values) const;

    /// glUniform2iv on the program currently in use (not through the handle): use() this
    /// program first. Checked here, in the header.
    void uniform(const std::string& name, const Eigen::Vector2i& value) const;

    // Subroutines of one stage (its ShaderType).

    /// Number of active subroutines of the stage (GL_ACTIVE_SUBROUTINES).
    int getActiveSubroutineCount(ShaderType type) const;
    /// Number of active subroutine uniforms of the stage (GL_ACTIVE_SUBROUTINE_UNIFORMS).
    int getActiveSubroutineUniformCount(ShaderType type) const;
    /// Name of the active subroutine uniform `index` (at most 255 characters).
    std::string getActiveSubroutineUniformName(ShaderType type, int index);
    /// glGetSubroutineUniformLocation; -1 for an unknown name. No check.
    int getSubroutineUniformLocation(ShaderType type, const std::string& name) const;
    /// Appends the names of the stage's active subroutines, in index order, to `names` (which
    /// is not cleared); names are cut at 511 characters. Leaves `names` alone when the stage
    /// has none.
    void getSubroutineNames(ShaderType type, std::vector<std::string>& names) const;
    /// Number of subroutines compatible with the subroutine uniform `uniformIndex`. No check.
    int getCompatibleSubroutineCount(ShaderType type, int uniformIndex) const;
    /// Resizes `indices` to the number of subroutines compatible with the subroutine uniform
    /// `uniformIndex` and fills it with their indices (empties it when there are none).
    void getCompatibleSubroutines(ShaderType type, int uniformIndex, std::vector<int>& indices) const;
    /// glGetSubroutineIndex; GL_INVALID_INDEX for an unknown name.
    unsigned int getSubroutineIndex(ShaderType type, const std::string& name) const;
    /// glUniformSubroutinesuiv: one subroutine index per subroutine uniform location of the
    /// stage, for the program currently in use (not through the handle): use() this program
    /// first.
    void setUniformSubroutines(ShaderType type, const std::vector<unsigned int>& indices) const;

private:
    // The factories' common frame: a new program, `attachStages` on it, link; released on any
    // failure.
    template <typename AttachStages> static Program* build(const AttachStages& attachStages);
    static bool getStatus(GLuint program, GLenum pname);
    static void getText(GLuint program, std::string& text);
    // The second step of the float-vector structure; inline so that its check names the header.
    void uniformElements(const std::string& name, const Eigen::VectorXf& values) const;

    unsigned int handle;
    static Vendor vendor;

    // Swaps in the GL program of a rebuild, so that holders of this object keep it.
    friend class ProgramReloader;
};

inline void Program::uniformElements(const std::string& name, const Eigen::VectorXf& values) const
{
    const GLint location = glGetUniformLocation(handle, (name + ".v").c_str());
    glProgramUniform1fvEXT(handle, location, static_cast<GLsizei>(values.size()), values.data());
    TAVRIN_GL_CHECK();
}

inline void Program::uniform(const std::string& name, const Eigen::Vector2i& value) const
{
    const GLint location = glGetUniformLocation(handle, name.c_str());
    glUniform2iv(location, 1, value.data());
    TAVRIN_GL_CHECK();
}
} // namespace OpenGL
} // namespace Tavrin

#include <opengl/Shader.h>
