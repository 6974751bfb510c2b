// The other hot paths against hand-written baselines in the same run: uniform setting by name
// and by location, texture upload against a plain memcpy of the same bytes (and against the raw
// GL upload), text measuring per character, font construction against a cache hit, and a
// reload poll that finds nothing changed against the file-time queries it makes.
#include "BenchSupport.h"

#include <opengl/Font.h>
#include <opengl/FontManager.h>
#include <opengl/GLCheck.h>
#include <opengl/Program.h>
#include <opengl/ProgramReloader.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

using namespace Tavrin::OpenGL;
using TavrinBench::CheckSwitch;

namespace
{
std::unique_ptr<Program> uniformProgram()
{
    return std::unique_ptr<Program>(Program::loadFromSource("", "", "", "",
                                                            R"(#version 430 compatibility
uniform float gain;
out vec4 colour;
void main() { colour = vec4(gain); }
)",
                                                            ""));
}

void UniformByNameLibrary(benchmark::State& state)
{
    const CheckSwitch checkSwitch(state.range(0) != 0);
    const auto program = uniformProgram();
    float value = 0.0f;
    for (auto _ : state)
        program->uniform("gain", value += 1.0f);
}

void UniformByNameRawGL(benchmark::State& state)
{
    const auto program = uniformProgram();
    const GLuint name = program->getHandle();
    float value = 0.0f;
    for (auto _ : state)
    {
        glProgramUniform1fEXT(name, glGetUniformLocation(name, std::string("gain").c_str()), value += 1.0f);
        if (state.range(0) != 0)
            TavrinBench::checkRawGL();
    }
}

void UniformByLocationLibrary(benchmark::State& state)
{
    const CheckSwitch checkSwitch(state.range(0) != 0);
    const auto program = uniformProgram();
    const int location = program->getUniformLocation("gain");
    float value = 0.0f;
    for (auto _ : state)
        program->uniform(location, value += 1.0f);
}

void UniformByLocationRawGL(benchmark::State& state)
{
    const auto program = uniformProgram();
    const GLuint name = program->getHandle();
    const GLint location = glGetUniformLocation(name, "gain");
    float value = 0.0f;
    for (auto _ : state)
    {
        glProgramUniform1fEXT(name, location, value += 1.0f);
        if (state.range(0) != 0)
            TavrinBench::checkRawGL();
    }
}

const Eigen::Vector2i uploadSize(256, 256);

void UploadLibrary(benchmark::State& state)
{
    Texture2D texture;
    texture.reserveStorage(1, uploadSize, GL_RGBA8);
    const std::vector<unsigned char> texels(std::size_t(uploadSize.prod()) * 4, 7);
    for (auto _ : state)
        texture.uploadData(uploadSize, texels.data(), GL_RGBA, GL_UNSIGNED_BYTE, 0, GL_TEXTURE_2D);
    glFinish();
}

void UploadRawGL(benchmark::State& state)
{
    Texture2D texture;
    texture.reserveStorage(1, uploadSize, GL_RGBA8);
    const GLuint name = texture.getHandle();
    const std::vector<unsigned char> texels(std::size_t(uploadSize.prod()) * 4, 7);
    for (auto _ : state)
    {
        glTextureSubImage2DEXT(name, GL_TEXTURE_2D, 0, 0, 0, uploadSize.x(), uploadSize.y(), GL_RGBA, GL_UNSIGNED_BYTE,
                               texels.data());
        TavrinBench::checkRawGL();
    }
    glFinish();
}

void UploadMemcpy(benchmark::State& state)
{
    const std::vector<unsigned char> texels(std::size_t(uploadSize.prod()) * 4, 7);
    std::vector<unsigned char> destination(texels.size());
    for (auto _ : state)
    {
        std::memcpy(destination.data(), texels.data(), texels.size());
        benchmark::DoNotOptimize(destination.data());
        benchmark::ClobberMemory();
    }
}

const std::string sampleText = "The quick brown fox jumps over the lazy dog 0123456789";

void MeasureTextLibrary(benchmark::State& state)
{
    const std::shared_ptr<Font> font = FontManager::getInstance()->getFont("Arial");
    if (!font)
    {
        state.SkipWithError("no font");
        return;
    }
    Eigen::Vector2f min, max;
    for (auto _ : state)
    {
        font->getBBox(sampleText, min, max);
        benchmark::DoNotOptimize(max);
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(sampleText.size()));
}

// The same sums over a plain array of advances and extents: the least any measuring can do.
void MeasureTextBaseline(benchmark::State& state)
{
    const std::shared_ptr<Font> font = FontManager::getInstance()->getFont("Arial");
    if (!font)
    {
        state.SkipWithError("no font");
        return;
    }
    float advance[256], bottom[256], top[256];
    for (int c = 0; c < 256; ++c)
    {
        const Font::GlyphMetrics& glyph = font->getGlyphMetrics(static_cast<unsigned char>(c));
        advance[c] = glyph.cellIncX;
        bottom[c] = glyph.originY;
        top[c] = glyph.originY + glyph.blackBoxY;
    }
    for (auto _ : state)
    {
        float width = 0.0f, minY = 1e20f, maxY = -1e20f;
        for (unsigned char c : sampleText)
        {
            width += advance[c];
            minY = bottom[c] < minY ? bottom[c] : minY;
            maxY = top[c] > maxY ? top[c] : maxY;
        }
        benchmark::DoNotOptimize(width);
        benchmark::DoNotOptimize(minY);
        benchmark::DoNotOptimize(maxY);
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(sampleText.size()));
}

