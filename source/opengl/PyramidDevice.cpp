#include <opengl/PyramidDevice.h>

#include "DeviceUpdateStart.h"

#include <opengl/GLCheck.h>

#include <GL/glew.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
// What the shader needs to know of an output format. Levels are bound either as packed bits
// (the unsigned-integer image format of the same texel size, unpacked in the shader: no format
// conversion in the image path, and the default average on RGBA8 works on the bytes directly)
// or, where GL cannot view the format that way, with the format itself.
struct OutputFormat
{
    GLenum internalFormat;
    const char* layout;
    GLenum packedFormat;
    const char* packedLayout;
    const char* packedType;
    const char* unpack; // GLSL vec4 of the packed texel `t`
    const char* pack;   // GLSL packed texel of the vec4 `v`, rounded as the format stores it
};

const OutputFormat outputFormats[] = {
    {GL_RGBA8, "rgba8", GL_R32UI, "r32ui", "uint", "unpackUnorm4x8(t)", "packUnorm4x8(v)"},
    {GL_RGBA16F, "rgba16f", GL_RG32UI, "rg32ui", "uvec2", "vec4(unpackHalf2x16(t.x), unpackHalf2x16(t.y))",
     "uvec2(packHalf2x16(v.xy), packHalf2x16(v.zw))"},
    {GL_RGBA32F, "rgba32f", GL_RGBA32UI, "rgba32ui", "uvec4", "uintBitsToFloat(t)", "floatBitsToUint(v)"},
    {GL_R32F, "r32f", GL_R32UI, "r32ui", "uint", "vec4(uintBitsToFloat(t), 0.0, 0.0, 1.0)", "floatBitsToUint(v.x)"},
    {GL_RG32F, "rg32f", GL_RG32UI, "rg32ui", "uvec2", "vec4(uintBitsToFloat(t), 0.0, 1.0)", "floatBitsToUint(v.xy)"},
};

const OutputFormat& outputFormat(unsigned int internalFormat)
{
    for (const OutputFormat& entry : outputFormats)
        if (entry.internalFormat == internalFormat)
            return entry;
    throw std::runtime_error("Unsupported image format.");
}

const int tileSide = 64;     // texels of the level read, per workgroup
const int tileLevels = 6;    // levels a workgroup reduces its tile through: 64 -> 1
const int maximumUnits = 16; // the most level images a program declares

// TEXEL is what travels between levels (a packed texel, or a vec4 already rounded to the
// format); LOAD and STORE move it in and out of a level image; levels[j] is the jth level after
// the one read. Texels outside a level need no care: GL reads them from an image as zero and drops
// stores to them, and they only ever feed other texels outside their level.
const char* const shaderBody = R"(
layout(std430, binding = 0) coherent buffer PyramidProgress
{
    uint finishedGroups;
};
uniform ivec2 sourceSize;
uniform int tileLevelCount;
uniform int tailLevelCount;
// Level 1 of the tile goes to A; each later step reads one of them and writes the other.
shared TEXEL tileLevelsA[1024];
shared TEXEL tileLevelsB[256];
shared bool lastGroup;

ivec2 levelSize(int j)
{
    return max(sourceSize >> j, ivec2(1));
}

// The offset of the second texel of a quad in level j: 0 where a side is one texel, so that
// the quad repeats it.
ivec2 quadStep(int j)
{
    return min(levelSize(j) - 1, ivec2(1));
}

// The reduction of a quad of a level held in shared memory, `row` texels a row, from index j.
#define SHARED_QUAD(array, j, row, next) \
    reduceTexels(array[j], array[j + next.x], array[j + next.y * row], array[j + next.y * row + next.x])

// The reduction of a 2 x 2 block held in registers, which repeats its first column or row where
// the level is one texel wide or high.
TEXEL blockTexel(TEXEL a, TEXEL b, TEXEL c, TEXEL d, ivec2 next)
{
    if (next.x == 0)
    {
        b = a;
        d = c;
    }
    if (next.y == 0)
    {
        c = a;
        d = b;
    }
    return reduceTexels(a, b, c, d);
}

