// Building a mip chain, RGBA8, wall-clock time with glFinish, each row against the baseline that
// does the same job on the same size:
//  - PyramidDevice in place (levels 1 and up of a texture) against glGenerateMipmap on it;
//  - PyramidDevice copying (level 0 copied from an input, then the chain) against the render
//    device doing the same: level 0 copied, then one pass per level, four texelFetch taps a texel;
//  - that render device against raw GL making the same passes;
//  - a render device building glGenerateMipmap's chain (level 0 left as it is, one bilinear tap
//    a texel) against glGenerateMipmap.
// Every row also prints the bytes the job must move at least (read level 0 once, write each
// level it fills once) and the effective GB/s of both sides.
#include "BenchSupport.h"

#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/Program.h>
#include <opengl/PyramidDevice.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>

#include <memory>
#include <string>

using namespace Tavrin::OpenGL;

namespace
{
const std::string stepStruct = TavrinBench::passFragmentHeader + R"(uniform sampler2D Texture2DFramebufferTexture2D;
out vec4 colour;
)";

// Level 0 copies the input; every further level averages the 2x2 texels below it.
const char* const boxPasses = R"(
uniform sampler2D source;
void main()
{
    ivec2 p = ivec2(gl_FragCoord.xy);
    int level = framebufferDeviceStep.mipLevelIndex;
    if (level == 0)
    {
        colour = texelFetch(source, p, 0);
        return;
    }
    colour = 0.25 * (texelFetch(Texture2DFramebufferTexture2D, 2 * p, level - 1) +
                     texelFetch(Texture2DFramebufferTexture2D, 2 * p + ivec2(1, 0), level - 1) +
                     texelFetch(Texture2DFramebufferTexture2D, 2 * p + ivec2(0, 1), level - 1) +
                     texelFetch(Texture2DFramebufferTexture2D, 2 * p + ivec2(1, 1), level - 1));
}
)";

// One bilinear tap at the texel's centre in the level below: glGenerateMipmap's filter.
const char* const bilinearPasses = R"(
void main()
{
    vec2 centre = gl_FragCoord.xy / vec2(framebufferDeviceStep.resolution);
    colour = textureLod(Texture2DFramebufferTexture2D, centre, float(framebufferDeviceStep.mipLevelIndex - 1));
}
)";

int chainLength(int side)
{
    int levels = 1;
    for (; side > 1; side >>= 1)
        ++levels;
    return levels;
}

double levelBytes(int side, int level)
{
    const double levelSide = double(std::max(side >> level, 1));
    return levelSide * levelSide * 4.0;
}

// Read level 0 once, write levels `from` and up once.
double chainBytes(int side, int from)
{
    double bytes = levelBytes(side, 0);
    for (int level = from; level < chainLength(side); ++level)
        bytes += levelBytes(side, level);
    return bytes;
}

// An RGBA8 texture of `levels` levels, level 0 filled; sampled with linear filtering within a level.
std::shared_ptr<Texture2D> filledTexture(int side, int levels)
{
    auto texture = std::make_shared<Texture2D>();
    texture->reserveStorage(levels, Eigen::Vector2i(side, side), GL_RGBA8);
    const GLubyte colour[4] = {200, 120, 40, 255};
    glClearTexImage(texture->getHandle(), 0, GL_RGBA, GL_UNSIGNED_BYTE, colour);
    glTextureParameteriEXT(texture->getHandle(), GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_NEAREST);
    TavrinBench::checkRawGL();
    return texture;
}

void finishedUpdate(Tavrin::Device& device)
{
    device.update();
    glFinish();
}

// The render device of two rows: either the box passes from an input, level 0 copied, or the
// bilinear passes over the output alone, level 0 left as it is.
class RenderPyramid : public FramebufferTexture2DDevice
{
public:
    RenderPyramid(int side, bool bilinear) : side(side), bilinear(bilinear)
    {
        const std::string fragment = stepStruct + (bilinear ? bilinearPasses : boxPasses);
        program.reset(Program::loadFromSource(TavrinBench::passVertexShader, "", "", "", fragment, ""));
        outputTextures.resize(1);
        outputTextures[0].texture = filledTexture(side, chainLength(side));
        if (!bilinear)
        {
            inputTextures.resize(1);
            inputTextures[0].texture = filledTexture(side, 1);
        }
        finishedUpdate(*this);
    }
    const Eigen::Vector2i getResolution() const override { return Eigen::Vector2i(side, side); }

    // What raw GL needs to make the same passes.
    GLuint programName() const { return program->getHandle(); }
    GLuint input() const { return inputTextures[0].texture->getHandle(); }
    GLuint output() const { return outputTextures[0].texture->getHandle(); }
    GLuint framebuffer(int level) const { return framebuffers[std::size_t(level)]->getHandle(); }

protected:
    int getMipLevelCount() const override { return chainLength(side); }
    unsigned int getOutputFormat(int) const override { return GL_RGBA8; }
    std::string getInputSamplerName(int) const override { return "source"; }
    void beforeRendering() override { pass = 0; }
    void drawGeometry() override
    {
        if (pass++ > 0 || !bilinear)
            FramebufferTexture2DDevice::drawGeometry();
    }

private:
    int side;
    bool bilinear;
    int pass = 0;
};

