#!/usr/bin/env bash
# Cross-builds the library and its test programs for AArch64 (the NEON interiors) with Debian's
# g++-aarch64-linux-gnu and runs them under qemu-aarch64, at the scalar and NEON levels.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh aarch64

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build/aarch64 -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64.cmake \
  -DVELQORA_BUILD_TOOLS=OFF
cmake --build build/aarch64 -j "$jobs"
# The 'exported_names' check reads the Arm library with the host's nm; the test programs run under qemu.
ctest --test-dir build/aarch64 --output-on-failure -j "$jobs"
