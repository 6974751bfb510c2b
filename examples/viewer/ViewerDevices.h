#pragma once
// The viewer's programs and processing devices.

#include <opengl/ComputeDevice.h>
#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/Program.h>
#include <opengl/Shader.h>
#include <opengl/Texture2D.h>

#include <memory>
#include <string>
#include <vector>

// A shader assembled from the shared common.glsl and one stage file. It records which file
// and line every line of the compiled text came from, so a failed compile throws a
// GLSLException whose log names the viewer's own files (Shader::checkStatus's rewriting).
class AssembledShader : public Tavrin::OpenGL::Shader
{
public:
    AssembledShader(Tavrin::OpenGL::ShaderType type, const std::string& directory, const std::string& stageFile);
    using Tavrin::OpenGL::Shader::getHandle;
};

// Builds the viewer's two programs. Throws GLSLException (rewritten log) on a compile error.
struct ViewerPrograms
{
    explicit ViewerPrograms(const std::string& shaderDirectory);

    std::shared_ptr<Tavrin::OpenGL::Program> edges, mosaic;
};

// Sobel edges of the source image, one compute dispatch.
class EdgesDevice final : public Tavrin::OpenGL::ComputeDevice
{
public:
    EdgesDevice(std::shared_ptr<Tavrin::OpenGL::Program> program,
                std::shared_ptr<const Tavrin::OpenGL::Texture2D> source);
    const Eigen::Vector3i getGroupCount() const override;
    std::shared_ptr<Tavrin::OpenGL::Texture2D> output() const { return getOutputTexture(0); }

protected:
    std::string getInputSamplerName(int) const override { return "image"; }
    std::string getOutputTextureName(int) const override { return "edges"; }

private:
    Eigen::Vector2i size;
};

// All pyramid levels in one picture: level 0 on the left, the others stacked on the right.
class MosaicDevice final : public Tavrin::OpenGL::FramebufferTexture2DDevice
{
public:
    MosaicDevice(std::shared_ptr<Tavrin::OpenGL::Program> program,
                 std::shared_ptr<const Tavrin::OpenGL::Texture2D> pyramid, int levelCount);
    const Eigen::Vector2i getResolution() const override;
    std::shared_ptr<Tavrin::OpenGL::Texture2D> output() const { return getOutputTexture(0); }

protected:
    unsigned int getOutputFormat(int) const override;
    std::string getInputSamplerName(int) const override { return "pyramid"; }
    void beforeRendering() override;

private:
    int levelCount;
};
