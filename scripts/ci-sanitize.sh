#!/usr/bin/env bash
# CI's sanitizer stage, after the plain test run: every test under AddressSanitizer and
# UndefinedBehaviorSanitizer with leak checking, the threaded tests under ThreadSanitizer,
# and every fuzz target for a minute, two at a time. Every part runs even when an earlier
# one failed, so one run shows all findings; any failure fails the stage.
set -uo pipefail
cd "$(dirname "$0")/.."
failed=()
part() {
    local name=$1
    shift
    echo "== $name ($(date -u +%H:%M:%S))"
    "$@" || failed+=("$name")
}
part "AddressSanitizer and UndefinedBehaviorSanitizer" scripts/sanitize.sh
part "ThreadSanitizer" scripts/tsan.sh
part "fuzz targets, 60 s each" scripts/fuzz.sh 60
echo "== done ($(date -u +%H:%M:%S))"
if [ ${#failed[@]} -gt 0 ]; then
    echo "ci-sanitize: failed: ${failed[*]}" >&2
    exit 1
fi
