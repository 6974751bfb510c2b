#include <opengl/GLSLException.h>

namespace Tavrin
{
namespace OpenGL
{
GLSLException::GLSLException(const std::string& infoLogText)
    : infoLogText(infoLogText)
{
}

GLSLException::GLSLException(const GLSLException& other)
    : std::exception(other)
    , infoLogText(other.infoLogText)
{
}

GLSLException& GLSLException::operator=(const GLSLException& other)
{
    if (this != &other)
    {
        std::exception::operator=(other);
        infoLogText = other.infoLogText;
    }
    return *this;
}

GLSLException::~GLSLException() = default;

const char* GLSLException::what() const noexcept
{
    return infoLogText.c_str();
}

const std::string& GLSLException::getInfoLogText() const
{
    return infoLogText;
}
} // namespace OpenGL
} // namespace Tavrin
