#include <opengl/OpenGLWindow.h>

#include <opengl/Framebuffer.h>
#include <opengl/GLCheck.h>
#include <opengl/OpenGLContext.h>
#include <opengl/OpenGLTools.h>
#include <opengl/Texture2D.h>

#include "WindowBackend.h"
#include "WindowLogic.h"

#include <GL/glew.h>

#include <iostream>
#include <utility>

namespace Tavrin
{
namespace OpenGL
{
RenderContextHandle OpenGLWindow::renderContext = RenderContextHandle();
std::vector<OpenGLWindow::Monitor> OpenGLWindow::monitors;

namespace
{
const unsigned int messageClose = 0x0010;
const unsigned int messageQuit = 0x0012;
const unsigned int messageKeyDown = 0x0100;
const unsigned int messageSysKeyDown = 0x0104;

// Full screen of one native window, through the back end.
class BackendFullscreenOperations : public WindowLogic::FullscreenOperations
{
public:
    explicit BackendFullscreenOperations(WindowHandle window) : window(window) {}
    bool isMaximized() override { return WindowBackend::isMaximized(window); }
    void restore() override { WindowBackend::restoreFromMaximized(window); }
    void maximize() override { WindowBackend::maximize(window); }
    SavedWindowState saveState() override { return WindowBackend::saveState(window); }
    void restoreState(const SavedWindowState& saved) override { WindowBackend::restoreState(window, saved); }
    void makeBorderless(const SavedWindowState& saved) override { WindowBackend::makeBorderless(window, saved); }
    OpenGLWindow::Rect windowRect() override { return WindowBackend::windowRect(window); }
    bool nearestMonitorRect(OpenGLWindow::Rect& rect) override
    {
        return WindowBackend::monitorRect(WindowBackend::monitorFromWindow(window), rect);
    }
    void place(const OpenGLWindow::Rect& rect) override { WindowBackend::placeWindow(window, rect); }

private:
    WindowHandle window;
};

// Calls the stored callback itself, so that a stateful one keeps its state, yet lets it replace
// or clear itself while it runs: it is moved out for the call (its captures live until it
// returns) and moved back unless something took its place meanwhile. A stand-in holds the slot
// during the call, so that messages sent from inside it still reach the running callback.
template <typename... Arguments> void runStored(std::function<void(Arguments...)>& stored, Arguments... arguments)
{
    using Callback = std::function<void(Arguments...)>;
    struct StandIn
    {
        Callback* running;
        void operator()(Arguments... nested) const { (*running)(nested...); }
    };
    struct PutBack
    {
        Callback& stored;
        Callback running;
        ~PutBack()
        {
            if (stored.template target<StandIn>())
                stored = std::move(running);
        }
    } putBack{stored, std::move(stored)};
    stored = StandIn{&putBack.running};
    putBack.running(arguments...);
}

Eigen::Vector2i sizeOf(const OpenGLWindow::Rect& rect)
{
    return Eigen::Vector2i(rect.right - rect.left, rect.bottom - rect.top);
}
} // namespace

OpenGLWindow::OpenGLWindow(const std::string& title, WindowHandle parent)
    : windowHandle(), deviceContext(), fullscreen(false), savedMaximized(false), savedState()
{
    // Every window gets a fresh context, which then serves all windows.
    renderContext = RenderContextHandle();
    init(title, parent);
}

OpenGLWindow::~OpenGLWindow()
{
    dispose();
}

void OpenGLWindow::init(const std::string& title, WindowHandle parent)
{
    windowHandle = WindowBackend::createWindow(this, title, parent);
    if (!windowHandle)
    {
        std::cerr << "ERROR: "
                  << "Failed to create window.";
        return;
    }
    deviceContext = WindowBackend::getDeviceContext(windowHandle);
    if (!deviceContext)
    {
        std::cerr << "ERROR: "
                  << "Failed to create device context.";
        return;
    }
    if (!WindowBackend::setPixelFormat(deviceContext))
    {
        std::cerr << "ERROR: "
                  << "Failed to set pixel format.";
        return;
    }
    if (!renderContext)
    {
        renderContext = OpenGLContext::getContext(deviceContext);
        // Texture rows of any width upload and read back without padding.
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
    }
    WindowBackend::swapBuffers(deviceContext);
    TAVRIN_GL_CHECK();
}

void OpenGLWindow::dispose()
{
    if (deviceContext)
    {
        WindowBackend::releaseDeviceContext(windowHandle, deviceContext);
        deviceContext = DeviceContextHandle();
    }
    if (windowHandle)
    {
        WindowBackend::destroyWindow(windowHandle);
        windowHandle = WindowHandle();
    }
}

void OpenGLWindow::makeCurrent() const
{
    if (deviceContext && renderContext)
        WindowBackend::makeCurrent(deviceContext, renderContext);
}

void OpenGLWindow::swap() const
{
    if (!deviceContext || !renderContext)
        return;
    WindowBackend::makeCurrent(deviceContext, renderContext);
    WindowBackend::swapBuffers(deviceContext);
}

void OpenGLWindow::presentTexture(std::shared_ptr<const Texture2D> texture, bool stretch)
{
    if (!texture || !deviceContext || !renderContext)
        return;
    WindowBackend::makeCurrent(deviceContext, renderContext);
    glDisable(GL_CULL_FACE);
    glDisable(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_TEXTURE_2D);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glClearColor(0.0f, 0.0f, 0.0f, 0.0f);

    glBindTexture(GL_TEXTURE_2D, texture->getHandle());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);

    // Texture2D::getSize only asks GL but is not declared const.
    const Eigen::Vector2i viewport =
        stretch ? sizeOf(WindowBackend::clientRect(windowHandle)) : const_cast<Texture2D&>(*texture).getSize();
    glViewport(0, 0, viewport.x(), viewport.y());

