// What only Win32 shows of a window: its class, extra memory, style and pixel format.
#if defined(_WIN32)
#include "WindowTestSupport.h"

#include "support/TestSupport.h"

#include <iostream>
#include <tuple>

using TavrinWindowTest::OpenGLWindow;

TEST(OpenGLWindowWin32, ClassMemoryStyleAndPixelFormat)
{
    TAVRIN_REQUIRE_WINDOWS();
    {
        // The class is named after the title widened byte by byte with sign extension, while the
        // window is created with the narrow title: with bytes >= 0x80 these name two classes.
        TavrinTest::StreamCapture err(std::cerr);
        EXPECT_EQ(OpenGLWindow("Tavrin caf\xE9").getWindowHandle(), nullptr);
        EXPECT_EQ(err.text(), "ERROR: Failed to create window.");
    }
    WNDCLASSW registered = {};
    ASSERT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), L"Tavrin caf\xFFE9", &registered));
    EXPECT_EQ(registered.style, static_cast<UINT>(CS_OWNDC));
    EXPECT_EQ(registered.cbWndExtra, 8);
    EXPECT_EQ(registered.hbrBackground, GetStockObject(BLACK_BRUSH));
    EXPECT_EQ(registered.hCursor, nullptr);

    OpenGLWindow second("Tavrin second window");
    const HWND window = second.getWindowHandle();
    EXPECT_EQ(GetDC(window), second.getDeviceContext()); // the class's own device context
    EXPECT_EQ(reinterpret_cast<OpenGLWindow*>(GetWindowLongPtrW(window, 0)), &second);
    EXPECT_EQ(GetWindowLongPtrW(window, GWLP_USERDATA), 0); // left to the host
    EXPECT_EQ(GetWindowLongW(window, GWL_STYLE) & (WS_OVERLAPPEDWINDOW | WS_VISIBLE), WS_OVERLAPPEDWINDOW | WS_VISIBLE);
    PIXELFORMATDESCRIPTOR format = {};
    DescribePixelFormat(second.getDeviceContext(), GetPixelFormat(second.getDeviceContext()), sizeof format, &format);
    const DWORD flags = PFD_DOUBLEBUFFER | PFD_DRAW_TO_WINDOW | PFD_SUPPORT_OPENGL;
    EXPECT_EQ(format.dwFlags & flags, flags);
    EXPECT_EQ(std::make_tuple(format.iPixelType, format.cColorBits, format.cDepthBits),
              std::make_tuple(BYTE(PFD_TYPE_RGBA), BYTE(24), BYTE(0)));
}
#endif
