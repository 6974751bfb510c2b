# Sourced by the scripts: starts Xvfb with openbox on a free display, exports DISPLAY, and
# stops both when the calling script exits. An existing DISPLAY is kept when TAVRIN_USE_DISPLAY=1.
tavrin_start_xvfb() {
  if [[ "${TAVRIN_USE_DISPLAY:-0}" == 1 && -n "${DISPLAY:-}" ]]; then return 0; fi
  local number=90
  while [[ -e /tmp/.X11-unix/X$number || -e /tmp/.X$number-lock ]]; do number=$((number + 1)); done
  Xvfb ":$number" -screen 0 1280x1024x24 -nolisten tcp >/dev/null 2>&1 &
  TAVRIN_XVFB_PID=$!
  export DISPLAY=":$number"
  for _ in $(seq 100); do
    xdpyinfo >/dev/null 2>&1 && break
    sleep 0.1
  done
  openbox >/dev/null 2>&1 &
  TAVRIN_OPENBOX_PID=$!
  trap 'kill $TAVRIN_OPENBOX_PID $TAVRIN_XVFB_PID 2>/dev/null; wait 2>/dev/null' EXIT
  sleep 0.5
}
