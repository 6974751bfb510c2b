// A host built without CMake, from the installed pkg-config files only:
//   c++ -std=c++17 main.cpp $(pkg-config --cflags --libs tavrin-opengl) -o host
// Clears a texture through a framebuffer, reads it back as an Image2D (the core library) and
// prints the GL version and the pixel. Exits non-zero when the pixel is not the clear colour.
#include <core/Image2D.h>
#include <opengl/Framebuffer.h>
#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>

#include <exception>
#include <iostream>

int main()
{
    try
    {
        Tavrin::OpenGL::HeadlessContext context;
        Tavrin::OpenGL::OpenGLContext::init();
        std::cout << "GL version: " << glGetString(GL_VERSION) << "\n";

        Tavrin::OpenGL::Texture2D texture;
        texture.reserveStorage(1, {2, 2}, GL_RGBA8);
        Tavrin::OpenGL::Framebuffer framebuffer;
        framebuffer.attachTexture2D(&texture, GL_COLOR_ATTACHMENT0, 0);
        framebuffer.checkStatus();
        framebuffer.bind();
        glClearColor(1.0f, 0.5f, 0.0f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        Tavrin::OpenGL::Framebuffer::unbind();

        const auto image = texture.downloadImage(0);
        const auto* texel = static_cast<const unsigned char*>(image->getData());
        std::cout << "pixel: " << int(texel[0]) << " " << int(texel[1]) << " " << int(texel[2]) << " " << int(texel[3])
                  << "\n";
        const bool cleared =
            texel[0] == 255 && (texel[1] == 127 || texel[1] == 128) && texel[2] == 0 && texel[3] == 255;
        return cleared ? 0 : 1;
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
