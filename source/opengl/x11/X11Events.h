#pragma once

// Internal: X11 input events as the Win32 messages that a window procedure receives for them.
// The translation needs no display (the key lookups that do are made before), so it is tested
// without one.

#include <X11/Xlib.h>

#include <string>
#include <vector>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
/// The Win32 message numbers and values that the X11 back end sends, in one list for its files.
namespace WindowsMessages
{
constexpr unsigned int messageDestroy = 0x0002, messageMove = 0x0003, messageSize = 0x0005, messageSetFocus = 0x0007,
                       messageKillFocus = 0x0008, messagePaint = 0x000F, messageClose = 0x0010,
                       messageNcDestroy = 0x0082, messageKeyDown = 0x0100, messageKeyUp = 0x0101, messageChar = 0x0102,
                       messageSysKeyDown = 0x0104, messageSysKeyUp = 0x0105, messageSysChar = 0x0106,
                       messageSysCommand = 0x0112, messageMouseMove = 0x0200, messageLeftButtonDown = 0x0201,
                       messageLeftButtonUp = 0x0202, messageRightButtonDown = 0x0204, messageRightButtonUp = 0x0205,
                       messageMiddleButtonDown = 0x0207, messageMiddleButtonUp = 0x0208, messageMouseWheel = 0x020A,
                       messageExtraButtonDown = 0x020B, messageExtraButtonUp = 0x020C,
                       messageMouseHorizontalWheel = 0x020E;
/// WM_SYSCOMMAND's commands.
constexpr unsigned long long systemCommandMinimize = 0xF020, systemCommandMaximize = 0xF030,
                             systemCommandClose = 0xF060, systemCommandKeyMenu = 0xF100, systemCommandRestore = 0xF120;
/// WM_SIZE's kinds.
constexpr unsigned long long sizeRestored = 0, sizeMinimized = 1, sizeMaximized = 2;
} // namespace WindowsMessages

/// One Win32 message: number, wParam, lParam.
struct Message
{
    unsigned int message;
    unsigned long long wParam;
    long long lParam;
    bool operator==(const Message& other) const
    {
        return message == other.message && wParam == other.wParam && lParam == other.lParam;
    }
};

/// What the translation keeps from one event to the next.
struct InputState
{
    /// Keys down by X key code, for the previous-state bit of key messages.
    bool keysDown[256] = {};
    /// Buttons 8 and 9 held (MK_XBUTTON1, MK_XBUTTON2): the core event state has no masks for them.
    unsigned long long extraButtonsDown = 0;
};

/// A key event with what the keyboard mapping gives for it.
struct KeyInput
{
    bool pressed = false;
    unsigned int keyCode = 0;
    /// The modifiers and buttons before the event (the X event's state).
    unsigned int state = 0;
    /// The key's unshifted symbol (the keypad's digit one under Num Lock).
    KeySym symbol = NoSymbol;
    /// For a press: the symbol and the Latin-1 text that the key types (XLookupString).
    KeySym typedSymbol = NoSymbol;
    std::string typed;
};

/// MAKELPARAM: two 16-bit words, zero-extended as Win32 packs them.
long long packWords(int low, int high);

/// A press: WM_KEYDOWN, or WM_SYSKEYDOWN while Alt is held without Control and for F10, then
/// WM_CHAR (WM_SYSCHAR) per UTF-16 unit typed, and the default processing's WM_SYSCOMMAND:
/// SC_KEYMENU (the unit in lParam) after each WM_SYSCHAR with Alt held, but for Tab and Escape;
/// SC_CLOSE for Alt+F4. A release: WM_KEYUP or WM_SYSKEYUP.
std::vector<Message> translateKey(const KeyInput& key, InputState& input);

/// Buttons, wheels, pointer motion, focus changes (not those of keyboard grabs; losing the focus
/// forgets the keys down) and the last exposure of a series; other events give nothing.
std::vector<Message> translateEvent(const XEvent& event, InputState& input);
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