#ifdef COPY_SOURCE
uniform sampler2D source;
TEXEL sourceTexel(ivec2 p)
{
    TEXEL t = roundTexel(texelFetch(source, min(p, sourceSize - 1), 0));
    STORE(levels[0], p, t);
    return t;
}
#else
TEXEL sourceTexel(ivec2 p)
{
    return LOAD(levels[0], p);
}
#endif

void main()
{
    ivec2 group = ivec2(gl_WorkGroupID.xy);
    int lane = int(gl_LocalInvocationIndex);
    // Level 1 of the tile, two rows of 32 texels at a time, so that neighbouring invocations
    // read neighbouring texels.
    ivec2 next = quadStep(0);
    for (int row = 0; row < 32; row += 2)
    {
        ivec2 local = ivec2(lane & 31, row + (lane >> 5)), p = group * 32 + local, s = 2 * p;
        TEXEL t = reduceTexels(sourceTexel(s), sourceTexel(s + ivec2(next.x, 0)), sourceTexel(s + ivec2(0, next.y)),
                               sourceTexel(s + next));
        if (tileLevelCount >= 1)
            STORE(levels[1], p, t);
        tileLevelsA[local.y * 32 + local.x] = t;
    }
    memoryBarrierShared();
    barrier();
)";

// Replaces each "$name" of `text` by its value.
std::string withValues(std::string text, const std::vector<std::pair<std::string, std::string>>& values)
{
    for (const auto& [name, value] : values)
        for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size()))
            text.replace(at, name.size(), value);
    return text;
}

// Level $K of the tile from level $K - 1 in shared memory: $W texels a side, up to 64 at a time.
const char* const sharedLevel = R"(
    if (tileLevelCount >= $K)
    {
        ivec2 next = quadStep($K - 1);
        for (int i = lane; i < $W * $W; i += 64)
        {
            ivec2 local = ivec2(i % $W, i / $W);
            TEXEL t = SHARED_QUAD($FROM, local.y * 4 * $W + local.x * 2, 2 * $W, next);
            STORE(levels[$K], group * $W + local, t);
            $TO[i] = t;
        }
        memoryBarrierShared();
        barrier();
    }
)";

// Levels $K and $K + 1 of the tile from level $K - 1 in shared memory, with one barrier: each of the
// first $V x $V invocations reduces a 4 x 4 block to 2 x 2 texels of level $K, held in registers,
// and those to one texel of level $K + 1. Barriers are what a level costs most on llvmpipe.
const char* const pairedLevels = R"(
    if (tileLevelCount >= $K)
    {
        ivec2 next = quadStep($K - 1), nextTwo = quadStep($K);
        if (lane < $V * $V)
        {
            ivec2 local = ivec2(lane % $V, lane / $V), q = group * 2 * $V + 2 * local;
            int j = local.y * 16 * $V + local.x * 4;
            TEXEL a = SHARED_QUAD($FROM, j, 4 * $V, next), b = SHARED_QUAD($FROM, j + 2, 4 * $V, next),
                  c = SHARED_QUAD($FROM, j + 8 * $V, 4 * $V, next), d = SHARED_QUAD($FROM, j + 8 * $V + 2, 4 * $V, next);
            STORE(levels[$K], q, a);
            STORE(levels[$K], q + ivec2(1, 0), b);
            STORE(levels[$K], q + ivec2(0, 1), c);
            STORE(levels[$K], q + ivec2(1, 1), d);
            TEXEL t = blockTexel(a, b, c, d, nextTwo);
            if (tileLevelCount >= $NEXT)
                STORE(levels[$NEXT], group * $V + local, t);
            $TO[lane] = t;
        }
        memoryBarrierShared();
        barrier();
    }
)";