    glUseProgram(0);
    Framebuffer::unbind();
    OpenGLTools::drawViewportQuad(Eigen::Vector2f(0.0f, 0.0f), Eigen::Vector2f(1.0f, 1.0f));

    glBindTexture(GL_TEXTURE_2D, 0);
    WindowBackend::makeCurrent(deviceContext, renderContext);
    WindowBackend::swapBuffers(deviceContext);
}

void OpenGLWindow::setOnWindowClosed(std::function<void(OpenGLWindow*)> callback)
{
    onWindowClosed = std::move(callback);
}

void OpenGLWindow::setOnKeyDown(std::function<void(OpenGLWindow*, unsigned long long)> callback)
{
    onKeyDown = std::move(callback);
}

void OpenGLWindow::addMesageHandler(
    const std::string& name, std::function<void(OpenGLWindow*, unsigned int, unsigned long long, long long)> handler)
{
    messageHandlers[name] = std::move(handler);
}

void OpenGLWindow::removeMesageHandler(const std::string& name)
{
    messageHandlers.erase(name);
}

long long OpenGLWindow::systemWindowProcInternal(unsigned int message, unsigned long long wParam, long long lParam)
{
    if (message == messageClose || message == messageQuit)
    {
        if (onWindowClosed)
            runStored(onWindowClosed, this);
    }
    else if (message == messageKeyDown || message == messageSysKeyDown)
    {
        if (onKeyDown)
            runStored(onKeyDown, this, wParam);
    }
    if (messageHandlers.empty())
        return 0;
    // The names are taken first, in the map's order, so that handlers changing the map cannot
    // invalidate the traversal.
    std::vector<std::string> names;
    names.reserve(messageHandlers.size());
    for (const auto& entry : messageHandlers)
        names.push_back(entry.first);
    for (const std::string& entryName : names)
    {
        const auto entry = messageHandlers.find(entryName);
        if (entry == messageHandlers.end())
            continue;
        const auto handler = entry->second;
        handler(this, message, wParam, lParam);
    }
    return 0;
}

void OpenGLWindow::processMessages() const
{
    WindowBackend::processMessages();
}

void OpenGLWindow::setPosition(const Eigen::Vector2i& position) const
{
    if (windowHandle)
        WindowBackend::moveWindow(windowHandle, position.x(), position.y());
}

void OpenGLWindow::setSize(const Eigen::Vector2i& size) const
{
    if (windowHandle)
        WindowBackend::resizeWindow(windowHandle, size.x(), size.y());
}

void OpenGLWindow::setClientSize(const Eigen::Vector2i& size) const
{
    setSize(WindowBackend::outerSizeForClient(size.x(), size.y()));
}

Eigen::Vector2i OpenGLWindow::getPosition() const
{
    if (!windowHandle)
        return Eigen::Vector2i::Zero();
    const Rect rect = WindowBackend::windowRect(windowHandle);
    return Eigen::Vector2i(rect.left, rect.top);
}

Eigen::Vector2i OpenGLWindow::getSize() const
{
    return windowHandle ? sizeOf(WindowBackend::windowRect(windowHandle)) : Eigen::Vector2i::Zero();
}

Eigen::Vector2i OpenGLWindow::getClientPosition() const
{
    if (!windowHandle)
        return Eigen::Vector2i::Zero();
    const Rect rect = WindowBackend::clientRect(windowHandle);
    return Eigen::Vector2i(rect.left, rect.top);
}

Eigen::Vector2i OpenGLWindow::getClientSize() const
{
    return windowHandle ? sizeOf(WindowBackend::clientRect(windowHandle)) : Eigen::Vector2i::Zero();
}

void OpenGLWindow::setFullscreen(bool on)
{
    if (!windowHandle)
        return;
    WindowLogic::FullscreenState state;
    state.fullscreen = fullscreen;
    state.savedMaximized = savedMaximized;
    state.savedState = savedState;
    state.savedRect = savedRect;
    BackendFullscreenOperations operations(windowHandle);
    WindowLogic::switchFullscreen(on, state, operations);
    fullscreen = state.fullscreen;
    savedMaximized = state.savedMaximized;
    savedState = state.savedState;
    savedRect = state.savedRect;
}

bool OpenGLWindow::getFullscreen() const
{
    return fullscreen;
}

const std::vector<OpenGLWindow::Monitor>& OpenGLWindow::getMonitors()
{
    if (monitors.empty())
        monitors = WindowBackend::enumerateMonitors();
    return monitors;
}

int OpenGLWindow::getMonitorIndex() const
{
    getMonitors();
    if (!windowHandle)
        return 0;
    return WindowLogic::findMonitorIndex(monitors, WindowBackend::monitorFromWindow(windowHandle));
}

const OpenGLWindow::Monitor& OpenGLWindow::getMonitor() const
{
    static const Monitor none;
    if (getMonitors().empty())
        return none;
    return monitors[getMonitorIndex()];
}

void OpenGLWindow::setMonitorIndex(int index)
{
    const int target = WindowLogic::clampMonitorIndex(index, getMonitors().size());
    if (target < 0 || !windowHandle)
        return;
    const int current = getMonitorIndex();
    if (target == current)
        return;
    const bool wasFullscreen = fullscreen;
    setFullscreen(false);
    const Eigen::Vector2i position =
        WindowLogic::positionOnMonitor(WindowBackend::windowRect(windowHandle), monitors[current], monitors[target]);
    WindowBackend::moveWindow(windowHandle, position.x(), position.y());
    setFullscreen(wasFullscreen);
}
} // namespace OpenGL
} // namespace Tavrin
