#!/usr/bin/env bash
# Builds and runs the benchmarks; "realtime" is seconds of audio per second of one core.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
for program in build/bench/bench_*; do "$program" "$@"; done
