#!/usr/bin/env bash
# Runs a command on a private X display with a window manager and a session bus: Xvfb, openbox and
# dbus-launch. Exits 77 (skipped) when Xvfb or openbox is not installed.
set -euo pipefail
command -v Xvfb >/dev/null && command -v openbox >/dev/null || { echo "Xvfb or openbox missing: skipped"; exit 77; }

workdir=$(mktemp -d)
wm=""
cleanup() {
  [[ -n $wm ]] && kill "$wm" 2>/dev/null
  [[ -n ${xvfb:-} ]] && kill "$xvfb" 2>/dev/null
  [[ -n ${DBUS_SESSION_BUS_PID:-} ]] && kill "$DBUS_SESSION_BUS_PID" 2>/dev/null
  rm -rf "$workdir"
  true
}
trap cleanup EXIT

# Xvfb picks a free display itself and writes its number, then a newline, once it accepts
# connections: a number read before the newline may be partial, and a number guessed here could be
# another test's display.
: >"$workdir/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$workdir/display" >"$workdir/xvfb.log" 2>&1 &
xvfb=$!
number=""
for _ in $(seq 200); do
  if [[ $(tail -c 1 "$workdir/display" | od -An -c | tr -d ' ') == '\n' ]]; then
    number=$(tr -dc 0-9 <"$workdir/display")
    break
  fi
  kill -0 "$xvfb" 2>/dev/null || break
  sleep 0.05
done
if [[ -z $number ]]; then
  echo "Xvfb did not start: skipped" >&2
  cat "$workdir/xvfb.log" >&2
  exit 77
fi
export DISPLAY=":$number"
unset WAYLAND_DISPLAY
eval "$(dbus-launch --sh-syntax)"
export NO_AT_BRIDGE=1
openbox >/dev/null 2>&1 &
wm=$!
# Wait for the window manager to announce itself (up to 5 s).
for _ in $(seq 100); do
  xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && break
  sleep 0.05
done
"$@"
