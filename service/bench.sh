#!/usr/bin/env bash
# Benchmark of mirlo-service on loopback: starts it on a spare port with a throw-away data
# directory, makes an unlimited account, and drives it from a second process.
#   service/bench.sh [threads] [requests]
set -euo pipefail
cd "$(dirname "$0")/.."
threads=${1:-4}
requests=${2:-4000}
port=${BENCH_PORT:-54399}
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target mirlo-service mirlo-service-bench >/dev/null
data=$(mktemp -d)
build/release/service/mirlo-service --port "$port" --data-dir "$data" 2>/dev/null &
pid=$!
trap 'kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; rm -rf "$data"' EXIT
for _ in $(seq 100); do
  build/release/service/mirlo-service-bench --port "$port" --signup >/dev/null 2>&1 && break
  sleep 0.1
done
build/release/service/mirlo-service --data-dir "$data" --set-plan bench@example.fr lifetime >/dev/null
build/release/service/mirlo-service-bench --port "$port" --threads "$threads" --requests "$requests"
