// What only Win32 shows of a window: its class, extra memory, style and pixel format.
#if defined(_WIN32)
#include "WindowTestSupport.h"

using namespace TavrinWindowTest;

TEST_F(SharedWindowTest, Win32ClassMemoryStyleAndPixelFormat)
{
    {
        // The class is named after the title widened byte by byte with sign extension, while the
        // window is created with the narrow title: with bytes >= 0x80 these name two classes.
        TavrinTest::StreamCapture err(std::cerr);
        EXPECT_EQ(OpenGLWindow("Tavrin caf\xE9").getWindowHandle(), nullptr);
        EXPECT_EQ(err.text(), "ERROR: Failed to create window.");
    }
    WNDCLASSW registered = {};
    ASSERT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), L"Tavrin caf\xFFE9", &registered));
    EXPECT_EQ(std::make_tuple(registered.style, registered.cbWndExtra, registered.hbrBackground, registered.hCursor),
              std::make_tuple(UINT(CS_OWNDC), 8, HBRUSH(GetStockObject(BLACK_BRUSH)), HCURSOR()));

    const HWND handle = window->getWindowHandle();
    const HDC context = window->getDeviceContext();
    EXPECT_EQ(GetDC(handle), context); // the class's own device context
    EXPECT_EQ(std::make_pair(GetWindowLongPtrW(handle, 0), GetWindowLongPtrW(handle, GWLP_USERDATA)),
              std::make_pair(reinterpret_cast<LONG_PTR>(window.get()), LONG_PTR(0))); // user data: the host's
    EXPECT_EQ(GetWindowLongW(handle, GWL_STYLE) & (WS_OVERLAPPEDWINDOW | WS_VISIBLE), WS_OVERLAPPEDWINDOW | WS_VISIBLE);
    PIXELFORMATDESCRIPTOR format = {};
    DescribePixelFormat(context, GetPixelFormat(context), sizeof format, &format);
    const DWORD flags = PFD_DOUBLEBUFFER | PFD_DRAW_TO_WINDOW | PFD_SUPPORT_OPENGL;
    EXPECT_EQ(std::make_tuple(format.dwFlags & flags, format.iPixelType, format.cColorBits, format.cDepthBits),
              std::make_tuple(flags, BYTE(PFD_TYPE_RGBA), BYTE(24), BYTE(0)));
}
#endif
