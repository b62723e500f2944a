#!/usr/bin/env bash
# Builds and runs the benchmarks; "realtime" is seconds of audio per second of one core, and
# "x_budget" is a repaint budget divided by the measured time.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
for program in build/bench/bench_*; do "$program" "$@"; done
