#include "ViewerDevices.h"

#include <core/FileTools.h>
#include <core/StringTools.h>

#include <GL/glew.h>

#include <iostream>

using namespace Tavrin;
using namespace Tavrin::OpenGL;

namespace
{
// Appends a file's lines to the assembled text and records where each came from.
void appendFile(const std::string& path, const std::string& name, std::string& text, std::vector<int>& lines,
                std::vector<std::string>& files)
{
    const std::string content = FileTools::loadFileAsString(path);
    int line = 1;
    for (std::size_t start = 0; start < content.size();)
    {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos)
            end = content.size();
        text.append(content, start, end - start).append("\n");
        lines.push_back(line++);
        files.push_back(name);
        start = end + 1;
    }
}

std::shared_ptr<Program> link(std::initializer_list<const AssembledShader*> shaders)
{
    auto program = std::make_shared<Program>();
    for (const AssembledShader* shader : shaders)
        program->attach(*shader);
    program->link();
    return program;
}
} // namespace

AssembledShader::AssembledShader(ShaderType type, const std::string& directory, const std::string& stageFile)
    : Shader(type)
{
    std::string text;
    std::vector<int> lines;
    std::vector<std::string> files;
    appendFile(directory + "/common.glsl", "common.glsl", text, lines, files);
    appendFile(directory + "/" + stageFile, stageFile, text, lines, files);
    const char* source = text.c_str();
    glShaderSource(getHandle(), 1, &source, nullptr);
    glCompileShader(getHandle());
    if (!getStatus(getHandle(), GL_COMPILE_STATUS))
    {
        // The rewriting knows the NVIDIA and ATI log forms; other drivers' lines may map to the
        // first entry, so the driver's own log is shown too.
        std::string driverLog;
        getText(getHandle(), driverLog);
        std::cerr << "Driver log for " << stageFile << ":\n" << driverLog << "\n";
    }
    checkStatus(text, lines, files);
}

ViewerPrograms::ViewerPrograms(const std::string& directory)
{
    const AssembledShader vertex(ShaderType::Vertex, directory, "passVertex.glsl");
    const AssembledShader mosaicFragment(ShaderType::Fragment, directory, "mosaicFragment.glsl");
    const AssembledShader edgesCompute(ShaderType::Compute, directory, "edgesCompute.glsl");
    mosaic = link({&vertex, &mosaicFragment});
    edges = link({&edgesCompute});
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
