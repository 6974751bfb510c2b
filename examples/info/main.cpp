// Smallest host: a headless context, GLEW started, the GL identity printed.
#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <GL/glew.h>

#include <exception>
#include <iostream>

int main()
{
    try
    {
        Tavrin::OpenGL::HeadlessContext context;
        Tavrin::OpenGL::OpenGLContext::init();
        std::cout << "GL vendor:   " << glGetString(GL_VENDOR) << "\n"
                  << "GL renderer: " << glGetString(GL_RENDERER) << "\n"
                  << "GL version:  " << glGetString(GL_VERSION) << "\n";
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
