#!/usr/bin/env bash
# Builds the Python module against Debian's /usr/bin/python3 (python3-numpy, python3-pybind11, installed by
# scripts/setup.sh) and runs its pytest suite, which compares it with the shared library of build/release and
# velqora-batch with build/release's velqora-convert (on Dask clusters on the loopback interface); then the
# pip install and pip wheel of the package (scripts/test-pip.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build/python -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELQORA_PYTHON=ON \
  -DPython_EXECUTABLE=/usr/bin/python3 -DVELQORA_BUILD_TESTS=OFF -DVELQORA_BUILD_TOOLS=OFF
cmake --build build/python -j "$jobs"
VELQORA_LIB="$PWD/build/release/libvelqora.so" VELQORA_CONVERT="$PWD/build/release/tools/velqora-convert" PYTHONPATH="$PWD/build/python/python" \
  /usr/bin/python3 -m pytest -q -p no:cacheprovider python/tests
bash scripts/test-pip.sh
