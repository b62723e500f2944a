#!/usr/bin/env bash
# Builds the libFuzzer programs of tests/fuzz with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer in ./build-fuzz, then runs each for SECONDS (default 60),
# JOBS at a time (default 2), at the lowest priority. Usage: scripts/fuzz.sh [SECONDS] [TARGET...]
# With FUZZ_CPU=1, SECONDS count CPU time rather than wall time, so a run on a busy machine
# still does its share of work.
# Each target grows its own corpus in build-fuzz/corpus/<target>, starting from the seeds in
# tests/fuzz/corpus/<target> and the saved findings in tests/fuzz/regressions/<target>; a
# finding is written to build-fuzz/findings/<target>/ and fails the run. Per target the
# summary gives the CPU seconds spent and libFuzzer's last status line: executions ("#N"),
# coverage ("cov:", "ft:") and corpus ("corp:").
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
jobs=${JOBS:-2}
cpu_budget=${FUZZ_CPU:-0}
scripts/install-deps.sh
CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVROK_FUZZ=ON \
    -DVROK_BUILD_TESTS=OFF -DVROK_BUILD_BENCH=OFF >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target fuzz_targets
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    for program in build-fuzz/tests/fuzz/fuzz_*; do targets+=("${program##*/fuzz_}"); done
fi

export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export VROK_CACHE_DIR=$PWD/build-fuzz/cache
ticks_per_second=$(getconf CLK_TCK)

# CPU seconds of a live (or not yet reaped) process.
cpu_seconds() {
    awk -v hz="$ticks_per_second" '{ print int(($14 + $15) / hz) }' "/proc/$1/stat" 2>/dev/null || echo 0
}

# Runs one target; its log ends with a line "cpu seconds: N".
run() {
    local target=$1 corpus=build-fuzz/corpus/$1 findings=build-fuzz/findings/$1 log=build-fuzz/fuzz_$1.log
    mkdir -p "$corpus" "$findings"
    local seeds=(tests/fuzz/corpus/"$target")
    [ -d tests/fuzz/regressions/"$target" ] && seeds+=(tests/fuzz/regressions/"$target")
    local dict=()
    case $target in patch_xml | clipboard | saved_state) dict=(-dict=tests/fuzz/patch.dict) ;; esac
    local wall=$seconds
    [ "$cpu_budget" = 1 ] && wall=$((seconds * 100))
    nice -n 19 build-fuzz/tests/fuzz/fuzz_"$target" "$corpus" "${seeds[@]}" "${dict[@]}" \
        -max_total_time="$wall" -timeout=20 -rss_limit_mb=2560 -print_final_stats=1 \
        -artifact_prefix="$findings/" >"$log" 2>&1 &
    local pid=$! used=0 stopped=0
    while kill -0 "$pid" 2>/dev/null; do
        used=$(cpu_seconds "$pid")
        if [ "$cpu_budget" = 1 ] && [ "$used" -ge "$seconds" ] && [ "$stopped" = 0 ]; then
            kill -INT "$pid"
            stopped=1
        fi
        sleep 2
    done
    local status=0
    wait "$pid" || status=$?
    echo "cpu seconds: $used" >>"$log"
    # libFuzzer leaves with 72 when it is interrupted.
    [ "$status" = 0 ] || { [ "$stopped" = 1 ] && [ "$status" = 72 ]; }
}

failed=()
declare -A running=()  # pid to target
finish_one() {
    local pid status=ok
    wait -n -p pid "${!running[@]}" || status=FAILED
    local name=${running[$pid]}
    unset "running[$pid]"
    [ "$status" = ok ] || failed+=("$name")
    local log=build-fuzz/fuzz_$name.log
    echo "== $name: $status, $(tail -n 1 "$log")"
    grep -E "^#[0-9]+" "$log" | tail -n 1 || true
    [ "$status" = ok ] || tail -n 40 "$log"
}
for target in "${targets[@]}"; do
    [ ${#running[@]} -ge "$jobs" ] && finish_one
    run "$target" &
    running[$!]=$target
done
while [ ${#running[@]} -gt 0 ]; do finish_one; done
if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz: findings in ${failed[*]} (inputs under build-fuzz/findings/)" >&2
    exit 1
fi