void FontConstruction(benchmark::State& state)
{
    for (auto _ : state)
    {
        Font font("Arial");
        benchmark::DoNotOptimize(font.isValid());
    }
}

void FontCacheHit(benchmark::State& state)
{
    FontManager::getInstance()->getFont("Arial");
    for (auto _ : state)
        benchmark::DoNotOptimize(FontManager::getInstance()->getFont(" ARIAL "));
}

// A fragment stage file that includes two others, in a fresh temporary directory: three
// watched files.
std::filesystem::path reloadFiles()
{
    const std::filesystem::path directory = std::filesystem::temp_directory_path() / "tavrin_reload_bench";
    std::filesystem::create_directories(directory);
    const std::pair<const char*, const char*> files[] = {
        {"pollFragment.glsl", "#version 430 compatibility\n#include \"a.glsl\"\n#include \"b.glsl\"\n"
                              "out vec4 colour;\nvoid main() { colour = vec4(a + b); }\n"},
        {"a.glsl", "uniform float a;\n"},
        {"b.glsl", "uniform float b;\n"}};
    for (const auto& file : files)
        std::ofstream(directory / file.first) << file.second;
    return directory;
}

void ReloadPollLibrary(benchmark::State& state)
{
    ProgramReloader reloader((reloadFiles() / "poll").u8string());
    for (auto _ : state)
        benchmark::DoNotOptimize(reloader.poll());
    state.SetItemsProcessed(state.iterations() * 3); // per file
}

void ReloadPollBaseline(benchmark::State& state)
{
    const std::filesystem::path directory = reloadFiles();
    const std::filesystem::path files[] = {directory / "pollFragment.glsl", directory / "a.glsl", directory / "b.glsl"};
    for (auto _ : state)
        for (const auto& file : files)
        {
            std::error_code error;
            benchmark::DoNotOptimize(std::filesystem::last_write_time(file, error));
        }
    state.SetItemsProcessed(state.iterations() * 3);
}
} // namespace

BENCHMARK(UniformByNameLibrary)->Arg(0)->Arg(1)->Apply(TavrinBench::shortRun);
BENCHMARK(UniformByNameRawGL)->Arg(0)->Arg(1)->Apply(TavrinBench::shortRun);
BENCHMARK(UniformByLocationLibrary)->Arg(0)->Arg(1)->Apply(TavrinBench::shortRun);
BENCHMARK(UniformByLocationRawGL)->Arg(0)->Arg(1)->Apply(TavrinBench::shortRun);
BENCHMARK(UploadLibrary)->Apply(TavrinBench::shortRun);
BENCHMARK(UploadRawGL)->Apply(TavrinBench::shortRun);
BENCHMARK(UploadMemcpy)->Apply(TavrinBench::shortRun);
BENCHMARK(MeasureTextLibrary)->Apply(TavrinBench::shortRun);
BENCHMARK(MeasureTextBaseline)->Apply(TavrinBench::shortRun);
BENCHMARK(FontConstruction)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(FontCacheHit)->Apply(TavrinBench::shortRun);
BENCHMARK(ReloadPollLibrary)->Apply(TavrinBench::shortRun);
BENCHMARK(ReloadPollBaseline)->Apply(TavrinBench::shortRun);

namespace
{
const bool ratiosAdded =
    TavrinBench::addRatio("Program::uniform by name, GL check off", "UniformByNameLibrary/0", "UniformByNameRawGL/0") &&
    TavrinBench::addRatio("Program::uniform by name, GL check on", "UniformByNameLibrary/1", "UniformByNameRawGL/1") &&
    TavrinBench::addRatio("Program::uniform by location, GL check off", "UniformByLocationLibrary/0",
                          "UniformByLocationRawGL/0") &&
    TavrinBench::addRatio("Program::uniform by location, GL check on", "UniformByLocationLibrary/1",
                          "UniformByLocationRawGL/1") &&
    TavrinBench::addRatio("Texture2D::uploadData 256x256 RGBA8 vs raw glTextureSubImage2DEXT", "UploadLibrary",
                          "UploadRawGL") &&
    TavrinBench::addRatio("Texture2D::uploadData 256x256 RGBA8 vs memcpy of the same bytes", "UploadLibrary",
                          "UploadMemcpy") &&
    TavrinBench::addRatio("Font::getBBox vs a plain loop over the metrics (per character)", "MeasureTextLibrary",
                          "MeasureTextBaseline") &&
    TavrinBench::addRatio("Font construction (\"Arial\", 255 glyphs) vs a FontManager cache hit", "FontConstruction",
                          "FontCacheHit") &&
    TavrinBench::addRatio("ProgramReloader::poll, nothing changed (3 files) vs their file-time queries",
                          "ReloadPollLibrary", "ReloadPollBaseline");
} // namespace