// Levels 2 up to 6 of the tile (as many as the units hold), two at a time where they can be.
std::string sharedLevels(int units)
{
    std::string text, from = "tileLevelsA", to = "tileLevelsB";
    for (int level = 2; level <= tileLevels && level < units; std::swap(from, to))
    {
        const bool paired = level + 1 <= tileLevels && level + 1 < units;
        text += withValues(paired ? pairedLevels : sharedLevel, {{"$K", std::to_string(level)},
                                                                 {"$NEXT", std::to_string(level + 1)},
                                                                 {"$W", std::to_string(tileSide >> level)},
                                                                 {"$V", std::to_string(tileSide >> (level + 1))},
                                                                 {"$FROM", from},
                                                                 {"$TO", to}});
        level += paired ? 2 : 1;
    }
    return text;
}

// Levels 7 and up, reduced by the last workgroup alone from what every workgroup wrote. A loop
// rather than a block per level: the longer program slows llvmpipe's whole dispatch.
const char* const shaderTail = R"(
    if (tailLevelCount == 0)
        return;
    // What the other workgroups wrote is visible to the last one because every image is
    // coherent and each writer passed memoryBarrierImage.
    memoryBarrierImage();
    barrier();
    if (lane == 0)
    {
        lastGroup = atomicAdd(finishedGroups, 1u) == gl_NumWorkGroups.x * gl_NumWorkGroups.y - 1u;
        if (lastGroup)
            finishedGroups = 0u; // ready for the next dispatch
    }
    memoryBarrierShared();
    barrier();
    if (!lastGroup)
        return;
    for (int k = 7; k <= 6 + tailLevelCount; ++k)
    {
        ivec2 next = quadStep(k - 1), size = levelSize(k);
        for (int i = lane; i < size.x * size.y; i += 64)
        {
            ivec2 p = ivec2(i % size.x, i / size.x), a = 2 * p, b = a + next;
            STORE(levels[k], p, reduceTexels(LOAD(levels[k - 1], a), LOAD(levels[k - 1], ivec2(b.x, a.y)),
                                             LOAD(levels[k - 1], ivec2(a.x, b.y)), LOAD(levels[k - 1], b)));
        }
        memoryBarrierImage();
        barrier();
    }
)";

// The default average on packed RGBA8, a byte per channel: two floor averages and a ceiling
// average of those, which is the rounded mean of the four (a tie rounds either way).
const char* const packedByteAverage = R"(
uint reduceTexels(uint a, uint b, uint c, uint d)
{
    const uint low = 0x7F7F7F7Fu;
    uint lower = (a & b) + (((a ^ b) >> 1) & low), upper = (c & d) + (((c ^ d) >> 1) & low);
    return (lower | upper) - (((lower ^ upper) >> 1) & low);
}
)";

std::string shaderSource(const OutputFormat& format, bool packed, int units, const std::string& reduction, bool copying)
{
    const std::string type = format.packedType;
    const std::string load = type == "uint"    ? "imageLoad(image, p).x"
                             : type == "uvec2" ? "imageLoad(image, p).xy"
                                               : "imageLoad(image, p)";
    const std::string store = type == "uint" ? "uvec4(t, 0u, 0u, 0u)" : type == "uvec2" ? "uvec4(t, 0u, 0u)" : "t";
    std::string text = "#version 430\nlayout(local_size_x = 64) in;\n";
    // Two programs rather than a branch: llvmpipe pays for the sampling path even where it is not taken.
    if (copying)
        text += "#define COPY_SOURCE\n";
    if (packed)
        text += "#define TEXEL " + type + "\n#define LOAD(image, p) (" + load +
                ")\n#define STORE(image, p, t) imageStore(image, p, " + store + ")\n";
    else
        text += "#define TEXEL vec4\n#define LOAD(image, p) imageLoad(image, p)\n#define STORE(image, p, t) "
                "imageStore(image, p, t)\n";
    text += std::string("layout(binding = 0, ") + (packed ? format.packedLayout : format.layout) +
            ") coherent uniform " + (packed ? "uimage2D" : "image2D") + " levels[" + std::to_string(units) + "];\n";
    text += "vec4 unpackBits(" + type + " t)\n{\n    return " + format.unpack + ";\n}\n" + type +
            " packBits(vec4 v)\n{\n    return " + format.pack + ";\n}\n";
    // roundTexel: a vec4 as the format stores it, in the form that travels between levels.
    text += packed ? "TEXEL roundTexel(vec4 v)\n{\n    return packBits(v);\n}\nvec4 unpackTexel(TEXEL t)\n{\n    "
                     "return unpackBits(t);\n}\n"
                   : "TEXEL roundTexel(vec4 v)\n{\n    return unpackBits(packBits(v));\n}\nvec4 unpackTexel(TEXEL "
                     "t)\n{\n    return t;\n}\n";
    text += reduction + "\n";
    if (packed && format.internalFormat == GL_RGBA8 && reduction == PyramidDevice::averageReduction)
        text += packedByteAverage;
    else
        text +=
            "TEXEL reduceTexels(TEXEL a, TEXEL b, TEXEL c, TEXEL d)\n{\n    return roundTexel(reduce(unpackTexel(a), "
            "unpackTexel(b), unpackTexel(c), unpackTexel(d)));\n}\n";
    text += shaderBody;
    text += sharedLevels(units);
    if (units > tileLevels + 1)
        text += shaderTail;
    return text + "}\n";
}

