#!/usr/bin/env bash
# Cross-builds velqora.dll (with its import library and .def file) and the test programs for 64-bit
# Windows with Debian's MinGW-w64 g++, checks the DLL's exported names, and runs every test program under
# Wine at each vector level (a level the machine lacks skips its tests). The converter is not built for
# Windows: it needs libpng, which Debian does not carry for MinGW.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh windows

jobs=$(nproc 2>/dev/null || echo 2)
start=$SECONDS
cmake -S . -B build/mingw -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake \
  -DVELQORA_BUILD_TOOLS=OFF
cmake --build build/mingw -j "$jobs"
echo "windows: built in $((SECONDS - start)) s"
# As on Linux: only the vector units' own functions use instructions beyond the x86-64 baseline.
python3 scripts/check-instructions.py build/mingw

# A prefix of our own, made once here (Wine takes several seconds to create one) and removed at the end.
WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/velqora-wine.XXXXXX")
export WINEPREFIX WINEDEBUG=-all
trap 'wineserver -k >/dev/null 2>&1 || true; rm -rf "$WINEPREFIX"' EXIT
start=$SECONDS
wineserver -p >/dev/null 2>&1 </dev/null # kept until the end: each program then starts in about a second
/usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1
echo "windows: Wine prefix ready in $((SECONDS - start)) s"

start=$SECONDS
ctest --test-dir build/mingw --output-on-failure -j "$jobs"
echo "windows: tests under Wine in $((SECONDS - start)) s"

# The same conversions from the Linux library and from velqora.dll under Wine, byte for byte.
[ -f build/release/build.ninja ] || cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build build/release -j "$jobs" --target reference_conversions
start=$SECONDS
cmp_dir=$(mktemp -d "${TMPDIR:-/tmp}/velqora-compare.XXXXXX")
trap 'wineserver -k >/dev/null 2>&1 || true; rm -rf "$WINEPREFIX" "$cmp_dir"' EXIT
mkdir "$cmp_dir/linux" "$cmp_dir/windows"
build/release/tests/reference_conversions "$cmp_dir/linux"
/usr/lib/wine/wine64 build/mingw/reference_conversions.exe "Z:$cmp_dir/windows"
diff -r "$cmp_dir/linux" "$cmp_dir/windows"
echo "windows: $(wc -l < "$cmp_dir/linux/manifest.txt") conversions byte for byte the same as on Linux ($((SECONDS - start)) s)"
