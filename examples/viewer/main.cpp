// The Tavrin viewer: what the library is for, in one host program.
//
// It opens a window, loads an image (or generates a test image), and every frame runs
//   - the library's pyramid device, which builds the image's mip chain (each level averages
//     the 2x2 texels of the level below) in one compute dispatch,
//   - a compute device that filters the image (Sobel edges),
//   - a render-to-texture device that lays the pyramid out for viewing,
// then presents the chosen view with a label (view name, image size, frame time) drawn with
// a cached outline font.
//
//   tavrin_viewer [image.png|image.jpg] [--frames N --out DIR] [--shaders DIR]
//
// Keys: 1/2/3 or Left/Right switch views, F11 toggles full screen, Escape or closing the
// window quits. With --frames N it renders N frames, writes every view to DIR as PNG and exits.
// Shader compile errors print the rewritten log (file and line of each message) and exit 1.
// Editing a shader file while it runs rebuilds that program; a broken edit prints its log and
// the previous program stays in use until the file is fixed.
#include "ViewerDevices.h"

#include <core/Image2D.h>
#include <opengl/DebugOutput.h>
#include <opengl/Font.h>
#include <opengl/FontManager.h>
#include <opengl/Framebuffer.h>
#include <opengl/GLCheck.h>
#include <opengl/GLSLException.h>
#include <opengl/OpenGLContext.h>
#include <opengl/OpenGLTools.h>
#include <opengl/OpenGLWindow.h>
#include <opengl/PyramidDevice.h>
#include <opengl/Texture2D.h>

#include <GL/glew.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Tavrin;
using namespace Tavrin::OpenGL;

namespace
{
struct Options
{
    std::string imagePath;
    std::string shaderDirectory;
    std::string outputDirectory;
    int frames = 0; // 0: interactive
    bool debugOutput = false;
};

Options parseOptions(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i)
    {
        const std::string argument = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc)
                throw std::runtime_error("missing value after " + argument);
            return argv[++i];
        };
        if (argument == "--frames")
            options.frames = std::max(1, std::stoi(value()));
        else if (argument == "--out")
            options.outputDirectory = value();
        else if (argument == "--shaders")
            options.shaderDirectory = value();
        else if (argument == "--gl-debug")
            options.debugOutput = true;
        else if (argument == "--help" || argument == "-h")
            throw std::runtime_error(
                "usage: tavrin_viewer [image] [--frames N --out DIR] [--shaders DIR] [--gl-debug]");
        else
            options.imagePath = argument;
    }
    if (!options.outputDirectory.empty() && options.frames == 0)
        options.frames = 1;
    return options;
}

// A test image with something for every view: gradients, discs, stripes and a checkerboard.
std::shared_ptr<Image2D> generateTestImage()
{
    const Eigen::Vector2i size(640, 400);
    auto image = std::make_shared<Image2D>(size, 0x8058 /* GL_RGBA8 */);
    auto* texels = static_cast<unsigned char*>(image->getData());
    for (int y = 0; y < size.y(); ++y)
        for (int x = 0; x < size.x(); ++x)
        {
            const float u = float(x) / size.x(), v = float(y) / size.y();
            float r = 0.15f + 0.5f * u, g = 0.2f + 0.4f * v, b = 0.55f - 0.3f * u;
            const float dx = x - 180.0f, dy = y - 200.0f;
            if (dx * dx + dy * dy < 110.0f * 110.0f)
                r = 0.95f, g = 0.75f, b = 0.2f;
            const float ex = x - 450.0f, ey = y - 250.0f;
            if (ex * ex / 1.6f + ey * ey < 70.0f * 70.0f)
                r = 0.2f, g = 0.8f, b = 0.9f;
            if (x > 340 && x < 600 && y > 40 && y < 120 && ((x / 10 + y / 10) % 2 == 0))
                r = g = b = 0.95f;
            if (y > 300 && y < 360 && (x / 6) % 2 == 0)
                r *= 0.4f, g *= 0.4f, b *= 0.4f;
            unsigned char* texel = texels + 4 * (size_t(y) * size.x() + x);
            texel[0] = static_cast<unsigned char>(255 * std::min(1.0f, r));
            texel[1] = static_cast<unsigned char>(255 * std::min(1.0f, g));
            texel[2] = static_cast<unsigned char>(255 * std::min(1.0f, b));
            texel[3] = 255;
        }
    return image;
}

std::string findShaderDirectory(const Options& options, const char* argv0)
{
    std::vector<std::filesystem::path> candidates;
    if (!options.shaderDirectory.empty())
        candidates.emplace_back(options.shaderDirectory);
    candidates.push_back(std::filesystem::path(argv0).parent_path() / "viewer-shaders");
    candidates.emplace_back(TAVRIN_VIEWER_SHADER_SOURCE_DIR);
    for (const auto& candidate : candidates)
        if (std::filesystem::exists(candidate / "common.glsl"))
            return candidate.string();
    throw std::runtime_error("cannot find the viewer's shaders (common.glsl); pass --shaders DIR");
}

// Draws a view texture with a label band into a display texture of the same size, so that the
// window and the PNG files show the same picture.
class LabelledView
{
public:
    void render(Texture2D& view, const std::string& label, const Font* font)
    {
        const Eigen::Vector2i size = view.getSize();
        if (display->getSize() != size)
            display->reserveStorage(1, size, GL_RGBA8);
        framebuffer->attachTexture2D(display.get(), GL_COLOR_ATTACHMENT0, 0);
        framebuffer->bind();
        OpenGLTools::sequentialDrawBuffers(framebuffer.get(), 1);
        glViewport(0, 0, size.x(), size.y());
        glUseProgram(0);
        glDisable(GL_DEPTH_TEST);
        glDisable(GL_CULL_FACE);
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();

        glEnable(GL_TEXTURE_2D);
        view.bind();
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        OpenGLTools::drawViewportQuad(Eigen::Vector2f(0, 0), Eigen::Vector2f(1, 1));
        Texture2D::unbind();
        glDisable(GL_TEXTURE_2D);

        if (font)
            drawLabel(label, *font, size);
        Framebuffer::unbind();
    }