Eigen::Vector2i levelZeroSize(const Texture2D& texture)
{
    GLint width = 0, height = 0;
    glGetTextureLevelParameterivEXT(texture.getHandle(), GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    glGetTextureLevelParameterivEXT(texture.getHandle(), GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    return Eigen::Vector2i(width, height);
}

// floor(log2(larger side)) + 1, exactly (Texture2D::fullMipLevelCount is one short at 8192).
int fullChainLength(const Eigen::Vector2i& size)
{
    int levels = 1;
    for (int side = std::max(size.x(), size.y()); side > 1; side >>= 1)
        ++levels;
    return levels;
}

int groupsFor(int side)
{
    return (side + tileSide - 1) / tileSide;
}

// Every access to the chain before and after a dispatch: sampling, images, the counter,
// read-back and uploads, framebuffer attachments, pixel buffers.
const GLbitfield chainBarrier = GL_TEXTURE_FETCH_BARRIER_BIT | GL_SHADER_IMAGE_ACCESS_BARRIER_BIT |
                                GL_SHADER_STORAGE_BARRIER_BIT | GL_TEXTURE_UPDATE_BARRIER_BIT |
                                GL_FRAMEBUFFER_BARRIER_BIT | GL_PIXEL_BUFFER_BARRIER_BIT;

const std::string sourceName = "source";
} // namespace

// The one counter the last workgroup of each dispatch is found with; it resets itself to 0.
class PyramidDevice::CounterBuffer
{
public:
    CounterBuffer()
    {
        glGenBuffers(1, &name);
        const GLuint zero = 0;
        glNamedBufferDataEXT(name, sizeof zero, &zero, GL_DYNAMIC_DRAW);
        try
        {
            TAVRIN_GL_CHECK();
        }
        catch (...)
        {
            glDeleteBuffers(1, &name);
            throw;
        }
    }
    ~CounterBuffer() { glDeleteBuffers(1, &name); }
    CounterBuffer(const CounterBuffer&) = delete;
    CounterBuffer& operator=(const CounterBuffer&) = delete;

    GLuint name = 0;
};

const char* const PyramidDevice::averageReduction =
    "vec4 reduce(vec4 a, vec4 b, vec4 c, vec4 d)\n{\n    return (a + b + c + d) * 0.25;\n}\n";
const char* const PyramidDevice::minimumReduction =
    "vec4 reduce(vec4 a, vec4 b, vec4 c, vec4 d)\n{\n    return min(min(a, b), min(c, d));\n}\n";
const char* const PyramidDevice::maximumReduction =
    "vec4 reduce(vec4 a, vec4 b, vec4 c, vec4 d)\n{\n    return max(max(a, b), max(c, d));\n}\n";

PyramidDevice::PyramidDevice() : inputTextures(1), outputTextures(1), reduction(averageReduction) {}
PyramidDevice::PyramidDevice(const PyramidDevice& other) = default;
PyramidDevice& PyramidDevice::operator=(const PyramidDevice& other) = default;
PyramidDevice::~PyramidDevice() = default;

bool PyramidDevice::update()
{
    if (!Detail::hasOutputTexture(outputTextures))
        return false;
    if (inputTextures.empty() || !inputTextures.front().texture)
        throw std::runtime_error("No input texture.");
    const Texture2D& input = *inputTextures.front().texture;
    Texture2D& output = *outputTextures.front().texture;

    if (!inputTextures.front().isConsistent() || !outputTextures.front().isConsistent() || format == 0)
    {
        format = 0; // until the check below has gone through
        inPlace = input.getHandle() == output.getHandle();
        size = levelZeroSize(input);
        if (size.x() < 1 || size.y() < 1)
            throw std::runtime_error("No input texture.");
        const unsigned int wanted = inPlace ? unsigned(output.getInternalFormat()) : getOutputFormat();
        outputFormat(wanted);
        packed = bindsPackedImages(wanted);
        if (inPlace)
            levelCount = output.getMipLevelCount();
        else
        {
            levelCount = fullChainLength(size);
            if (output.getSize() != size || unsigned(output.getInternalFormat()) != wanted ||
                output.getMipLevelCount() != levelCount)
                output.reserveStorage(levelCount, size, wanted);
        }
        inputTextures.front().makeConsistent();
        outputTextures.front().makeConsistent();
        format = wanted;
    }

    // Runs of levels: each dispatch reads level `first` and writes up to units - 1 levels after
    // it, and level 0 too when it copies the input. Only a dispatch that writes more levels than a
    // tile reduces through has a tail; the first one writes the most.
    const int units = std::clamp(getImageUnitBudget(), 2, maximumUnits);
    const int runs = (levelCount - 1 + units - 2) / (units - 1);
    const bool tail = std::min(levelCount - 1, units - 1) > tileLevels;
    // Everything that can fail to build is built before any binding changes.
    const Program* const copying = inPlace ? nullptr : &programFor(true, units);
    const Program* const reducing = runs > (inPlace ? 0 : 1) ? &programFor(false, units) : nullptr;
    if (tail && !counter)
        counter = std::make_shared<CounterBuffer>();
    if (tail)
    {
        glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 0, counter->name);
        TAVRIN_GL_CHECK();
    }
    const GLenum imageFormat = packed ? outputFormat(format).packedFormat : format;
    const int dispatches = inPlace ? runs : std::max(runs, 1);
    for (int dispatch = 0; dispatch < dispatches; ++dispatch)
    {
        const bool copy = dispatch == 0 && !inPlace;
        const int first = dispatch * (units - 1), written = std::min(levelCount - 1 - first, units - 1);
        const int tiled = std::min(written, tileLevels);
        const Eigen::Vector2i below(std::max(size.x() >> first, 1), std::max(size.y() >> first, 1));

        // The input is sampled only where it is copied; otherwise level `first` is read as image 0.
        const Program* const activeProgram = copy ? copying : reducing;
        activeProgram->use();
        if (copy)
            input.pushToProgram(activeProgram, sourceName);
        activeProgram->uniform("sourceSize", below);
        activeProgram->uniform("tileLevelCount", tiled);
        activeProgram->uniform("tailLevelCount", written - tiled);
        for (int j = 0; j <= written; ++j)
        {
            glBindImageTexture(GLuint(j), output.getHandle(), first + j, GL_FALSE, 0, GL_READ_WRITE, imageFormat);
            TAVRIN_GL_CHECK();
        }

        glDispatchCompute(GLuint(groupsFor(below.x())), GLuint(groupsFor(below.y())), 1);
        TAVRIN_GL_CHECK();

        for (int j = written; j >= 0; --j)
            Texture2D::unbindImage(unsigned(j));
        if (copy)
            input.popFromProgram();
        glMemoryBarrier(chainBarrier);
        TAVRIN_GL_CHECK();
    }
    if (tail)
    {
        glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 0, 0);
        TAVRIN_GL_CHECK();
    }
    Program::useFixed();

    lastDispatchCount = dispatches;
    lastPacked = packed;
    lastPath = dispatches == 0 ? Path::None : dispatches == 1 ? Path::SingleDispatch : Path::SeveralDispatches;
    return true;
}

