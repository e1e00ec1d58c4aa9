#!/usr/bin/env bash
# Builds Velqora from nothing and runs every test: in Release (then checks the instructions the library
# uses and the installed package), under AddressSanitizer and UndefinedBehaviorSanitizer, with clang, the
# fuzzers, the Python module, ThreadSanitizer, emulated x86-64 processors without AVX-512 or AVX, and AArch64.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)

echo "== Release build and tests"
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELQORA_BUILD_BENCH=ON -DVELQORA_GSTREAMER=ON
cmake --build build/release -j "$jobs"
ctest --test-dir build/release --output-on-failure -j "$jobs"

echo "== Only the vector units use instructions beyond the x86-64 baseline"
python3 scripts/check-instructions.py --self-test
python3 scripts/check-instructions.py build/release

echo "== The benchmark builds and runs (a small frame, one run of each case; not a timing)"
build/release/bench/velqora_bench --quick > /dev/null

echo "== Install into a temporary prefix; build the example consumer through CMake and pkg-config"
bash scripts/check-package.sh build/release

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build and tests"
cmake -S . -B build/sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-O1 -DVELQORA_SANITIZE=ON \
  -DVELQORA_GSTREAMER=ON
cmake --build build/sanitize -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/sanitize --output-on-failure -j "$jobs"

echo "== clang 14 build and tests"
CC=clang CXX=clang++ cmake -S . -B build/clang -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELQORA_BUILD_BENCH=ON
cmake --build build/clang -j "$jobs"
ctest --test-dir build/clang --output-on-failure -j "$jobs"
python3 scripts/check-instructions.py build/clang

echo "== Fuzzing: each harness for 20 s from its seed corpus (clang, AddressSanitizer, UndefinedBehaviorSanitizer)"
bash scripts/fuzz.sh 20

echo "== The Python module and its tests, velqora-batch on loopback Dask clusters, pip install and pip wheel"
bash scripts/test-python.sh

echo "== Emulated x86-64 processors: baseline, SSE4.2 without AVX, AVX2 without AVX-512"
bash scripts/test-cpus.sh build/release build/python

echo "== ThreadSanitizer: the parallel entry points and development, several handles on several threads"
cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELQORA_BUILD_TOOLS=OFF \
  -DCMAKE_CXX_FLAGS=-fsanitize=thread -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread \
  -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread
cmake --build build/tsan -j "$jobs" --target test_parallel test_develop
TSAN_OPTIONS=halt_on_error=1 build/tsan/tests/test_parallel
TSAN_OPTIONS=halt_on_error=1 build/tsan/tests/test_develop

echo "== The C# binding under Mono, against the conversions a C program writes in the same run"
bash scripts/test-csharp.sh

echo "== AArch64 cross build, tests under qemu at the scalar and NEON levels"
bash scripts/test-aarch64.sh

echo "== Windows x64 cross build (MinGW-w64): velqora.dll, its exported names, the tests under Wine"
bash scripts/test-windows.sh
