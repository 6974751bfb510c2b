#include <opengl/GLCheck.h>

#include <opengl/DebugOutput.h>

#include <GL/glew.h>

#include <iostream>
#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
bool GLCheck::enableGLCheck = true;

const char* GLCheck::errorMessage(unsigned int error)
{
    switch (error)
    {
    case GL_INVALID_ENUM:
        return "GLCheck: Invalid enum";
    case GL_INVALID_VALUE:
        return "GLCheck: Invalid value";
    case GL_INVALID_OPERATION:
        return "GLCheck: Invalid operation";
    case GL_STACK_OVERFLOW:
        return "GLCheck: Stack overflow";
    case GL_STACK_UNDERFLOW:
        return "GLCheck: Stack underflow";
    case GL_OUT_OF_MEMORY:
        return "GLCheck: Out of memory";
    case GL_INVALID_FRAMEBUFFER_OPERATION:
        return "GLCheck: Invalid framebuffer operation";
    default:
        return "GLCheck: Unknown error";
    }
}

void GLCheck::check(const char* file, int line)
{
    if (!enableGLCheck)
    {
        if (Detail::debugErrorsThrow)
            DebugOutput::throwPendingError();
        return;
    }
    const GLenum error = glGetError();
    if (error == GL_NO_ERROR)
        return;

    const char* message = errorMessage(error);
    if (error == GL_STACK_OVERFLOW)
    {
        // The depths tell which stack overflowed; the overflow itself is only the thrown text.
        GLint projection = 0, modelView = 0, texture = 0;
        glGetIntegerv(GL_PROJECTION_STACK_DEPTH, &projection);
        glGetIntegerv(GL_MODELVIEW_STACK_DEPTH, &modelView);
        glGetIntegerv(GL_TEXTURE_STACK_DEPTH, &texture);
        std::cout << "WARNING: " << file << " (line " << line << ") "
                  << "Projection matrix stack depth: " << projection;
        std::cout << "WARNING: " << file << " (line " << line << ") "
                  << "Modelview matrix stack depth: " << modelView;
        std::cout << "WARNING: " << file << " (line " << line << ") "
                  << "Texture matrix stack depth: " << texture;
    }
    else
    {
        std::cout << "WARNING: " << file << " (line " << line << ") " << message;
    }
    throw std::runtime_error(message);
}
} // namespace OpenGL
} // namespace Tavrin
