#!/usr/bin/env bash
# Builds everything with AddressSanitizer and UndefinedBehaviorSanitizer (float-to-int
# overflow included, which -fsanitize=undefined leaves out) in ./build-sanitize and runs
# every test there; any finding fails the run. Extra arguments go to ctest. The tests that
# load our machines into Buzztrax (label host) are left out: a host program built without
# the sanitizers cannot load libraries built with them.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
flags="-fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all -fno-omit-frame-pointer"
cmake -S . -B build-sanitize -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DVROK_BUILD_BENCH=OFF \
    -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" >/dev/null
cmake --build build-sanitize -j"$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
ctest --test-dir build-sanitize --output-on-failure -j"$(nproc)" -LE host "$@"
