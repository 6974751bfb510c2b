// Steady-state device updates against hand-written raw GL making the same GL calls, with the GL
// check on and off, and with the check off and driver debug output on (errors thrown) against
// unchecked raw GL. The mip chain rows are in PyramidBench.cpp.
#include "BenchSupport.h"

#include <opengl/ComputeDevice.h>
#include <opengl/DebugOutput.h>
#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/GLCheck.h>
#include <opengl/Program.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

using namespace Tavrin::OpenGL;
using TavrinBench::checkRawGL;
using TavrinBench::CheckSwitch;

namespace
{
// The library's error reporting for one run, by benchmark argument: 0 the GL check off, 1 on,
// 2 off with debug output on (synchronous, errors thrown at the checks).
class Reporting
{
public:
    explicit Reporting(std::int64_t mode) : checkSwitch(mode == 1)
    {
        DebugOutput::Options options;
        options.throwOnError = true;
        if (mode == 2 && !DebugOutput::enable(options))
            throw std::runtime_error("no debug output");
    }
    ~Reporting() { DebugOutput::disable(); }

private:
    CheckSwitch checkSwitch;
};

// Small textures: the updates are to measure what the library adds on the CPU, not the GPU.
const Eigen::Vector2i smallSize(8, 8);

const char* const computeShader = R"(#version 430
layout(local_size_x = 4, local_size_y = 4) in;
uniform sampler2D source;
layout(rgba32f) uniform image2D doubled;
layout(rgba32f) uniform image2D swizzled;
void main()
{
    ivec2 p = ivec2(gl_GlobalInvocationID.xy);
    vec4 v = texelFetch(source, p, 0);
    imageStore(doubled, p, 2.0 * v + 1.0);
    imageStore(swizzled, p, v.wzyx);
}
)";

// Level 0 copies the input; each further level averages 2x2 texels of the level below.
const std::string pyramidShader = TavrinBench::passFragmentHeader + R"(uniform sampler2D source;
uniform sampler2D pyramidTexture2DFramebufferTexture2D;
layout(location = 0) out vec4 pyramid;
layout(location = 1) out vec4 info;
void main()
{
    ivec2 p = ivec2(gl_FragCoord.xy);
    int level = framebufferDeviceStep.mipLevelIndex;
    if (level == 0)
        pyramid = texelFetch(source, p, 0);
    else
    {
        ivec2 last = textureSize(pyramidTexture2DFramebufferTexture2D, level - 1) - 1;
        pyramid = 0.25 * (texelFetch(pyramidTexture2DFramebufferTexture2D, min(2 * p, last), level - 1) +
                          texelFetch(pyramidTexture2DFramebufferTexture2D, min(2 * p + ivec2(1, 0), last), level - 1) +
                          texelFetch(pyramidTexture2DFramebufferTexture2D, min(2 * p + ivec2(0, 1), last), level - 1) +
                          texelFetch(pyramidTexture2DFramebufferTexture2D, min(2 * p + ivec2(1, 1), last), level - 1));
    }
    info = vec4(framebufferDeviceStep.resolution, level, framebufferDeviceStep.mipLevelCount);
}
)";

std::shared_ptr<Texture2D> texture(const Eigen::Vector2i& size, unsigned int format, int levels = 1)
{
    auto result = std::make_shared<Texture2D>();
    result->reserveStorage(levels, size, format);
    return result;
}

// --- The library's GL work, spelled out in raw GL ----------------------------------------

template <bool checked> void check()
{
    if (checked)
        checkRawGL();
}

GLint maxTextureUnits()
{
    GLint units = 0;
    glGetIntegerv(GL_MAX_TEXTURE_IMAGE_UNITS, &units);
    return units;
}

// Texture2D::pushToProgram: the image-uniform test, bind, sampler uniform, next unit.
template <bool checked> void rawPush(GLuint program, GLuint name, const char* sampler, GLint unitLimit)
{
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    GLint uniformCount = 0;
    glGetProgramiv(program, GL_ACTIVE_UNIFORMS, &uniformCount);
    for (GLint i = 0; i < uniformCount; ++i)
    {
        char buffer[256] = {};
        GLsizei length = 0;
        GLint size = 0;
        GLenum type = 0;
        glGetActiveUniform(program, GLuint(i), 255, &length, &size, &type, buffer);
        if (std::strcmp(buffer, sampler) == 0)
        {
            check<checked>();
            if (type >= GL_IMAGE_1D && type <= GL_UNSIGNED_INT_IMAGE_2D_MULTISAMPLE_ARRAY)
                throw std::runtime_error("image uniform");
            break;
        }
    }
    glBindTexture(GL_TEXTURE_2D, name);
    glProgramUniform1iEXT(program, glGetUniformLocation(program, sampler), active - GL_TEXTURE0);
    check<checked>();
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    if (active - GL_TEXTURE0 >= unitLimit)
        throw std::runtime_error("Too many textures");
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    glActiveTexture(GLenum(active + 1));
    check<checked>();
}

