#!/usr/bin/env bash
# What hostile clients cost mirlo-service: builds the release binaries, starts the service on a
# spare loopback port with a throw-away data directory and the real password cost, and runs
# service/attack.py against it (memory from /proc, the other client's slowest answer).
#   service/attack.sh [SERVICE-BINARY]   (default: the release build, built first)
set -euo pipefail
cd "$(dirname "$0")/.."
port=${ATTACK_PORT:-54398}
service=${1:-}
if [[ -z $service ]]; then
  cmake --preset release >/dev/null
  cmake --build --preset release -j2 --target mirlo-service >/dev/null
  service=build/release/service/mirlo-service
fi
data=$(mktemp -d)
"$service" --port "$port" --data-dir "$data" 2>/dev/null &
pid=$!
trap 'kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; rm -rf "$data"' EXIT
for _ in $(seq 100); do
  (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && break
  sleep 0.1
done
python3 service/attack.py "$port" "$pid"
