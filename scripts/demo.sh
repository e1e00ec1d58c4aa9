#!/usr/bin/env bash
# Builds Velqora and velqora-convert from nothing (installing what a fresh Debian machine lacks) and runs
# the demo: a synthetic test chart demosaiced by every method, results in out/demo/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j "$jobs" --target velqora-convert
build/release/tools/velqora-convert --demo out/demo
echo "Side by side: out/demo/comparison.png. The tool itself: build/release/tools/velqora-convert --help"
