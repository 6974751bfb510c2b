#include "X11Keyboard.h"

#include <X11/keysym.h>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
namespace
{
struct SymbolKey
{
    KeySym symbol;
    unsigned int key;
};

// Keys whose symbols are not in a contiguous block.
const SymbolKey symbolKeys[] = {
    {XK_BackSpace, 0x08},    {XK_Tab, 0x09},          {XK_ISO_Left_Tab, 0x09}, {XK_KP_Begin, 0x0C},
    {XK_Clear, 0x0C},        {XK_Return, 0x0D},       {XK_KP_Enter, 0x0D},     {XK_Shift_L, 0x10},
    {XK_Shift_R, 0x10},      {XK_Control_L, 0x11},    {XK_Control_R, 0x11},    {XK_Alt_L, 0x12},
    {XK_Alt_R, 0x12},        {XK_Meta_L, 0x12},       {XK_Meta_R, 0x12},       {XK_ISO_Level3_Shift, 0x12},
    {XK_Pause, 0x13},        {XK_Caps_Lock, 0x14},    {XK_Escape, 0x1B},       {XK_space, 0x20},
    {XK_KP_Space, 0x20},     {XK_Prior, 0x21},        {XK_KP_Prior, 0x21},     {XK_Next, 0x22},
    {XK_KP_Next, 0x22},      {XK_End, 0x23},          {XK_KP_End, 0x23},       {XK_Home, 0x24},
    {XK_KP_Home, 0x24},      {XK_Left, 0x25},         {XK_KP_Left, 0x25},      {XK_Up, 0x26},
    {XK_KP_Up, 0x26},        {XK_Right, 0x27},        {XK_KP_Right, 0x27},     {XK_Down, 0x28},
    {XK_KP_Down, 0x28},      {XK_Select, 0x29},       {XK_Print, 0x2C},        {XK_Insert, 0x2D},
    {XK_KP_Insert, 0x2D},    {XK_Delete, 0x2E},       {XK_KP_Delete, 0x2E},    {XK_Help, 0x2F},
    {XK_Super_L, 0x5B},      {XK_Super_R, 0x5C},      {XK_Menu, 0x5D},         {XK_KP_Multiply, 0x6A},
    {XK_KP_Add, 0x6B},       {XK_KP_Separator, 0x6C}, {XK_KP_Subtract, 0x6D},  {XK_KP_Decimal, 0x6E},
    {XK_KP_Divide, 0x6F},    {XK_Num_Lock, 0x90},     {XK_Scroll_Lock, 0x91},  {XK_semicolon, 0xBA},
    {XK_equal, 0xBB},        {XK_comma, 0xBC},        {XK_minus, 0xBD},        {XK_period, 0xBE},
    {XK_slash, 0xBF},        {XK_grave, 0xC0},        {XK_bracketleft, 0xDB},  {XK_backslash, 0xDC},
    {XK_bracketright, 0xDD}, {XK_apostrophe, 0xDE},   {XK_less, 0xE2},
};

struct EvdevScan
{
    unsigned int evdev;
    unsigned int scan;
};

// Keys of evdev codes past the classic block, all sent with the E0 prefix on a PC keyboard.
const EvdevScan extendedKeys[] = {
    {96, 0x1C},  // keypad Enter
    {97, 0x1D},  // right Control
    {98, 0x35},  // keypad divide
    {99, 0x37},  // Print Screen
    {100, 0x38}, // right Alt
    {102, 0x47}, // Home
    {103, 0x48}, // Up
    {104, 0x49}, // Page Up
    {105, 0x4B}, // Left
    {106, 0x4D}, // Right
    {107, 0x4F}, // End
    {108, 0x50}, // Down
    {109, 0x51}, // Page Down
    {110, 0x52}, // Insert
    {111, 0x53}, // Delete
    {125, 0x5B}, // left Windows key
    {126, 0x5C}, // right Windows key
    {127, 0x5D}, // menu key
};
} // namespace

unsigned int virtualKey(KeySym symbol)
{
    if (symbol >= XK_a && symbol <= XK_z)
        return 'A' + static_cast<unsigned int>(symbol - XK_a);
    if (symbol >= XK_A && symbol <= XK_Z)
        return 'A' + static_cast<unsigned int>(symbol - XK_A);
    if (symbol >= XK_0 && symbol <= XK_9)
        return '0' + static_cast<unsigned int>(symbol - XK_0);
    if (symbol >= XK_F1 && symbol <= XK_F24)
        return 0x70 + static_cast<unsigned int>(symbol - XK_F1);
    if (symbol >= XK_KP_0 && symbol <= XK_KP_9)
        return 0x60 + static_cast<unsigned int>(symbol - XK_KP_0);
    for (const SymbolKey& entry : symbolKeys)
        if (entry.symbol == symbol)
            return entry.key;
    return 0;
}

unsigned int scanCode(unsigned int keyCode, bool& extended)
{
    extended = false;
    if (keyCode < 8)
        return 0;
    const unsigned int evdev = keyCode - 8;
    // Escape (1) to F12 (88): evdev numbers these keys by their set-1 codes.
    if (evdev >= 1 && evdev <= 88)
        return evdev;
    for (const EvdevScan& entry : extendedKeys)
        if (entry.evdev == evdev)
        {
            extended = true;
            return entry.scan;
        }
    return 0;
}
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
