// What only Win32 shows of a window: its class, extra memory, pixel format and WGL contexts.
#if defined(_WIN32)
#include "WindowTestSupport.h"

#include "support/TestSupport.h"

#include <opengl/OpenGLWindow.h>

#include <GL/glew.h>
#include <windows.h>

#include <iostream>
#include <string>

using Tavrin::OpenGL::OpenGLWindow;
using TavrinTest::StreamCapture;

namespace
{
bool runningUnderWine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

GLint integer(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}
} // namespace

TEST(OpenGLWindowWin32, FailedCreationsThenASecondWindowWithItsOwnContext)
{
    TAVRIN_REQUIRE_WINDOWS();
    OpenGLWindow& shared = *TavrinWindowTest::sharedWindow();
    shared.makeCurrent();
    const HGLRC firstContext = wglGetCurrentContext();
    ASSERT_NE(firstContext, nullptr);

    {
        // A parent that is not a window.
        StreamCapture err(std::cerr);
        OpenGLWindow orphan("Tavrin orphan window", reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0x7ead0)));
        EXPECT_EQ(err.text(), "ERROR: Failed to create window.");
        EXPECT_EQ(orphan.getWindowHandle(), nullptr);
        EXPECT_EQ(orphan.getDeviceContext(), nullptr);
    }
    {
        // Bytes >= 0x80: the class is registered under the sign-extended wide name, while the
        // window is created with the narrow name, which names another (unregistered) class.
        StreamCapture err(std::cerr);
        OpenGLWindow accented("Tavrin caf\xE9");
        EXPECT_EQ(err.text(), "ERROR: Failed to create window.");
        WNDCLASSW registered = {};
        EXPECT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), L"Tavrin caf\xFFE9", &registered));
        EXPECT_EQ(registered.style, static_cast<UINT>(CS_OWNDC));
        EXPECT_EQ(registered.cbWndExtra, 8);
        EXPECT_EQ(registered.hbrBackground, GetStockObject(BLACK_BRUSH));
        EXPECT_EQ(registered.hCursor, nullptr);
    }
    // Every constructor dropped the shared context, so windows have none to make current now;
    // the guard leaves the caller's current context alone.
    shared.makeCurrent();
    shared.swap();
    EXPECT_EQ(wglGetCurrentContext(), firstContext);

    StreamCapture err(std::cerr);
    OpenGLWindow second("Tavrin second window");
    EXPECT_EQ(err.text(), "");
    const HWND window = second.getWindowHandle();
    const HDC deviceContext = second.getDeviceContext();
    ASSERT_TRUE(IsWindow(window));
    ASSERT_NE(deviceContext, nullptr);
    EXPECT_TRUE(IsWindowVisible(window));
    EXPECT_EQ(GetDC(window), deviceContext); // the class's own device context
    EXPECT_EQ(reinterpret_cast<OpenGLWindow*>(GetWindowLongPtrW(window, 0)), &second);
    EXPECT_EQ(GetWindowLongPtrW(window, GWLP_USERDATA), 0);

    wchar_t className[64] = {};
    GetClassNameW(window, className, 64);
    EXPECT_EQ(std::wstring(className), L"Tavrin second window");
    char title[64] = {};
    GetWindowTextA(window, title, 64);
    EXPECT_STREQ(title, "Tavrin second window");
    EXPECT_EQ(GetWindowLongW(window, GWL_STYLE) & WS_OVERLAPPEDWINDOW, WS_OVERLAPPEDWINDOW);

    RECT client = {}, outer = {};
    GetClientRect(window, &client);
    GetWindowRect(window, &outer);
    EXPECT_EQ(client.right - client.left, 400);
    EXPECT_EQ(client.bottom - client.top, 300);
    EXPECT_EQ(outer.left, 100);
    EXPECT_EQ(outer.top, 100);

    PIXELFORMATDESCRIPTOR format = {};
    const int index = GetPixelFormat(deviceContext);
    ASSERT_GT(index, 0);
    ASSERT_GT(DescribePixelFormat(deviceContext, index, sizeof format, &format), 0);
    EXPECT_TRUE(format.dwFlags & PFD_DOUBLEBUFFER);
    EXPECT_TRUE(format.dwFlags & PFD_DRAW_TO_WINDOW);
    EXPECT_TRUE(format.dwFlags & PFD_SUPPORT_OPENGL);
    EXPECT_EQ(format.iPixelType, PFD_TYPE_RGBA);
    EXPECT_EQ(format.cDepthBits, 0);
    EXPECT_EQ(format.cColorBits, 24);
    if (runningUnderWine())
    {
        EXPECT_FALSE(format.dwFlags & PFD_STEREO) << "Wine offers no stereo format and picks a mono one";
    }

    // The new window's fresh context is current and has 1-byte pixel-store alignment ...
    const HGLRC secondContext = wglGetCurrentContext();
    EXPECT_NE(secondContext, firstContext);
    EXPECT_EQ(wglGetCurrentDC(), deviceContext);
    EXPECT_EQ(integer(GL_UNPACK_ALIGNMENT), 1);
    EXPECT_EQ(integer(GL_PACK_ALIGNMENT), 1);

    // ... and it is the one that the older window now binds to its own device context.
    shared.makeCurrent();
    EXPECT_EQ(wglGetCurrentContext(), secondContext);
    EXPECT_EQ(wglGetCurrentDC(), shared.getDeviceContext());
    second.makeCurrent();
    shared.swap();
    EXPECT_EQ(wglGetCurrentDC(), shared.getDeviceContext());
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}
#endif
