#!/usr/bin/env bash
# Runs a command on a private X display with a window manager and a session bus: Xvfb, openbox and
# dbus-launch. Exits 77 (skipped) when Xvfb or openbox is not installed.
set -euo pipefail
command -v Xvfb >/dev/null && command -v openbox >/dev/null || { echo "Xvfb or openbox missing: skipped"; exit 77; }

display=":$((90 + RANDOM % 400))"
while [[ -e "/tmp/.X11-unix/X${display#:}" ]]; do display=":$((90 + RANDOM % 400))"; done
Xvfb "$display" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
cleanup() { [[ -n "${wm:-}" ]] && kill "$wm" 2>/dev/null; kill "$xvfb" 2>/dev/null; [[ -n "${DBUS_SESSION_BUS_PID:-}" ]] && kill "$DBUS_SESSION_BUS_PID" 2>/dev/null; true; }
trap cleanup EXIT
export DISPLAY="$display"
for _ in $(seq 100); do [[ -e "/tmp/.X11-unix/X${display#:}" ]] && break; sleep 0.05; done
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
