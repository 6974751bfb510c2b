// X11 input events as the Win32 messages they make, without a display.
#if !defined(_WIN32)
#include <gtest/gtest.h> // before the X11 headers, which define None

#include "../../source/opengl/x11/X11Events.h"

#include <X11/keysym.h>

using namespace Tavrin::OpenGL::X11;

namespace
{
long long keyBits(long long scan, long long flags) // scan 0x100: extended; flags 0x2000 Alt, 0x4000 repeat, 0xC000 up
{
    return 1 | (scan | flags) << 16;
}
// `detail`: the button, the focus mode or the exposure count.
XEvent event(int type, unsigned int detail, unsigned int state = 0)
{
    XEvent made = {};
    made.type = type;
    if (type == MotionNotify)
        made.xmotion.state = state, made.xmotion.x = 10, made.xmotion.y = 20;
    else if (type == FocusIn || type == FocusOut)
        made.xfocus.mode = static_cast<int>(detail), made.xfocus.detail = static_cast<int>(state);
    else if (type == Expose)
        made.xexpose.count = static_cast<int>(detail);
    else
        made.xbutton.button = detail, made.xbutton.state = state, made.xbutton.x = 10, made.xbutton.y = 20,
        made.xbutton.x_root = 110, made.xbutton.y_root = 120;
    return made;
}
} // namespace

// One sequence, so that what the state keeps (keys and extra buttons held) carries over.
TEST(X11Events, KeysButtonsFocusAndExposure)
{
    InputState input;
    const long long client = packWords(10, 20), screen = packWords(110, 120), a = keyBits(0x1E, 0),
                    c = keyBits(0x2E, 0), alt = keyBits(0x1E, 0x2000);
    const std::pair<KeyInput, std::vector<Message>> keys[] = {
        {{true, 38, 0, XK_a, XK_a, "a"}, {{0x100, 'A', a}, {0x102, 'a', a}}},
        {{true, 38, 0, XK_a, 0x0101F600, ""},
         {{0x100, 'A', a | 0x40000000},
          {0x102, 0xD83D, a | 0x40000000},
          {0x102, 0xDE00, a | 0x40000000}}}, // a repeat, beyond the basic plane
        {{false, 38, 0, XK_a, 0, ""}, {{0x101, 'A', keyBits(0x1E, 0xC000)}}},
        {{true, 64, 0, XK_Alt_L, 0, ""}, {{0x104, 0x12, keyBits(0x38, 0x2000)}}},
        {{true, 70, Mod1Mask, XK_F4, 0, ""}, {{0x104, 0x73, keyBits(0x3E, 0x2000)}, {0x112, 0xF060, 0}}},
        {{true, 38, Mod1Mask, XK_a, XK_a, "a"}, {{0x104, 'A', alt}, {0x106, 'a', alt}, {0x112, 0xF100, 'a'}}},
        {{true, 9, Mod1Mask, XK_Escape, XK_Escape, "\x1b"},
         {{0x104, 0x1B, keyBits(0x01, 0x2000)}, {0x106, 27, keyBits(0x01, 0x2000)}}},
        {{false, 64, Mod1Mask, XK_Alt_L, 0, ""}, {{0x101, 0x12, keyBits(0x38, 0xC000)}}},
        {{true, 54, ControlMask | Mod1Mask, XK_c, XK_c, "\x03"}, {{0x100, 'C', c}, {0x102, 3, c}}},
        {{true, 119, 0, XK_Delete, XK_Delete, "\x7f"}, {{0x100, 0x2E, keyBits(0x153, 0)}}}, // types nothing
        {{true, 76, 0, XK_F10, 0, ""}, {{0x104, 0x79, keyBits(0x44, 0)}}},
        {{true, 202, 0, XK_F24, 0, ""}, {{0x100, 0x87, keyBits(0, 0)}}}}; // the last function key, no scan code
    for (const auto& [key, expected] : keys)
        EXPECT_EQ(translateKey(key, input), expected) << key.symbol;
    const std::pair<XEvent, std::vector<Message>> events[] = {
        {event(ButtonPress, 1, ShiftMask), {{0x201, 0x05, client}}},
        {event(ButtonRelease, 1, Button1Mask), {{0x202, 0, client}}},
        {event(ButtonPress, 8), {{0x20B, 0x10020, client}}},
        {event(MotionNotify, 0, Button3Mask), {{0x200, 0x22, client}}},
        {event(ButtonPress, 5, ControlMask), {{0x20A, 0xFF880028, screen}}},
        {event(ButtonRelease, 5), {}},
        {event(ButtonPress, 7), {{0x20E, 0x00780020, screen}}},
        {event(ButtonRelease, 8), {{0x20C, 0x10000, client}}},
        {event(FocusOut, NotifyGrab), {}},
        {event(FocusIn, NotifyNormal, NotifyPointer), {}},
        {event(FocusOut, NotifyNormal), {{0x0008, 0, 0}}},
        {event(Expose, 1), {}},
        {event(Expose, 0), {{0x000F, 0, 0}}}};
    for (const auto& [xEvent, expected] : events)
        EXPECT_EQ(translateEvent(xEvent, input), expected) << xEvent.type;
    // Losing the focus forgot the keys held: the next press of C is no repeat.
    EXPECT_EQ(translateKey({true, 54, 0, XK_c, XK_c, "c"}, input),
              (std::vector<Message>{{0x100, 'C', c}, {0x102, 'c', c}}));
}
#endif
