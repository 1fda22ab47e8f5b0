#!/bin/sh
# Runs a command with a private D-Bus session bus and a fresh, unlocked GNOME keyring on it, so
# that Secret Service tests use a real service without touching the user's own keyring.
#   tests/host/with-keyring.sh COMMAND [ARGUMENT…]
set -eu

if [ "$#" -eq 0 ]; then
  echo "usage: $0 COMMAND [ARGUMENT...]" >&2
  exit 64
fi
for tool in dbus-run-session gnome-keyring-daemon; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "$0: $tool is missing (install the dbus and gnome-keyring packages)" >&2
    exit 69
  fi
done

if [ -z "${MIRLO_KEYRING_BUS:-}" ]; then
  MIRLO_KEYRING_BUS=1 exec dbus-run-session -- "$0" "$@"
fi

# The keyring's files go to a directory of their own, removed afterwards.
keyring_home=$(mktemp -d)
trap 'rm -rf "$keyring_home"' EXIT INT TERM
export XDG_DATA_HOME="$keyring_home/data"
export XDG_RUNTIME_DIR="$keyring_home/run"
mkdir -p "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"

# An empty password (one empty line) on stdin creates the login keyring and leaves it unlocked; the daemon then
# serves the Secret Service on this bus until the bus ends with this script.
eval "$(printf '\n' | gnome-keyring-daemon --unlock --components=secrets)"
export GNOME_KEYRING_CONTROL
unset XDG_DATA_HOME XDG_RUNTIME_DIR

"$@"
