#include <opengl/Texture2D.h>

#include <opengl/GLCheck.h>
#include <opengl/Program.h>

#include <GL/glew.h>

#include <climits>
#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
// GL_MAX_TEXTURE_IMAGE_UNITS, read on the first push and kept for the life of the process.
int maxTextureImageUnits = 0;

// Levels a texture of the given side can have at most: the bit length of the side.
int levelsForSide(int side)
{
    int levels = 0;
    for (; side > 0; side >>= 1)
        ++levels;
    return levels;
}

struct TransferFormat
{
    GLenum format;
    GLenum type;
};

// The pixel transfer format that matches an Image2D format texel for texel; format 0 if none.
TransferFormat imageTransferFormat(GLint internalFormat)
{
    switch (internalFormat)
    {
    case GL_R8:
        return {GL_RED, GL_UNSIGNED_BYTE};
    case GL_RG8:
        return {GL_RG, GL_UNSIGNED_BYTE};
    case GL_RGB8:
        return {GL_RGB, GL_UNSIGNED_BYTE};
    case GL_RGBA8:
        return {GL_RGBA, GL_UNSIGNED_BYTE};
    case GL_R32F:
        return {GL_RED, GL_FLOAT};
    case GL_RGBA32F:
        return {GL_RGBA, GL_FLOAT};
    default:
        return {0, 0};
    }
}

// Whether the program's uniform of that name (array subscript dropped) has an image type.
// GL names an active uniform array "name[0]", which never equals the bare name, so arrays
// are never taken for images.
bool isImageUniform(const Program* const program, const std::string& uniformName)
{
    // The first piece that StringTools::tokenize(uniformName, "[") would give (the name without
    // an array subscript), found in place: this runs on every push of every device update. A
    // name with no piece (empty, or only '[') is looked up as the empty name, matching nothing.
    const std::size_t begin = uniformName.find_first_not_of('[');
    const std::string_view baseName =
        begin == std::string::npos
            ? std::string_view()
            : std::string_view(uniformName).substr(begin, uniformName.find('[', begin) - begin);

    GLint uniformCount = 0;
    glGetProgramiv(program->getHandle(), GL_ACTIVE_UNIFORMS, &uniformCount);
    for (GLint i = 0; i < uniformCount; ++i)
    {
        char name[256] = {};
        GLsizei length = 0;
        GLint size = 0;
        GLenum type = 0;
        glGetActiveUniform(program->getHandle(), GLuint(i), 255, &length, &size, &type, name);
        if (baseName == std::string_view(name))
        {
            TAVRIN_GL_CHECK();
            return type >= GL_IMAGE_1D && type <= GL_UNSIGNED_INT_IMAGE_2D_MULTISAMPLE_ARRAY;
        }
    }
    return false;
}
} // namespace

Texture2D::Texture2D() : version(0), handle(0)
{
    glGenTextures(1, &handle);
    TAVRIN_GL_CHECK();
}

Texture2D::~Texture2D()
{
    glDeleteTextures(1, &handle);
    try
    {
        TAVRIN_GL_CHECK();
    }
    catch (const std::runtime_error&)
    {
        // Reported by the warning line already; throwing out of a destructor would terminate.
    }
}

unsigned int Texture2D::getTarget() const
{
    return GL_TEXTURE_2D;
}

void Texture2D::reserveStorage(int mipLevelCount, Eigen::Vector2i size, unsigned int internalFormat)
{
    // Storage is immutable: a new size or format needs a new texture object.
    glDeleteTextures(1, &handle);
    TAVRIN_GL_CHECK();
    glGenTextures(1, &handle);
    TAVRIN_GL_CHECK();
    glTextureStorage2DEXT(handle, GL_TEXTURE_2D, mipLevelCount, internalFormat, size.x(), size.y());
    TAVRIN_GL_CHECK();
    ++version;
}

Eigen::Vector2i Texture2D::getSize()
{
    GLint width = 0, height = 0;
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    return Eigen::Vector2i(width, height);
}

int Texture2D::getInternalFormat() const
{
    GLint format = 0;
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &format);
    return format;
}

int Texture2D::getMipLevelCount() const
{
    // GL rejects a query beyond its largest level and leaves the width at its previous value,
    // so a chain that reaches that level would never end the count: stop before asking.
    GLint maxSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
    const int levelLimit = maxSize > 0 ? levelsForSide(maxSize) : 1000;

    GLint width = 0;
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    int count = 0;
    // 0x501 is compared with the width itself (the value of GL_INVALID_VALUE); kept on purpose.
    while (width != 0 && width != 0x501)
    {
        ++count;
        if (count >= levelLimit)
            break;
        glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, count, GL_TEXTURE_WIDTH, &width);
    }
    return count;
}

int Texture2D::getFullMipLevelCount() const
{
    GLint width = 0, height = 0;
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    return fullMipLevelCount(width > height ? width : height);
}

int Texture2D::fullMipLevelCount(int maxSide)
{
    if (maxSide <= 0)
        return 0;
    // The mixed precision is deliberate (it gives 13 for 8192 and 15 for 32768): single
    // precision logarithm, double division, narrowed back to single before the floor.
    const float logOfSide = std::log(static_cast<float>(maxSide));
    const float quotient = static_cast<float>(static_cast<double>(logOfSide) / std::log(2.0));
    return static_cast<int>(std::floor(quotient)) + 1;
}

