#pragma once

// Internal: what Win32 reports for a key, derived from an X key event: the virtual-key code and
// the scan code with its extended-key flag.

#include <X11/Xlib.h>

namespace Tavrin
{
namespace OpenGL
{
namespace X11
{
/// The Win32 virtual-key code of a key symbol: letters 'A'..'Z' (either case), digits
/// '0'..'9', F1..F24 0x70.., arrows, editing and navigation keys, Escape, Return (keypad Enter
/// too), Space, Tab, Backspace, Shift 0x10, Control 0x11, Alt 0x12 (either side, AltGr too),
/// the Windows and menu keys, the keypad, and the punctuation keys of a US layout (VK_OEM_*).
/// 0 for a symbol without a Win32 counterpart.
unsigned int virtualKey(KeySym symbol);

/// The PC keyboard's (set 1) scan code of an X key code, for the evdev key codes that X servers
/// use on Linux (X key code = evdev code + 8); `extended` tells keys sent with the E0 prefix
/// (right Control and Alt, the arrow and editing blocks, keypad Enter and divide). 0 when the
/// key has no set-1 code here.
unsigned int scanCode(unsigned int keyCode, bool& extended);
} // namespace X11
} // namespace OpenGL
} // namespace Tavrin
