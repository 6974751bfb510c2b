#include "ViewerDevices.h"

#include <GL/glew.h>

#include <iostream>

using namespace Tavrin;
using namespace Tavrin::OpenGL;

ViewerPrograms::ViewerPrograms(const std::string& directory)
    : edges(directory + "/edges"), mosaic(directory + "/mosaic")
{
}

void ViewerPrograms::reloadEdited()
{
    for (ProgramReloader* program : {&edges, &mosaic})
        if (program->poll() == ProgramReloader::Result::Failed)
            std::cerr << "Shader error, the previous program stays:\n" << program->getLog() << "\n";
}

EdgesDevice::EdgesDevice(std::shared_ptr<Program> program, std::shared_ptr<const Texture2D> source)
    : size(std::const_pointer_cast<Texture2D>(source)->getSize())
{
    this->program = std::move(program);
    inputTextures.resize(1);
    outputTextures.resize(1);
    setInputTexture(0, std::move(source));
    auto edges = std::make_shared<Texture2D>();
    edges->reserveStorage(1, size, GL_RGBA8);
    setOutputTexture(0, edges);
}

const Eigen::Vector3i EdgesDevice::getGroupCount() const
{
    return Eigen::Vector3i((size.x() + 15) / 16, (size.y() + 15) / 16, 1);
}

MosaicDevice::MosaicDevice(std::shared_ptr<Program> program, std::shared_ptr<const Texture2D> pyramid, int levelCount)
    : levelCount(levelCount)
{
    this->program = std::move(program);
    inputTextures.resize(1);
    outputTextures.resize(1);
    setInputTexture(0, std::move(pyramid));
    setOutputTexture(0, std::make_shared<Texture2D>());
}

const Eigen::Vector2i MosaicDevice::getResolution() const
{
    const Eigen::Vector2i base = FramebufferTexture2DDevice::getResolution();
    return Eigen::Vector2i(base.x() + (levelCount > 1 ? (base.x() + 1) / 2 : 0), base.y());
}

unsigned int MosaicDevice::getOutputFormat(int) const
{
    return GL_RGBA8;
}

void MosaicDevice::beforeRendering()
{
    program->uniform("levelCount", levelCount);
}
