#!/usr/bin/env bash
# Builds the tests that run audio and GUI threads together with ThreadSanitizer in
# ./build-tsan and runs them: the analysers' lock-free captures read by a display, the
# sampler's frames replaced while a voice plays, the machine's audio thread beside host
# and MIDI calls, and the live player beside a long edit. Any report fails the run; the
# deliberate lock-free reads TSan cannot see as such are listed in tests/tsan.supp.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DVROK_BUILD_BENCH=OFF \
    -DVROK_TSAN_TESTS=ON >/dev/null
cmake --build build-tsan -j"$(nproc)" --target blocks_tests machine_tests live_player_test
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:history_size=7:suppressions=$PWD/tests/tsan.supp"
export VROK_CACHE_DIR=$PWD/build-tsan/cache
build-tsan/tests/blocks/blocks_tests --gtest_filter='*Capture*:MegaSpectrum.*:Sampler*:EveryBlockThreads.*'
build-tsan/tests/machine/machine_tests
build-tsan/tests/live/live_player_test
