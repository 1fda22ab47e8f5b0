#!/usr/bin/env bash
# Benchmark of mirlo-service on loopback: starts it on a spare port with a throw-away data
# directory, makes an unlimited account, and drives it from a second process with what people
# send: texts never sent before (sentences of the French test set with slips of the finger).
#   service/bench.sh [--build-dir DIR] [--engine grammalecte|hunspell] [--processes N]
# --build-dir uses the binaries already built there (default: builds build/release first).
set -euo pipefail
cd "$(dirname "$0")/.."
build=""
service_args=()
while [[ $# -gt 0 ]]; do
  case "$1" in
    --build-dir) build=$2; shift 2 ;;
    --engine) service_args+=(--engine "$2"); shift 2 ;;
    --processes) service_args+=(--engine-processes "$2"); shift 2 ;;
    *) echo "usage: service/bench.sh [--build-dir DIR] [--engine grammalecte|hunspell] [--processes N]" >&2; exit 2 ;;
  esac
done
if [[ -z "$build" ]]; then
  build=build/release
  cmake --preset release >/dev/null
  cmake --build --preset release -j2 --target mirlo-service mirlo-service-bench >/dev/null
fi
service="$build/service/mirlo-service"
bench="$build/service/mirlo-service-bench"
set_file=tests/service/french/sentences.json
port=${BENCH_PORT:-54399}
data=$(mktemp -d)
"$service" --port "$port" --data-dir "$data" ${service_args[@]+"${service_args[@]}"} 2> >(grep -v '^POST\|^GET' >&2) &
pid=$!
trap 'kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; rm -rf "$data"' EXIT
for _ in $(seq 100); do
  "$bench" --port "$port" --signup >/dev/null 2>&1 && break
  sleep 0.1
done
"$service" --data-dir "$data" --set-plan bench@example.fr lifetime >/dev/null
run() { echo "-- $*"; "$bench" --port "$port" "$@"; }
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
run --score "$set_file"
# Each run its own seed: no text is sent twice. Paragraphs of about 300 characters, and texts
# just under the 5,000-character limit.
run --texts "$set_file" --seed 1 --chars 310 --threads 1 --requests 300
run --texts "$set_file" --seed 2 --chars 310 --threads 4 --requests 300
run --texts "$set_file" --seed 3 --chars 5000 --threads 1 --requests 10
run --texts "$set_file" --seed 4 --chars 5000 --slips 0.45 --threads 1 --requests 5
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
