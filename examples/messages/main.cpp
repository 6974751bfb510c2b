// Measuring host for the window's messages: opens one window and prints, one line each and
// flushed at once, every message of the set the window maps on every platform (with the wParam
// and lParam parts that matter), until the window is destroyed. scripts/messages.sh drives it.
// usage: tavrin_messages [TITLE] [--all]   (--all: also other messages, by number)
#include <opengl/OpenGLWindow.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

namespace
{
struct MessageName
{
    unsigned int message;
    const char* name;
};

const MessageName messageNames[] = {
    {0x0002, "WM_DESTROY"},    {0x0003, "WM_MOVE"},     {0x0005, "WM_SIZE"},    {0x0007, "WM_SETFOCUS"},
    {0x0008, "WM_KILLFOCUS"},  {0x000F, "WM_PAINT"},    {0x0010, "WM_CLOSE"},   {0x0012, "WM_QUIT"},
    {0x0082, "WM_NCDESTROY"},  {0x0100, "WM_KEYDOWN"},  {0x0101, "WM_KEYUP"},   {0x0102, "WM_CHAR"},
    {0x0104, "WM_SYSKEYDOWN"}, {0x0105, "WM_SYSKEYUP"}, {0x0106, "WM_SYSCHAR"}, {0x0112, "WM_SYSCOMMAND"},
};

const char* nameOf(unsigned int message)
{
    for (const MessageName& entry : messageNames)
        if (entry.message == message)
            return entry.name;
    return nullptr;
}

// MAKELPARAM's words, read back signed (positions may be negative).
int lowWord(long long value)
{
    return static_cast<short>(static_cast<unsigned short>(value & 0xFFFF));
}
int highWord(long long value)
{
    return static_cast<short>(static_cast<unsigned short>((value >> 16) & 0xFFFF));
}

void print(unsigned int message, unsigned long long wParam, long long lParam, bool all)
{
    const char* name = nameOf(message);
    if (!name)
    {
        if (all)
            std::printf("0x%04X %llx %llx\n", message, wParam, static_cast<unsigned long long>(lParam));
        return;
    }
    switch (message)
    {
    case 0x0003: // client top-left
        std::printf("%s %d,%d\n", name, lowWord(lParam), highWord(lParam));
        break;
    case 0x0005: // kind, client width and height
        std::printf("%s %llu %dx%d\n", name, wParam, lowWord(lParam), highWord(lParam));
        break;
    case 0x0100:
    case 0x0101:
    case 0x0104:
    case 0x0105: // virtual key; scan code and the extended, Alt, previous and transition bits
        std::printf("%s vk=0x%02llX scan=0x%02llX flags=0x%X\n", name, wParam,
                    static_cast<unsigned long long>((lParam >> 16) & 0xFF),
                    static_cast<unsigned int>((static_cast<unsigned long long>(lParam) >> 24) & 0xFF));
        break;
    case 0x0102:
    case 0x0106:
        std::printf("%s 0x%llX\n", name, wParam);
        break;
    case 0x0112: // the command's low four bits are the system's own
        std::printf("%s 0x%llX\n", name, wParam & 0xFFF0);
        break;
    default:
        std::printf("%s\n", name);
    }
}
} // namespace

int main(int argc, char** argv)
{
    std::string title = "Tavrin messages";
    bool all = false;
    for (int i = 1; i < argc; ++i)
    {
        if (std::strcmp(argv[i], "--all") == 0)
            all = true;
        else
            title = argv[i];
    }

    bool destroyed = false;
    Tavrin::OpenGL::OpenGLWindow window(title);
    if (!window.getWindowHandle())
        return 1;
    window.addMesageHandler(
        "print", [&](Tavrin::OpenGL::OpenGLWindow*, unsigned int message, unsigned long long wParam, long long lParam) {
            print(message, wParam, lParam, all);
            std::fflush(stdout);
            if (message == 0x0082)
                destroyed = true;
        });
    std::printf("READY\n");
    std::fflush(stdout);
    // Polls rather than waits: processMessages returns at once when nothing is queued.
    while (!destroyed)
    {
        window.processMessages();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return 0;
}
