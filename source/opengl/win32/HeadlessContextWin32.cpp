#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <windows.h>

#include <stdexcept>
#include <string>

namespace Tavrin
{
namespace OpenGL
{
struct HeadlessContext::Native
{
    HWND window = nullptr;
    HDC deviceContext = nullptr;
    HGLRC context = nullptr;
};

namespace
{
const wchar_t* const headlessClassName = L"TavrinHeadlessContext";

[[noreturn]] void fail(const char* step)
{
    throw std::runtime_error(std::string("HeadlessContext: ") + step + " failed (error " +
                             std::to_string(GetLastError()) + ")");
}
} // namespace

HeadlessContext::HeadlessContext()
    : native(new Native)
{
    WNDCLASSW windowClass = {};
    windowClass.style = CS_OWNDC;
    windowClass.lpfnWndProc = DefWindowProcW;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = headlessClassName;
    RegisterClassW(&windowClass); // a second registration fails harmlessly
    native->window = CreateWindowExW(0, headlessClassName, L"", WS_OVERLAPPEDWINDOW, 0, 0, 64, 64, nullptr, nullptr,
                                     GetModuleHandleW(nullptr), nullptr);
    if (!native->window)
        fail("CreateWindowExW");
    native->deviceContext = GetDC(native->window);
    PIXELFORMATDESCRIPTOR pixelFormat = {};
    pixelFormat.nSize = sizeof pixelFormat;
    pixelFormat.nVersion = 1;
    pixelFormat.dwFlags = PFD_DOUBLEBUFFER | PFD_DRAW_TO_WINDOW | PFD_SUPPORT_OPENGL;
    pixelFormat.iPixelType = PFD_TYPE_RGBA;
    pixelFormat.cColorBits = 24;
    pixelFormat.cAlphaBits = 8;
    const int index = ChoosePixelFormat(native->deviceContext, &pixelFormat);
    if (!index || !SetPixelFormat(native->deviceContext, index, &pixelFormat))
    {
        ReleaseDC(native->window, native->deviceContext);
        DestroyWindow(native->window);
        fail("SetPixelFormat");
    }
    native->context = OpenGLContext::getContext(native->deviceContext);
    if (!native->context)
    {
        ReleaseDC(native->window, native->deviceContext);
        DestroyWindow(native->window);
        fail("wglCreateContext");
    }
}

HeadlessContext::~HeadlessContext()
{
    wglMakeCurrent(nullptr, nullptr);
    wglDeleteContext(native->context);
    ReleaseDC(native->window, native->deviceContext);
    DestroyWindow(native->window);
}

void HeadlessContext::makeCurrent() const
{
    if (!wglMakeCurrent(native->deviceContext, native->context))
        fail("wglMakeCurrent");
}
} // namespace OpenGL
} // namespace Tavrin
