#!/usr/bin/env bash
# Measures which messages each user action delivers to a window: the native (X11) build and the
# Windows build under Wine, on a private Xvfb with openbox, driven by xdotool and by the client
# messages a pager sends (_NET_WM_STATE, _NET_CLOSE_WINDOW). Prints the two sequences per action
# side by side, as a Markdown table (docs/window-messages.md holds a measured copy).
#   scripts/messages.sh [--all]   (--all: also the messages outside the mapped set, by number)
# Needs build/native/bin/tavrin_messages and build/windows/bin/tavrin_messages.exe.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
native=build/native/bin/tavrin_messages
windows=build/windows/bin/tavrin_messages.exe
for program in "$native" "$windows"; do
  [[ -x $program || -f $program ]] || { echo "missing $program: build the tavrin_messages target" >&2; exit 1; }
done
export WINEDEBUG=-all WINEPREFIX="$root/build/wineprefix"
source scripts/xvfb.sh
tavrin_start_xvfb
work=$(mktemp -d)
trap 'kill $TAVRIN_OPENBOX_PID $TAVRIN_XVFB_PID 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT

# Sends a pager's client message to the root window: "state ACTION ATOM [ATOM]" (_NET_WM_STATE,
# ACTION 0 remove, 1 add) or "close" (_NET_CLOSE_WINDOW, what openbox's close button does).
wm_message() {
  python3 - "$@" <<'PY'
import ctypes, sys
x = ctypes.CDLL("libX11.so.6")
x.XOpenDisplay.restype = ctypes.c_void_p
x.XOpenDisplay.argtypes = [ctypes.c_char_p]
x.XInternAtom.restype = ctypes.c_ulong
x.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
x.XDefaultRootWindow.restype = ctypes.c_ulong
x.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
x.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long, ctypes.c_void_p]
x.XFlush.argtypes = [ctypes.c_void_p]
x.XCloseDisplay.argtypes = [ctypes.c_void_p]
class ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("data", ctypes.c_long * 5)]
class Event(ctypes.Union):
    _fields_ = [("xclient", ClientMessage), ("pad", ctypes.c_long * 24)]
display = x.XOpenDisplay(None)
atom = lambda name: x.XInternAtom(display, name.encode(), 0)
window, kind = int(sys.argv[1]), sys.argv[2]
event = Event()
event.xclient.type, event.xclient.window, event.xclient.format = 33, window, 32  # ClientMessage
if kind == "state":
    event.xclient.message_type = atom("_NET_WM_STATE")
    names = sys.argv[4:] + ["", ""]
    event.xclient.data[:] = [int(sys.argv[3]), atom(names[0]) if names[0] else 0,
                             atom(names[1]) if names[1] else 0, 2, 0]
else:
    event.xclient.message_type = atom("_NET_CLOSE_WINDOW")
    event.xclient.data[:] = [0, 2, 0, 0, 0]
# SubstructureRedirectMask | SubstructureNotifyMask
x.XSendEvent(display, x.XDefaultRootWindow(display), 0, (1 << 20) | (1 << 19), ctypes.byref(event))
x.XFlush(display)
x.XCloseDisplay(display)
PY
}

# A second client to take the focus away.
"$native" "Tavrin focus" >/dev/null 2>&1 &
focus_pid=$!
focus=$(xdotool search --sync --name '^Tavrin focus$' | head -1)

# One session: starts the host, waits for its window, then runs "label|command" actions, each
# preceded by a marker line in the host's output. $window names the host's window in commands.
session() {
  local log=$1; shift
  local -a host=("${@:1:$(($# - 1))}")
  local actions=${!#}
  : >"$log"
  "${host[@]}" "Tavrin messages" $all >>"$log" 2>/dev/null &
  local pid=$!
  window=$(xdotool search --sync --name '^Tavrin messages$' | head -1)
  sleep 1.5
  xdotool windowactivate --sync "$window" 2>/dev/null
  sleep 1
  while IFS='|' read -r label command; do
    [[ -n $label ]] || continue
    echo "## $label" >>"$log"
    eval "$command" 2>/dev/null
    sleep 1
  done <<<"$actions"
  echo "## end" >>"$log"
  for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
  kill "$pid" 2>/dev/null
  wait "$pid" 2>/dev/null
}

all=""
[[ "${1:-}" == --all ]] && all=--all
actions='key A|xdotool key a
key Alt+A|xdotool key alt+a
focus to another window|xdotool windowactivate --sync $focus
focus back|xdotool windowactivate --sync $window
minimise|xdotool windowminimize --sync $window
restore|xdotool windowactivate --sync $window
maximise|wm_message $window state 1 _NET_WM_STATE_MAXIMIZED_VERT _NET_WM_STATE_MAXIMIZED_HORZ
restore from maximised|wm_message $window state 0 _NET_WM_STATE_MAXIMIZED_VERT _NET_WM_STATE_MAXIMIZED_HORZ
move to (200, 150)|xdotool windowmove --sync $window 200 150
resize to 500 x 400|xdotool windowsize --sync $window 500 400
full screen on|wm_message $window state 1 _NET_WM_STATE_FULLSCREEN
full screen off|wm_message $window state 0 _NET_WM_STATE_FULLSCREEN
Alt+F4|xdotool key alt+F4'
closing='close button|wm_message $window close'

for platform in windows native; do
  if [[ $platform == windows ]]; then host=(wine "$windows"); else host=("$native"); fi
  session "$work/$platform-1" "${host[@]}" "$actions"
  session "$work/$platform-2" "${host[@]}" "$closing"
done
kill "$focus_pid" 2>/dev/null
wait "$focus_pid" 2>/dev/null

# Side by side: one row per action, the messages in order.
python3 - "$work" <<'PY'
import sys
def sections(path):
    result, label = {}, None
    try:
        lines = open(path, errors="replace").read().splitlines()
    except OSError:
        return result
    for line in lines:
        line = line.strip()
        if line.startswith("## "):
            label = line[3:]
            result[label] = []
        elif label and label != "end" and line and line != "READY":
            result[label].append(line)
    return result
work = sys.argv[1]
win, nat = {}, {}
for n in ("1", "2"):
    win.update(sections(f"{work}/windows-{n}"))
    nat.update(sections(f"{work}/native-{n}"))
print("| Action | Win32 under Wine | X11 (native) |")
print("|---|---|---|")
for label in [l for l in {**nat, **win} if l != "end"]:
    cell = lambda lines: "<br>".join(lines) if lines else "(none)"
    print(f"| {label} | {cell(win.get(label, []))} | {cell(nat.get(label, []))} |")
PY
