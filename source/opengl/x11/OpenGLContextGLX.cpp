#include <opengl/OpenGLContext.h>

#include "../ProcAddress.h"

#include <GL/glx.h>

namespace Tavrin
{
namespace OpenGL
{
RenderContextHandle OpenGLContext::getContext(DeviceContextHandle const deviceContext)
{
    if (!deviceContext || !deviceContext->display || !deviceContext->frameBufferConfig)
        return nullptr;
    GLXContext context =
        glXCreateNewContext(deviceContext->display, deviceContext->frameBufferConfig, GLX_RGBA_TYPE, nullptr, True);
    if (!context)
        return nullptr;
    glXMakeContextCurrent(deviceContext->display, deviceContext->drawable, deviceContext->drawable, context);
    return context;
}

void* Detail::getProcAddress(const char* name)
{
    // With GLVND the GLX lookup returns dispatch stubs that serve EGL contexts as well.
    return reinterpret_cast<void*>(glXGetProcAddressARB(reinterpret_cast<const GLubyte*>(name)));
}
} // namespace OpenGL
} // namespace Tavrin