template <bool checked> void rawPop()
{
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    glActiveTexture(GLenum(active - 1));
    check<checked>();
    check<checked>();
}

template <bool checked> void rawUniform(GLuint program, const char* name, int value)
{
    glProgramUniform1iEXT(program, glGetUniformLocation(program, name), value);
    check<checked>();
}

GLint levelParameter(GLuint name, GLint level, GLenum parameter)
{
    GLint value = 0;
    glGetTextureLevelParameterivEXT(name, GL_TEXTURE_2D, level, parameter, &value);
    return value;
}

// Texture2D::getMipLevelCount.
int rawMipLevelCount(GLuint name)
{
    GLint maxSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
    int limit = 0;
    for (GLint side = maxSize; side > 0; side >>= 1)
        ++limit;
    GLint width = levelParameter(name, 0, GL_TEXTURE_WIDTH);
    int count = 0;
    while (width != 0 && width != 0x501)
    {
        if (++count >= limit)
            break;
        width = levelParameter(name, count, GL_TEXTURE_WIDTH);
    }
    return count;
}

// OpenGLTools::drawViewportQuad((0, 0), (1, 1)).
void rawViewportQuad()
{
    glPushMatrix();
    glTranslatef(0.0f, 0.0f, 0.0f);
    glScalef(1.0f, 1.0f, 1.0f);
    glBegin(GL_QUADS);
    glColor4f(1.0f, 1.0f, 1.0f, 1.0f);
    glTexCoord2f(0.0f, 0.0f);
    glVertex2f(-1.0f, -1.0f);
    glTexCoord2f(0.0f, 1.0f);
    glVertex2f(-1.0f, 1.0f);
    glTexCoord2f(1.0f, 1.0f);
    glVertex2f(1.0f, 1.0f);
    glTexCoord2f(1.0f, 0.0f);
    glVertex2f(1.0f, -1.0f);
    glEnd();
    glPopMatrix();
}

// --- Compute device ------------------------------------------------------------------------

class BenchComputeDevice : public ComputeDevice
{
public:
    BenchComputeDevice()
    {
        program.reset(Program::loadFromSource("", "", "", "", "", computeShader));
        inputTextures.resize(1);
        outputTextures.resize(2);
        inputTextures[0].texture = texture(smallSize, GL_RGBA32F);
        outputTextures[0].texture = texture(smallSize, GL_RGBA32F);
        outputTextures[1].texture = texture(smallSize, GL_RGBA32F);
    }
    const Eigen::Vector3i getGroupCount() const override { return Eigen::Vector3i(2, 2, 1); }
    GLuint programName() const { return program->getHandle(); }
    GLuint input() const { return inputTextures[0].texture->getHandle(); }
    GLuint output(int j) const { return outputTextures[std::size_t(j)].texture->getHandle(); }

protected:
    std::string getInputSamplerName(int) const override { return "source"; }
    std::string getOutputTextureName(int i) const override { return i == 0 ? "doubled" : "swizzled"; }
};

template <bool checked> void rawComputeUpdate(const BenchComputeDevice& device, GLint unitLimit)
{
    static const char* const images[] = {"doubled", "swizzled"};
    const GLuint program = device.programName();
    glUseProgram(program);
    rawPush<checked>(program, device.input(), "source", unitLimit);
    for (int j = 0; j < 2; ++j)
    {
        rawUniform<checked>(program, images[j], j);
        const GLint format = levelParameter(device.output(j), 0, GL_TEXTURE_INTERNAL_FORMAT);
        glBindImageTexture(GLuint(j), device.output(j), 0, GL_FALSE, 0, GL_READ_WRITE, GLenum(format));
        check<checked>();
    }
    glDispatchCompute(2, 2, 1);
    check<checked>();
    for (int j = 1; j >= 0; --j)
    {
        glBindImageTexture(GLuint(j), 0, 0, GL_TRUE, 0, GL_READ_ONLY, GL_RGBA16F);
        check<checked>();
    }
    rawPop<checked>();
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    check<checked>();
    glUseProgram(0);
    glFinish();
}

