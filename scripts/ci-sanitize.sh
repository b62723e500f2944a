#!/usr/bin/env bash
# CI's sanitizer stage, after the plain test run: every test under AddressSanitizer and
# UndefinedBehaviorSanitizer with leak checking, the threaded tests under ThreadSanitizer,
# and every fuzz target for a minute, two at a time.
set -euo pipefail
cd "$(dirname "$0")/.."
stage() {
    echo "== $1 ($(date -u +%H:%M:%S))"
}
stage "AddressSanitizer and UndefinedBehaviorSanitizer"
scripts/sanitize.sh
stage "ThreadSanitizer"
scripts/tsan.sh
stage "fuzz targets, 60 s each"
scripts/fuzz.sh 60
stage "done"