// The box passes in raw GL: the same program, framebuffers, uniforms, bindings and quads.
void rawBoxPasses(const RenderPyramid& device, int side)
{
    const GLuint program = device.programName();
    const GLint resolution = glGetUniformLocation(program, "framebufferDeviceStep.resolution");
    const GLint levelIndex = glGetUniformLocation(program, "framebufferDeviceStep.mipLevelIndex");
    glUseProgram(program);
    glProgramUniform1iEXT(program, glGetUniformLocation(program, "framebufferDeviceStep.mipLevelCount"),
                          chainLength(side));
    glProgramUniform1iEXT(program, glGetUniformLocation(program, "source"), 0);
    glProgramUniform1iEXT(program, glGetUniformLocation(program, "Texture2DFramebufferTexture2D"), 1);
    glDisable(GL_CULL_FACE);
    glDisable(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, device.input());
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, device.output());
    const GLenum drawBuffer = GL_COLOR_ATTACHMENT0;
    for (int level = 0; level < chainLength(side); ++level)
    {
        const int levelSide = std::max(side >> level, 1);
        glUniform2i(resolution, levelSide, levelSide);
        glUniform1i(levelIndex, level);
        glViewport(0, 0, levelSide, levelSide);
        glBindFramebuffer(GL_FRAMEBUFFER, device.framebuffer(level));
        glFramebufferDrawBuffersEXT(device.framebuffer(level), 1, &drawBuffer);
        glBegin(GL_QUADS);
        glTexCoord2f(0.0f, 0.0f);
        glVertex2f(-1.0f, -1.0f);
        glTexCoord2f(0.0f, 1.0f);
        glVertex2f(-1.0f, 1.0f);
        glTexCoord2f(1.0f, 1.0f);
        glVertex2f(1.0f, 1.0f);
        glTexCoord2f(1.0f, 0.0f);
        glVertex2f(1.0f, -1.0f);
        glEnd();
    }
    glActiveTexture(GL_TEXTURE0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glUseProgram(0);
    TavrinBench::checkRawGL();
}

void PyramidInPlace(benchmark::State& state)
{
    const int side = int(state.range(0));
    const std::shared_ptr<Texture2D> texture = filledTexture(side, chainLength(side));
    PyramidDevice device;
    device.setInputTexture(0, texture);
    device.setOutputTexture(0, texture);
    finishedUpdate(device);
    for (auto _ : state)
        finishedUpdate(device);
}

void GenerateMipmap(benchmark::State& state)
{
    const int side = int(state.range(0));
    const std::shared_ptr<Texture2D> chain = filledTexture(side, chainLength(side));
    const GLuint texture = chain->getHandle();
    glGenerateTextureMipmapEXT(texture, GL_TEXTURE_2D);
    glFinish();
    for (auto _ : state)
    {
        glGenerateTextureMipmapEXT(texture, GL_TEXTURE_2D);
        glFinish();
    }
    TavrinBench::checkRawGL();
}

void PyramidCopying(benchmark::State& state)
{
    const int side = int(state.range(0));
    PyramidDevice device;
    device.setInputTexture(0, filledTexture(side, 1));
    device.setOutputTexture(0, std::make_shared<Texture2D>());
    finishedUpdate(device);
    for (auto _ : state)
        finishedUpdate(device);
}

void RenderBoxPasses(benchmark::State& state)
{
    RenderPyramid device(int(state.range(0)), false);
    for (auto _ : state)
        finishedUpdate(device);
}

void RawBoxPasses(benchmark::State& state)
{
    const int side = int(state.range(0));
    const RenderPyramid device(side, false);
    for (auto _ : state)
    {
        rawBoxPasses(device, side);
        glFinish();
    }
}

void RenderBilinearPasses(benchmark::State& state)
{
    RenderPyramid device(int(state.range(0)), true);
    for (auto _ : state)
        finishedUpdate(device);
}

void pyramidRun(benchmark::internal::Benchmark* benchmark)
{
    TavrinBench::shortRun(benchmark);
    benchmark->UseRealTime();
}

const int sides[] = {256, 1024, 2048, 4096, 8192};

void allSizes(benchmark::internal::Benchmark* benchmark)
{
    for (int side : sides)
        benchmark->Arg(side);
}

bool addPyramidRatios()
{
    for (int side : sides)
    {
        const std::string size = std::to_string(side), arg = "/" + size;
        TavrinBench::addRatio("PyramidDevice in place vs glGenerateMipmap, " + size + "^2", "PyramidInPlace" + arg,
                              "GenerateMipmap" + arg, TavrinBench::Clock::Real, chainBytes(side, 1));
        TavrinBench::addRatio("Render device bilinear chain vs glGenerateMipmap, " + size + "^2",
                              "RenderBilinearPasses" + arg, "GenerateMipmap" + arg, TavrinBench::Clock::Real,
                              chainBytes(side, 1));
        TavrinBench::addRatio("PyramidDevice copying vs render device box passes, " + size + "^2",
                              "PyramidCopying" + arg, "RenderBoxPasses" + arg, TavrinBench::Clock::Real,
                              chainBytes(side, 0));
        TavrinBench::addRatio("Render device box passes vs raw GL passes, " + size + "^2", "RenderBoxPasses" + arg,
                              "RawBoxPasses" + arg, TavrinBench::Clock::Real, chainBytes(side, 0));
    }
    return true;
}
} // namespace

BENCHMARK(PyramidInPlace)->Apply(allSizes)->Apply(pyramidRun);
BENCHMARK(GenerateMipmap)->Apply(allSizes)->Apply(pyramidRun);
BENCHMARK(RenderBilinearPasses)->Apply(allSizes)->Apply(pyramidRun);
BENCHMARK(PyramidCopying)->Apply(allSizes)->Apply(pyramidRun);
BENCHMARK(RenderBoxPasses)->Apply(allSizes)->Apply(pyramidRun);
BENCHMARK(RawBoxPasses)->Apply(allSizes)->Apply(pyramidRun);

namespace
{
const bool pyramidRatiosAdded = addPyramidRatios();
}