void ComputeUpdateLibrary(benchmark::State& state)
{
    const Reporting reporting(state.range(0));
    BenchComputeDevice device;
    device.update();
    for (auto _ : state)
        device.update();
}

void ComputeUpdateRawGL(benchmark::State& state)
{
    BenchComputeDevice device;
    device.update();
    const GLint unitLimit = maxTextureUnits();
    for (auto _ : state)
        if (state.range(0) == 1)
            rawComputeUpdate<true>(device, unitLimit);
        else
            rawComputeUpdate<false>(device, unitLimit);
}

// --- Framebuffer device --------------------------------------------------------------------

class BenchPyramidDevice : public FramebufferTexture2DDevice
{
public:
    BenchPyramidDevice(const Eigen::Vector2i& size, unsigned int format, int levels, int outputs) : levels(levels)
    {
        program.reset(Program::loadFromSource(TavrinBench::passVertexShader, "", "", "", pyramidShader, ""));
        inputTextures.resize(1);
        outputTextures.resize(std::size_t(outputs));
        inputTextures[0].texture = texture(size, format);
        for (auto& output : outputTextures)
            output.texture = std::make_shared<Texture2D>();
    }
    GLuint programName() const { return program->getHandle(); }
    GLuint input() const { return inputTextures[0].texture->getHandle(); }
    GLuint output(int j) const { return outputTextures[std::size_t(j)].texture->getHandle(); }
    int outputCount() const { return int(outputTextures.size()); }
    GLuint framebuffer(int level) const { return framebuffers[std::size_t(level)]->getHandle(); }
    int getMipLevelCount() const override { return levels; }

protected:
    std::string getInputSamplerName(int) const override { return "source"; }
    std::string getOutputTextureName(int i) const override { return i == 0 ? "pyramid" : "info"; }

private:
    int levels;
};

// The steady update of the pyramid device (default resolution, format and geometry).
template <bool checked> void rawPyramidUpdate(const BenchPyramidDevice& device, GLint unitLimit)
{
    static const char* const samplers[] = {"pyramidTexture2DFramebufferTexture2D", "infoTexture2DFramebufferTexture2D"};
    const int levels = device.getMipLevelCount();
    const int outputs = device.outputCount();
    const GLuint program = device.programName(), input = device.input();
    const GLint width = levelParameter(input, 0, GL_TEXTURE_WIDTH),
                height = levelParameter(input, 0, GL_TEXTURE_HEIGHT);
    int drawBufferCount = 0;
    for (int i = 0; i < outputs; ++i)
    {
        const GLuint output = device.output(i);
        const GLint format = levelParameter(output, 0, GL_TEXTURE_INTERNAL_FORMAT);
        if (format != GL_DEPTH_COMPONENT32)
            ++drawBufferCount;
        const GLint wanted = levelParameter(input, 0, GL_TEXTURE_INTERNAL_FORMAT);
        const bool fits = levelParameter(output, 0, GL_TEXTURE_WIDTH) == width &&
                          levelParameter(output, 0, GL_TEXTURE_HEIGHT) == height && format == wanted &&
                          rawMipLevelCount(output) >= levels;
        if (!fits)
            throw std::runtime_error("the steady baseline expects allocated outputs");
    }
    glUseProgram(program);
    rawUniform<checked>(program, "framebufferDeviceStep.mipLevelCount", levels);
    rawUniform<checked>(program, "framebufferDeviceStep.stepCount", 1);
    rawUniform<checked>(program, "framebufferDeviceStep.layerCount", 1);
    rawUniform<checked>(program, "framebufferDeviceStep.index", 0);
    glDisable(GL_CULL_FACE);
    glDisable(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_TEXTURE_2D);
    rawPush<checked>(program, input, "source", unitLimit);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glClearColor(0.0f, 0.0f, 0.0f, 0.0f);

    static const GLenum attachments[16] = {
        GL_COLOR_ATTACHMENT0,  GL_COLOR_ATTACHMENT1,  GL_COLOR_ATTACHMENT2,  GL_COLOR_ATTACHMENT3,
        GL_COLOR_ATTACHMENT4,  GL_COLOR_ATTACHMENT5,  GL_COLOR_ATTACHMENT6,  GL_COLOR_ATTACHMENT7,
        GL_COLOR_ATTACHMENT8,  GL_COLOR_ATTACHMENT9,  GL_COLOR_ATTACHMENT10, GL_COLOR_ATTACHMENT11,
        GL_COLOR_ATTACHMENT12, GL_COLOR_ATTACHMENT13, GL_COLOR_ATTACHMENT14, GL_COLOR_ATTACHMENT15};
    GLint size[2] = {width, height};
    for (int level = 0; level < levels; ++level)
    {
        if (level >= 1)
            for (int j = 0; j < outputs; ++j)
                rawPush<checked>(program, device.output(j), samplers[j], unitLimit);
        glUniform2iv(glGetUniformLocation(program, "framebufferDeviceStep.resolution"), 1, size);
        check<checked>();
        rawUniform<checked>(program, "framebufferDeviceStep.mipLevelIndex", level);
        glViewport(0, 0, size[0], size[1]);
        const GLuint framebuffer = device.framebuffer(level);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        check<checked>();
        glFramebufferDrawBuffersEXT(framebuffer, drawBufferCount, attachments);
        rawViewportQuad();
        if (level >= 1)
            for (int j = 0; j < outputs; ++j)
                rawPop<checked>();
        size[0] = size[0] >> 1 < 1 ? 1 : size[0] >> 1;
        size[1] = size[1] >> 1 < 1 ? 1 : size[1] >> 1;
    }
    rawPop<checked>();
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    check<checked>();
    glUseProgram(0);
}