void PyramidDevice::setReduction(const std::string& glslFunction)
{
    reduction = glslFunction;
}

const std::string& PyramidDevice::getReduction() const
{
    return reduction;
}

PyramidDevice::Path PyramidDevice::getLastPath() const
{
    return lastPath;
}

bool PyramidDevice::getLastImagesPacked() const
{
    return lastPacked;
}

const Program& PyramidDevice::programFor(bool copying, int units)
{
    std::shared_ptr<Program>& kept = copying ? copyingProgram : levelProgram;
    std::string& keptKey = copying ? copyingKey : levelKey;
    const std::string key =
        std::to_string(format) + (packed ? " packed " : " typed ") + std::to_string(units) + "\n" + reduction;
    if (!kept || keptKey != key)
    {
        const std::string source = shaderSource(outputFormat(format), packed, units, reduction, copying);
        kept.reset(Program::loadFromSource("", "", "", "", "", source));
        keptKey = key;
    }
    return *kept;
}

int PyramidDevice::getLastDispatchCount() const
{
    return lastDispatchCount;
}

void PyramidDevice::setInputTexture(int i, std::shared_ptr<const Texture2D> texture)
{
    inputTextures.at(std::size_t(i)).texture = std::move(texture);
}

std::shared_ptr<const Texture2D> PyramidDevice::getInputTexture(int i) const
{
    return inputTextures.at(std::size_t(i)).texture;
}

