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

__GLXFBConfigRec* chooseFrameBufferConfig(Display* display, int screen)
{
    int count = 0;
    GLXFBConfig* configs = glXGetFBConfigs(display, screen, &count);
    if (!configs)
        return nullptr;
    const int rootDepth = DefaultDepth(display, screen);
    GLXFBConfig best = nullptr;
    std::vector<int> bestKey;
    for (int index = 0; index < count; ++index)
    {
        auto attribute = [&](int name) {
            int value = 0;
            glXGetFBConfigAttrib(display, configs[index], name, &value);
            return value;
        };
        if (!(attribute(GLX_DRAWABLE_TYPE) & GLX_WINDOW_BIT) || !(attribute(GLX_RENDER_TYPE) & GLX_RGBA_BIT) ||
            !attribute(GLX_DOUBLEBUFFER) || !attribute(GLX_X_RENDERABLE) || attribute(GLX_RED_SIZE) < 8 ||
            attribute(GLX_GREEN_SIZE) < 8 || attribute(GLX_BLUE_SIZE) < 8)
            continue;
        XVisualInfo* visual = glXGetVisualFromFBConfig(display, configs[index]);
        if (!visual)
            continue;
        const int visualDepth = visual->depth;
        XFree(visual);
        const int colourExcess = attribute(GLX_RED_SIZE) + attribute(GLX_GREEN_SIZE) + attribute(GLX_BLUE_SIZE) - 24;
        const int accumulation = attribute(GLX_ACCUM_RED_SIZE) + attribute(GLX_ACCUM_GREEN_SIZE) +
                                 attribute(GLX_ACCUM_BLUE_SIZE) + attribute(GLX_ACCUM_ALPHA_SIZE);
        // Smaller is better, element by element.
        const std::vector<int> key = {attribute(GLX_STEREO) ? 0 : 1,
                                      attribute(GLX_CONFIG_CAVEAT) == GLX_NONE ? 0 : 1,
                                      attribute(GLX_ALPHA_SIZE) == 8 ? 0 : 1,
                                      attribute(GLX_DEPTH_SIZE),
                                      attribute(GLX_STENCIL_SIZE),
                                      accumulation,
                                      attribute(GLX_AUX_BUFFERS),
                                      attribute(GLX_SAMPLE_BUFFERS),
                                      colourExcess,
                                      visualDepth == rootDepth ? 0 : 1,
                                      attribute(GLX_FBCONFIG_ID)};
        if (!best || key < bestKey)
        {
            best = configs[index];
            bestKey = key;
        }
    }
    XFree(configs);
    return best;
}
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
