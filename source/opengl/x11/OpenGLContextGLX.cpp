#include <opengl/OpenGLContext.h>

#include "../ProcAddress.h"
#include "X11Connection.h"

#include <GL/glx.h>

#include <utility>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
// The contexts made here on the windows' shared connection, which destroys them before it
// closes. Contexts on a host's own connection are never destroyed (nor remembered: that
// connection may close and its address be reused).
std::vector<std::pair<Display*, GLXContext>> contexts;
} // namespace

RenderContextHandle OpenGLContext::getContext(DeviceContextHandle const deviceContext)
{
    if (!deviceContext || !deviceContext->display || !deviceContext->frameBufferConfig)
        return nullptr;
    GLXContext context = nullptr;
    if (debugContextsRequested())
    {
        auto createContextAttribs = reinterpret_cast<PFNGLXCREATECONTEXTATTRIBSARBPROC>(
            glXGetProcAddressARB(reinterpret_cast<const GLubyte*>("glXCreateContextAttribsARB")));
        const int attributes[] = {GLX_CONTEXT_FLAGS_ARB, GLX_CONTEXT_DEBUG_BIT_ARB, None};
        if (createContextAttribs)
            context = createContextAttribs(deviceContext->display, deviceContext->frameBufferConfig, nullptr, True,
                                           attributes);
    }
    if (!context)
        context =
            glXCreateNewContext(deviceContext->display, deviceContext->frameBufferConfig, GLX_RGBA_TYPE, nullptr, True);
    if (!context)
        return nullptr;
    if (deviceContext->display == X11::display())
        contexts.emplace_back(deviceContext->display, context);
    glXMakeContextCurrent(deviceContext->display, deviceContext->drawable, deviceContext->drawable, context);
    return context;
}

void* Detail::getProcAddress(const char* name)
{
    // With GLVND the GLX lookup returns dispatch stubs that serve EGL contexts as well.
    return reinterpret_cast<void*>(glXGetProcAddressARB(reinterpret_cast<const GLubyte*>(name)));
}

namespace X11
{
void destroyContexts(Display* display)
{
    if (glXGetCurrentContext() && glXGetCurrentDisplay() == display)
        glXMakeContextCurrent(display, None, None, nullptr);
    std::vector<std::pair<Display*, GLXContext>> kept;
    for (const auto& entry : contexts)
    {
        if (entry.first == display)
            glXDestroyContext(display, entry.second);
        else
            kept.push_back(entry);
    }
    contexts.swap(kept);
}
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
