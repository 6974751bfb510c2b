#pragma once

#include <opengl/Platform.h>
#include <opengl/Program.h>

#include <GL/glew.h>

#include <functional>
#include <string>
#include <vector>

namespace Tavrin
{
class FileLoader;

namespace OpenGL
{
class ShaderSource;

/// The shader stages, valued by their GL stage enumerants, so a value goes straight to
/// glCreateShader and glGetProgramStageiv. Stage file suffixes: see Program::loadFromFile.
enum class ShaderType : unsigned int
{
    Vertex = 0x8B31,                 // GL_VERTEX_SHADER
    TessellationControl = 0x8E88,    // GL_TESS_CONTROL_SHADER
    TessellationEvaluation = 0x8E87, // GL_TESS_EVALUATION_SHADER
    Geometry = 0x8DD9,               // GL_GEOMETRY_SHADER
    Fragment = 0x8B30,               // GL_FRAGMENT_SHADER
    Compute = 0x91B9                 // GL_COMPUTE_SHADER
};

/// One GL shader object. Only Program and the host's derived shader classes make them: the
/// constructors and the destructor are protected. Shader objects are short-lived; a program
/// keeps its attached shaders alive after the Shader is gone.
///
/// Copying copies the GL name (both copies would delete it).
class TAVRIN_OPENGL_EXPORT Shader
{
public:
    /// The GL shader name.
    unsigned int getHandle() const;

    /// The shader's source text as GL holds it; empty when it has none. No check.
    std::string getSource() const;

    /// Rewrites a compile log so that its line references name the files of an assembled
    /// source. Pure: no GL, no process-wide state. The log is split at line feeds (empty
    /// lines dropped); each line is rewritten by the form of `vendor`; the results are joined
    /// with "\n" (none after the last). Entry k of `lines` / `files` describes line k + 1 of
    /// the compiled text: its line number in its file and the file's name. The driver's line
    /// number n selects entry i = n - 1, or 0 when n < 2 (lines 0 and 1 both map to the first
    /// entry).
    ///
    /// - NVIDIA, "0(12) : error C0000: message": n is read between the first "(" and the first
    ///   ")"; the line becomes files[i] + " (" + (lines[i] + 1) + ") " + the text from the
    ///   first ":" on, e.g. "lighting.glsl (13) : error C0000: message".
    /// - ATI, "ERROR: 0:12: message": n is read between the second and the third ":"; the line
    ///   becomes files[i] + "(" + lines[i] + ") : " + the text from two characters after the
    ///   third ":", e.g. "lighting.glsl(12) : message". A line with fewer than three colons
    ///   passes through unchanged.
    /// - Mesa (addition; llvmpipe, radeonsi, iris), "0:12(5): error: message": a line that
    ///   starts with digits, ":", digits, "(", digits, "):" is in Mesa's form whatever `vendor`
    ///   says (neither other form starts so). n is read between the first ":" and the "("; the
    ///   line becomes files[i] + ":" + the mapped number + the text from the "(" on, e.g.
    ///   "lighting.glsl:12(5): error: message". The mapped number follows the convention of
    ///   `vendor`: lines[i] + 1 for NVIDIA, lines[i] for ATI (Mesa's vendor string gives ATI),
    ///   so entries written for the vendor in effect name the same line in every form.
    ///
    /// Guards (these cases would otherwise read out of range): a line whose index i has no
    /// entry in `lines` or in `files` passes through unchanged, and so does an NVIDIA-form line
    /// without any ":"; an ATI-form line that ends at its third ":" gets an empty message.
    static std::string mapInfoLog(const std::string& log, const std::vector<int>& lines,
                                  const std::vector<std::string>& files, Program::Vendor vendor);

protected:
    /// Creates the GL shader (checked); no source, no compile.
    explicit Shader(ShaderType type);
    /// Creates the shader, sets `source` and compiles it (each step checked), then
    /// checkStatus(). Throws GLSLException with the driver's log when it does not compile.
    Shader(ShaderType type, const std::string& source);
    /// As above with the text of `fileName`: read with loader->loadFileAsString when a loader
    /// is given, otherwise with FileTools::loadFileAsString (which throws std::runtime_error
    /// "Cannot read file '<name>'" for a missing file).
    ///
    /// Deliberate fix, for both constructors above: when anything fails after glCreateShader
    /// (reading the file, a GL check, the compile), the GL shader is deleted before the
    /// exception leaves the constructor, so a failed stage leaks no shader object.
    Shader(ShaderType type, const std::string& fileName, const FileLoader* loader);
    /// Compiles an assembled source like the constructors above (and deletes the GL shader
    /// when it throws), but a failed compile throws the log mapped to the source's files:
    /// checkStatus(text, source.linesFor(Program::getVendor()), source.files).
    Shader(ShaderType type, const ShaderSource& source);
    /// glDeleteShader; no check.
    ~Shader();

    /// glGetShaderiv(shader, pname) (checked); true exactly when the value is GL_TRUE.
    static bool getStatus(GLuint shader, GLenum pname);
    /// Replaces `text` with the shader's info log (empty when there is none). No check.
    static void getText(GLuint shader, std::string& text);

    /// Returns when the shader compiled; otherwise throws GLSLException with its info log.
    void checkStatus();
    /// As checkStatus(), but the thrown log is first rewritten by mapInfoLog with `lines`,
    /// `files` and Program::getVendor(). `text` is neither read nor written. For derived
    /// shader classes that compile sources assembled from several files (when it throws from
    /// a derived constructor, the Shader base's destructor deletes the GL shader).
    void checkStatus(std::string& text, std::vector<int>& lines, std::vector<std::string>& files);

    /// The GL shader name (0 after the constructor failed to create one).
    unsigned int handle;

private:
    // The compiling constructors' shared steps: checks the creation, takes the source from
    // `loadSource`, compiles, checks the status (the log mapped to `assembled`'s files when
    // given); deletes the GL shader if any step throws.
    void compileOrRelease(const std::function<std::string()>& loadSource, const ShaderSource* assembled = nullptr);

    friend class Program;
};
} // namespace OpenGL
} // namespace Tavrin
