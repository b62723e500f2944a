#!/usr/bin/env bash
# Installs what is missing, then configures and builds Vrok in ./build (Release).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)"
