#include <opengl/OpenGLContext.h>

#include "../ProcAddress.h"

#include <windows.h>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
// WGL_ARB_create_context; wglGetProcAddress finds it only while some context is current.
using CreateContextAttribs = HGLRC(WINAPI*)(HDC, HGLRC, const int*);
const int contextFlags = 0x2094;    // WGL_CONTEXT_FLAGS_ARB
const int debugContextBit = 0x0001; // WGL_CONTEXT_DEBUG_BIT_ARB
} // namespace

RenderContextHandle OpenGLContext::getContext(DeviceContextHandle const deviceContext)
{
    HGLRC context = wglCreateContext(deviceContext);
    if (!context)
        return nullptr;
    wglMakeCurrent(deviceContext, context);
    if (!debugContextsRequested())
        return context;
    auto createContextAttribs = reinterpret_cast<CreateContextAttribs>(
        reinterpret_cast<void*>(wglGetProcAddress("wglCreateContextAttribsARB")));
    const int attributes[] = {contextFlags, debugContextBit, 0};
    HGLRC debugContext = createContextAttribs ? createContextAttribs(deviceContext, nullptr, attributes) : nullptr;
    if (!debugContext)
        return context;
    wglMakeCurrent(deviceContext, debugContext);
    wglDeleteContext(context);
    return debugContext;
}

void* Detail::getProcAddress(const char* name)
{
    return reinterpret_cast<void*>(wglGetProcAddress(name));
}
} // namespace OpenGL
} // namespace Tavrin