void Texture2D::uploadData(const Eigen::Vector2i& size, const void* data, unsigned int format, unsigned int type,
                           int level, int target) const
{
    glTextureSubImage2DEXT(handle, GLenum(target), level, 0, 0, size.x(), size.y(), format, type, data);
    TAVRIN_GL_CHECK();
}

void Texture2D::uploadImage(std::shared_ptr<const Tavrin::Image2D> image, int level, int target)
{
    const unsigned int imageFormat = image->getInternalFormat();
    unsigned int pixelFormat = 0;
    if (imageFormat == GL_RGB8)
        pixelFormat = GL_RGB;
    else if (imageFormat == GL_RGBA8)
        pixelFormat = GL_RGBA;
    else
        throw std::runtime_error("Unsupported image format.");

    const Eigen::Vector2i& size = image->getSize();
    bool fits = size == getSize();
    if (fits)
        fits = getInternalFormat() == int(imageFormat);
    if (!fits)
        reserveStorage(1, size, imageFormat);

    uploadData(size, image->getData(), pixelFormat, GL_UNSIGNED_BYTE, level, target);
}

void Texture2D::downloadData(int level, unsigned int format, unsigned int type, void* data, int bufferSize) const
{
    if (!glGetTextureImage)
        throw std::runtime_error("glGetTextureImage is not available");
    glGetTextureImage(handle, level, format, type, bufferSize, data);
    TAVRIN_GL_CHECK();
}

std::shared_ptr<Tavrin::Image2D> Texture2D::downloadImage(int level) const
{
    if (!glGetTextureImage)
        throw std::runtime_error("glGetTextureImage is not available");
    GLint width = 0, height = 0, internalFormat = 0;
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, &width);
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, &height);
    glGetTextureLevelParameterivEXT(handle, GL_TEXTURE_2D, level, GL_TEXTURE_INTERNAL_FORMAT, &internalFormat);
    TAVRIN_GL_CHECK();
    const TransferFormat transfer = imageTransferFormat(internalFormat);
    if (transfer.format == 0 || width <= 0 || height <= 0)
        throw std::runtime_error("Unsupported image format.");

    auto image = std::make_shared<Tavrin::Image2D>(Eigen::Vector2i(width, height), unsigned(internalFormat));
    if (image->getByteCount() > std::size_t(INT_MAX))
        throw std::runtime_error("Texture level too large to download");

    // Image2D rows are tightly packed and the data pointer is client memory.
    GLint alignment = 4, packBuffer = 0;
    glGetIntegerv(GL_PACK_ALIGNMENT, &alignment);
    glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &packBuffer);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glGetTextureImage(handle, level, transfer.format, transfer.type, GLsizei(image->getByteCount()), image->getData());
    glPixelStorei(GL_PACK_ALIGNMENT, alignment);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, GLuint(packBuffer));
    TAVRIN_GL_CHECK();
    return image;
}

void Texture2D::bind() const
{
    glBindTexture(GL_TEXTURE_2D, handle);
}

void Texture2D::unbind()
{
    glBindTexture(GL_TEXTURE_2D, 0);
}

void Texture2D::pushActiveTexture()
{
    GLint activeTexture = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &activeTexture);
    const int index = activeTexture - GL_TEXTURE0;
    if (maxTextureImageUnits == 0)
        glGetIntegerv(GL_MAX_TEXTURE_IMAGE_UNITS, &maxTextureImageUnits);
    // Tested on the unit before the step: the last unit still gets its push.
    if (index >= maxTextureImageUnits)
        throw std::runtime_error("Too many textures");
    glGetIntegerv(GL_ACTIVE_TEXTURE, &activeTexture);
    glActiveTexture(GLenum(activeTexture + 1));
    TAVRIN_GL_CHECK();
}

void Texture2D::popActiveTexture()
{
    GLint activeTexture = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &activeTexture);
    glActiveTexture(GLenum(activeTexture - 1));
    TAVRIN_GL_CHECK();
}

int Texture2D::getActiveTextureIndex()
{
    GLint activeTexture = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &activeTexture);
    return activeTexture - GL_TEXTURE0;
}

void Texture2D::pushToProgram(const Program* const program, const std::string& uniformName) const
{
    GLint activeTexture = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &activeTexture);
    const int unit = activeTexture - GL_TEXTURE0;
    if (isImageUniform(program, uniformName))
    {
        // Images go through bindImage; the second message covers a test that changes its mind.
        if (isImageUniform(program, uniformName))
            throw std::runtime_error("Unsupported bindImage");
        throw std::runtime_error("Binding a texture or image to uniform '" + uniformName + "' failed");
    }
    glBindTexture(GL_TEXTURE_2D, handle);
    program->uniform(uniformName, unit);
    pushActiveTexture();
}

void Texture2D::popFromProgram() const
{
    popActiveTexture();
    TAVRIN_GL_CHECK();
}

void Texture2D::bindImage(unsigned int unit, unsigned int level, int layer, unsigned int access) const
{
    const GLint format = getInternalFormat();
    glBindImageTexture(unit, handle, GLint(level), GL_FALSE, layer, access, GLenum(format));
    TAVRIN_GL_CHECK();
}

void Texture2D::unbindImage(unsigned int unit)
{
    // GL ignores these arguments for texture 0, but they must still be valid enumerants.
    glBindImageTexture(unit, 0, 0, GL_TRUE, 0, GL_READ_ONLY, GL_RGBA16F);
    TAVRIN_GL_CHECK();
}

Texture2DPtrAI::Texture2DPtrAI() : std::shared_ptr<Texture2D>(new Texture2D()) {}
} // namespace OpenGL
} // namespace Tavrin