int PyramidDevice::getInputTextureCount() const
{
    return int(inputTextures.size());
}

void PyramidDevice::setOutputTexture(int i, std::shared_ptr<Texture2D> texture)
{
    outputTextures.at(std::size_t(i)).texture = std::move(texture);
}

std::shared_ptr<Texture2D> PyramidDevice::getOutputTexture(int i) const
{
    return outputTextures.at(std::size_t(i)).texture;
}

int PyramidDevice::getOutputTextureCount() const
{
    return int(outputTextures.size());
}

unsigned int PyramidDevice::getOutputFormat() const
{
    const GLint input = inputTextures.at(0).texture ? inputTextures.at(0).texture->getInternalFormat() : 0;
    switch (input)
    {
    case GL_RGB8:
        return GL_RGBA8;
    case GL_RGB16F:
        return GL_RGBA16F;
    case GL_RGB32F:
        return GL_RGBA32F;
    case GL_DEPTH_COMPONENT16:
    case GL_DEPTH_COMPONENT24:
    case GL_DEPTH_COMPONENT32:
    case GL_DEPTH_COMPONENT32F:
        return GL_R32F;
    default:
        return unsigned(input);
    }
}

bool PyramidDevice::bindsPackedImages(unsigned int internalFormat) const
{
    GLint compatibility = 0;
    glGetInternalformativ(GL_TEXTURE_2D, internalFormat, GL_IMAGE_FORMAT_COMPATIBILITY_TYPE, 1, &compatibility);
    TAVRIN_GL_CHECK();
    return compatibility == GL_IMAGE_FORMAT_COMPATIBILITY_BY_SIZE;
}

int PyramidDevice::getImageUnitBudget() const
{
    GLint units = 0, computeUniforms = 0;
    glGetIntegerv(GL_MAX_IMAGE_UNITS, &units);
    glGetIntegerv(GL_MAX_COMPUTE_IMAGE_UNIFORMS, &computeUniforms);
    return std::min(units, computeUniforms);
}
} // namespace OpenGL
} // namespace Tavrin
