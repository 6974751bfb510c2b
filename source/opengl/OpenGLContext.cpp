#include <opengl/OpenGLContext.h>

#include "ProcAddress.h"

#include <GL/glew.h>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
bool debugContexts = false;
} // namespace

void OpenGLContext::requestDebugContexts(bool request)
{
    debugContexts = request;
}

bool OpenGLContext::debugContextsRequested()
{
    return debugContexts;
}

void OpenGLContext::init()
{
    glewInit();
    // Mesa has glTextureStorage2DEXT but no GL_EXT_texture_storage, so GLEW leaves it null and
    // the first Texture2D::reserveStorage would crash.
    if (!glTextureStorage2DEXT && GLEW_EXT_direct_state_access && GLEW_ARB_texture_storage)
        glTextureStorage2DEXT =
            reinterpret_cast<PFNGLTEXTURESTORAGE2DEXTPROC>(Detail::getProcAddress("glTextureStorage2DEXT"));
}
} // namespace OpenGL
} // namespace Tavrin