// The pyramid device as the updates measure it: 8 x 8 RGBA32F, two levels, two outputs.
BenchPyramidDevice steadyPyramid()
{
    BenchPyramidDevice device(smallSize, GL_RGBA32F, 2, 2);
    device.update();
    glFinish();
    return device;
}

void FramebufferUpdateLibrary(benchmark::State& state)
{
    const Reporting reporting(state.range(0));
    BenchPyramidDevice device = steadyPyramid();
    for (auto _ : state)
        device.update();
    glFinish();
}

void FramebufferUpdateRawGL(benchmark::State& state)
{
    BenchPyramidDevice device = steadyPyramid();
    const GLint unitLimit = maxTextureUnits();
    for (auto _ : state)
        if (state.range(0) == 1)
            rawPyramidUpdate<true>(device, unitLimit);
        else
            rawPyramidUpdate<false>(device, unitLimit);
    glFinish();
}

} // namespace

BENCHMARK(ComputeUpdateLibrary)->Arg(0)->Arg(1)->Arg(2)->Apply(TavrinBench::shortRun);
BENCHMARK(ComputeUpdateRawGL)->Arg(0)->Arg(1)->Arg(2)->Apply(TavrinBench::shortRun);
BENCHMARK(FramebufferUpdateLibrary)->Arg(0)->Arg(1)->Arg(2)->Apply(TavrinBench::shortRun);
BENCHMARK(FramebufferUpdateRawGL)->Arg(0)->Arg(1)->Arg(2)->Apply(TavrinBench::shortRun);

namespace
{
const bool ratiosAdded =
    TavrinBench::addRatio("ComputeDevice::update, GL check off", "ComputeUpdateLibrary/0", "ComputeUpdateRawGL/0") &&
    TavrinBench::addRatio("ComputeDevice::update, GL check on", "ComputeUpdateLibrary/1", "ComputeUpdateRawGL/1") &&
    TavrinBench::addRatio("FramebufferTexture2DDevice::update, GL check off", "FramebufferUpdateLibrary/0",
                          "FramebufferUpdateRawGL/0") &&
    TavrinBench::addRatio("FramebufferTexture2DDevice::update, GL check on", "FramebufferUpdateLibrary/1",
                          "FramebufferUpdateRawGL/1") &&
    TavrinBench::addRatio("ComputeDevice::update, check off, debug output on", "ComputeUpdateLibrary/2",
                          "ComputeUpdateRawGL/2") &&
    TavrinBench::addRatio("FramebufferTexture2DDevice::update, check off, debug output on",
                          "FramebufferUpdateLibrary/2", "FramebufferUpdateRawGL/2");
}