    std::shared_ptr<const Texture2D> texture() const { return display; }

private:
    static void drawLabel(const std::string& label, const Font& font, const Eigen::Vector2i& size)
    {
        const float em = std::max(14.0f, std::min(28.0f, size.y() / 22.0f));
        Eigen::Vector2f min, max;
        font.getBBox(label, min, max);
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glOrtho(0, size.x(), 0, size.y(), -10, 10);
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
        // A dark band behind the text keeps it legible over any image.
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        glColor4f(0.0f, 0.0f, 0.0f, 0.6f);
        glRectf(0.0f, size.y() - 1.8f * em, std::min<float>(size.x(), (max.x() + 1.0f) * em), float(size.y()));
        glDisable(GL_BLEND);
        glColor4f(1.0f, 1.0f, 0.85f, 1.0f);
        glTranslatef(0.5f * em, size.y() - 1.3f * em, 0.0f);
        glScalef(em, em, em);
        font.draw(label);
        glLoadIdentity();
    }

    Texture2DPtrAI display;
    FramebufferPtrAI framebuffer;
};

std::string describe(const char* name, const Eigen::Vector2i& size, double frameMilliseconds)
{
    char text[160];
    std::snprintf(text, sizeof text, "%s  |  %d x %d  |  %.2f ms/frame", name, size.x(), size.y(), frameMilliseconds);
    return text;
}
} // namespace

int main(int argc, char** argv)
{
    Options options;
    try
    {
        options = parseOptions(argc, argv);
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << "\n";
        return 2;
    }

    // --gl-debug: a debug context, and the driver's messages instead of a glGetError per call.
    OpenGLContext::requestDebugContexts(options.debugOutput);
    OpenGLWindow window("Tavrin viewer");
    if (!window.getDeviceContext())
        return 1; // the window printed why
    OpenGLContext::init();
    if (options.debugOutput)
    {
        DebugOutput::Options debugOptions;
        debugOptions.throwOnError = true;
        GLCheck::enableGLCheck = !DebugOutput::enable(debugOptions);
    }
    Program::initVendor();
    std::cout << "\n";

    int exitCode = 0;
    try
    {
        const std::string shaderDirectory = findShaderDirectory(options, argv[0]);
        auto image = options.imagePath.empty() ? generateTestImage() : std::make_shared<Image2D>(options.imagePath);
        auto source = std::make_shared<Texture2D>();
        source->uploadImage(image, 0, GL_TEXTURE_2D);
        const Eigen::Vector2i imageSize = image->getSize();

        ViewerPrograms programs(shaderDirectory);
        PyramidDevice pyramid;
        pyramid.setInputTexture(0, source);
        pyramid.setOutputTexture(0, std::make_shared<Texture2D>());
        EdgesDevice edges(programs.edges.getProgram(), source);
        const int shownLevels = std::min(6, Texture2D::fullMipLevelCount(std::max(imageSize.x(), imageSize.y())));
        MosaicDevice mosaic(programs.mosaic.getProgram(), pyramid.getOutputTexture(0), shownLevels);
        std::shared_ptr<Font> font = FontManager::getInstance()->getFont("Arial");

        struct View
        {
            const char* name;
            std::shared_ptr<Texture2D> texture;
        };
        const View views[] = {{"original", source}, {"edges", edges.output()}, {"pyramid", mosaic.output()}};
        int current = 0;
        bool running = true;
        LabelledView display;

        window.setOnWindowClosed([&](OpenGLWindow*) { running = false; });
        window.setOnKeyDown([&](OpenGLWindow* w, unsigned long long key) {
            if (key == 0x1B) // Escape
                running = false;
            else if (key == 0x7A) // F11
                w->setFullscreen(!w->getFullscreen());
            else if (key >= '1' && key <= '3')
                current = int(key - '1');
            else if (key == 0x27 || key == 0x20) // Right, Space
                current = (current + 1) % 3;
            else if (key == 0x25) // Left
                current = (current + 2) % 3;
        });
        window.setClientSize(imageSize);

        double frameMilliseconds = 0.0;
        for (int frame = 0; running && (options.frames == 0 || frame < options.frames); ++frame)
        {
            window.processMessages();
            programs.reloadEdited();
            const auto start = std::chrono::steady_clock::now();
            pyramid.update();
            edges.update();
            mosaic.update();
            const View& view = views[current];
            display.render(*view.texture, describe(view.name, view.texture->getSize(), frameMilliseconds), font.get());
            window.presentTexture(display.texture(), true);
            frameMilliseconds =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        }

        if (!options.outputDirectory.empty())
        {
            std::filesystem::create_directories(options.outputDirectory);
            for (const View& view : views)
            {
                display.render(*view.texture, describe(view.name, view.texture->getSize(), frameMilliseconds),
                               font.get());
                const std::string path = options.outputDirectory + "/" + view.name + ".png";
                display.texture()->downloadImage(0)->save(path);
                std::cout << "wrote " << path << "\n";
            }
        }
        font.reset();
        FontManager::getInstance()->dispose();
    }
    catch (const GLSLException& error)
    {
        std::cerr << "Shader error (log rewritten to the viewer's files):\n" << error.what() << "\n";
        exitCode = 1;
    }
    catch (const std::exception& error)
    {
        std::cerr << "\nError: " << error.what() << "\n";
        exitCode = 1;
    }
    return exitCode;
}
