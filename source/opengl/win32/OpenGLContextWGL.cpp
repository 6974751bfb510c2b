#include <opengl/OpenGLContext.h>

#include "../ProcAddress.h"

#include <windows.h>

namespace Tavrin
{
namespace OpenGL
{
RenderContextHandle OpenGLContext::getContext(DeviceContextHandle const deviceContext)
{
    HGLRC context = wglCreateContext(deviceContext);
    if (!context)
        return nullptr;
    wglMakeCurrent(deviceContext, context);
    return context;
}

void* Detail::getProcAddress(const char* name)
{
    return reinterpret_cast<void*>(wglGetProcAddress(name));
}
} // namespace OpenGL
} // namespace Tavrin
