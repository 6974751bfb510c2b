#include "X11Events.h"

#include "X11Keyboard.h"

#include <X11/keysym.h>

#include <algorithm>
#include <iterator>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
namespace
{
using namespace WindowsMessages;

const unsigned long long mouseLeft = 0x01, mouseRight = 0x02, mouseShift = 0x04, mouseControl = 0x08,
                         mouseMiddle = 0x10, mouseExtra1 = 0x20, mouseExtra2 = 0x40;
const unsigned int keyF4 = 0x73, keyF10 = 0x79;
const int wheelDelta = 120;

// The MK_* flags of the mouse buttons and modifiers in an event's state (the state before it).
unsigned long long mouseKeys(unsigned int state, const InputState& input)
{
    unsigned long long keys = input.extraButtonsDown;
    if (state & Button1Mask)
        keys |= mouseLeft;
    if (state & Button2Mask)
        keys |= mouseMiddle;
    if (state & Button3Mask)
        keys |= mouseRight;
    if (state & ShiftMask)
        keys |= mouseShift;
    if (state & ControlMask)
        keys |= mouseControl;
    return keys;
}

// The characters that TranslateMessage would post: Latin-1 from the key's string, or the code
// point of a Unicode key symbol (two UTF-16 units beyond the basic plane).
std::vector<unsigned int> typedUnits(const KeyInput& key)
{
    std::vector<unsigned int> units;
    if (key.typedSymbol == XK_Delete || key.typedSymbol == XK_KP_Delete) // types nothing, as on Win32
        return units;
    for (const char byte : key.typed)
        units.push_back(static_cast<unsigned char>(byte));
    if (units.empty() && key.typedSymbol >= 0x01000100 && key.typedSymbol <= 0x0110FFFF)
    {
        const unsigned int point = static_cast<unsigned int>(key.typedSymbol - 0x01000000);
        if (point < 0x10000)
            units.push_back(point);
        else
        {
            units.push_back(0xD800 + ((point - 0x10000) >> 10));
            units.push_back(0xDC00 + ((point - 0x10000) & 0x3FF));
        }
    }
    return units;
}

std::vector<Message> translateButton(const XButtonEvent& event, bool pressed, InputState& input)
{
    const unsigned long long keys = mouseKeys(event.state, input);
    if (event.button >= 4 && event.button <= 7)
    {
        // Wheel steps come as presses (and releases, ignored); their position is the screen's.
        if (!pressed)
            return {};
        const bool vertical = event.button <= 5;
        const int delta = (event.button == 4 || event.button == 7) ? wheelDelta : -wheelDelta;
        const unsigned long long wParam =
            (static_cast<unsigned long long>(static_cast<unsigned short>(delta)) << 16) | keys;
        return {{vertical ? messageMouseWheel : messageMouseHorizontalWheel, wParam,
                 packWords(event.x_root, event.y_root)}};
    }
    unsigned int message = 0;
    unsigned long long button = 0, extra = 0;
    switch (event.button)
    {
    case Button1:
        message = pressed ? messageLeftButtonDown : messageLeftButtonUp;
        button = mouseLeft;
        break;
    case Button2:
        message = pressed ? messageMiddleButtonDown : messageMiddleButtonUp;
        button = mouseMiddle;
        break;
    case Button3:
        message = pressed ? messageRightButtonDown : messageRightButtonUp;
        button = mouseRight;
        break;
    case 8:
    case 9:
        message = pressed ? messageExtraButtonDown : messageExtraButtonUp;
        button = event.button == 8 ? mouseExtra1 : mouseExtra2;
        extra = event.button == 8 ? 1 : 2;
        if (pressed)
            input.extraButtonsDown |= button;
        else
            input.extraButtonsDown &= ~button;
        break;
    default:
        return {};
    }
    // The flags tell the state after the event, as Win32's do.
    const unsigned long long flags = pressed ? (keys | button) : (keys & ~button);
    return {{message, (extra << 16) | flags, packWords(event.x, event.y)}};
}
} // namespace

long long packWords(int low, int high)
{
    return static_cast<long long>((static_cast<unsigned long long>(static_cast<unsigned int>(high) & 0xFFFF) << 16) |
                                  (static_cast<unsigned int>(low) & 0xFFFF));
}

std::vector<Message> translateKey(const KeyInput& key, InputState& input)
{
    const unsigned int virtualCode = virtualKey(key.symbol);
    bool extended = false;
    const unsigned int scan = scanCode(key.keyCode, extended);
    const bool altKey =
        key.symbol == XK_Alt_L || key.symbol == XK_Alt_R || key.symbol == XK_Meta_L || key.symbol == XK_Meta_R;
    // The state is the one before the event: Alt is held while it goes down, not after it is up.
    const bool altHeld = key.pressed ? ((key.state & Mod1Mask) || altKey) : ((key.state & Mod1Mask) && !altKey);
    const bool system = (altHeld && !(key.state & ControlMask)) || virtualCode == keyF10;

    unsigned long long bits = 1 | (static_cast<unsigned long long>(scan & 0xFF) << 16);
    if (extended)
        bits |= 1ull << 24;
    if (system && altHeld)
        bits |= 1ull << 29;
    bool& down = input.keysDown[key.keyCode & 0xFF];
    if (!key.pressed)
        bits |= (1ull << 30) | (1ull << 31);
    else if (down)
        bits |= 1ull << 30; // a repeat
    down = key.pressed;
    const long long lParam = static_cast<long long>(bits);

    if (!key.pressed)
        return {{system ? messageSysKeyUp : messageKeyUp, virtualCode, lParam}};
    std::vector<Message> messages = {{system ? messageSysKeyDown : messageKeyDown, virtualCode, lParam}};
    for (const unsigned int unit : typedUnits(key))
    {
        messages.push_back({system ? messageSysChar : messageChar, unit, lParam});
        // Default processing of an Alt+character (not Tab or Escape): the menu key command.
        if (system && altHeld && unit != '\t' && unit != 0x1B)
            messages.push_back({messageSysCommand, systemCommandKeyMenu, unit});
    }
    // Default processing of Alt+F4: the system menu's Close command.
    if (system && altHeld && virtualCode == keyF4)
        messages.push_back({messageSysCommand, systemCommandClose, 0});
    return messages;
}

std::vector<Message> translateEvent(const XEvent& event, InputState& input)
{
    switch (event.type)
    {
    case ButtonPress:
    case ButtonRelease:
        return translateButton(event.xbutton, event.type == ButtonPress, input);
    case MotionNotify:
        return {{messageMouseMove, mouseKeys(event.xmotion.state, input), packWords(event.xmotion.x, event.xmotion.y)}};
    case FocusIn:
    case FocusOut:
        // Focus moved for a keyboard grab (a window manager's key binding) is not a focus change.
        if (event.xfocus.mode == NotifyGrab || event.xfocus.mode == NotifyUngrab ||
            event.xfocus.detail == NotifyPointer || event.xfocus.detail == NotifyInferior)
            return {};
        // Keys released while another window has the focus are not seen: none counts as down.
        if (event.type == FocusOut)
            std::fill(std::begin(input.keysDown), std::end(input.keysDown), false);
        return {{event.type == FocusIn ? messageSetFocus : messageKillFocus, 0, 0}};
    case Expose:
        if (event.xexpose.count == 0)
            return {{messagePaint, 0, 0}};
        return {};
    default:
        return {};
    }
}
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
