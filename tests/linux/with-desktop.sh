#!/usr/bin/env bash
# Runs a command on a private, headless desktop: Xvfb, a session bus of its own, the
# accessibility bus and a window manager. Exit status 77 (skipped) when no display can start.
#   tests/linux/with-desktop.sh CMD [ARGS…]
set -uo pipefail

for tool in Xvfb dbus-launch openbox; do
  if ! command -v "$tool" >/dev/null; then
    echo "with-desktop: $tool is not installed (tools/setup installs it); skipping" >&2
    exit 77
  fi
done
launcher=""
for candidate in /usr/libexec/at-spi-bus-launcher /usr/lib/at-spi2-core/at-spi-bus-launcher; do
  [[ -x $candidate ]] && launcher=$candidate && break
done
if [[ -z $launcher ]]; then
  echo "with-desktop: the accessibility bus launcher is missing; skipping" >&2
  exit 77
fi

workdir=$(mktemp -d)
pids=()
cleanup() {
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null; done
  wait 2>/dev/null
  [[ -n ${DBUS_SESSION_BUS_PID:-} ]] && kill "$DBUS_SESSION_BUS_PID" 2>/dev/null
  rm -rf "$workdir"
}
trap cleanup EXIT

# Xvfb picks a free display number and writes it, with a newline, to the descriptor given. The
# file exists before Xvfb starts: the redirection below happens in the background job, later.
# -noreset: by default the server resets when its last client leaves, and a client connecting
# during the reset is refused (dbus-launch comes and goes just before the window manager starts).
: >"$workdir/display"
Xvfb -displayfd 3 -noreset -screen 0 1280x800x24 -nolisten tcp 3>"$workdir/display" >"$workdir/xvfb.log" 2>&1 &
pids+=($!)
number=""
for _ in $(seq 200); do
  if [[ $(<"$workdir/display") == *[0-9]* ]] && [[ $(tail -c1 "$workdir/display" | od -An -c) == *'\n'* ]]; then
    number=$(tr -dc 0-9 <"$workdir/display")
    break
  fi
  kill -0 "${pids[0]}" 2>/dev/null || break
  sleep 0.05
done
if [[ -z $number ]]; then
  echo "with-desktop: Xvfb did not start; skipping" >&2
  cat "$workdir/xvfb.log" >&2
  exit 77
fi
export DISPLAY=":$number"
unset WAYLAND_DISPLAY

eval "$(dbus-launch --sh-syntax)"
"$launcher" --launch-immediately >"$workdir/a11y.log" 2>&1 &
pids+=($!)
openbox >"$workdir/openbox.log" 2>&1 &
pids+=($!)

# Ready when the window manager announces itself on the root window. Without it windows are
# never activated and typed keys go nowhere: a desktop without one is a failure, not a run.
wm_ready=""
for _ in $(seq 400); do
  kill -0 "${pids[-1]}" 2>/dev/null || break
  xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && wm_ready=1 && break
  sleep 0.05
done
if [[ -z $wm_ready ]]; then
  echo "with-desktop: the window manager did not start on $DISPLAY" >&2
  cat "$workdir/openbox.log" "$workdir/xvfb.log" >&2
  exit 1
fi

"$@"
