#pragma once

#include <opengl/Platform.h>

#include <exception>
#include <string>

namespace Tavrin
{
namespace OpenGL
{
/// Thrown when a shader does not compile or a program does not link; carries the info log
/// (for shaders built from assembled sources, the rewritten log).
class TAVRIN_OPENGL_EXPORT GLSLException : public std::exception
{
public:
    /// Carries `infoLogText`, which what() returns.
    explicit GLSLException(const std::string& infoLogText);
    ///@{
    /// Copies the log.
    GLSLException(const GLSLException& other);
    GLSLException& operator=(const GLSLException& other);
    ///@}
    virtual ~GLSLException();

    /// The info log's characters (empty when the driver gave no log).
    const char* what() const noexcept override;
    /// The stored info log.
    const std::string& getInfoLogText() const;

private:
    std::string infoLogText;
};
} // namespace OpenGL
} // namespace Tavrin
