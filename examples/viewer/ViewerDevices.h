#pragma once
// The viewer's programs and processing devices.

#include <opengl/ComputeDevice.h>
#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/Program.h>
#include <opengl/ProgramReloader.h>
#include <opengl/Texture2D.h>

#include <memory>
#include <string>
#include <vector>

// The viewer's two programs, each built from its stage files and the common.glsl they include.
// Throws GLSLException (log mapped to the viewer's files) on a compile error.
struct ViewerPrograms
{
    explicit ViewerPrograms(const std::string& shaderDirectory);
    // Once a frame: rebuilds a program whose files were edited; a failed rebuild prints its
    // log and the old program stays in use.
    void reloadEdited();

    Tavrin::OpenGL::ProgramReloader edges, mosaic;
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
