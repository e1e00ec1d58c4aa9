#!/usr/bin/env bash
# The C# binding under Debian's Mono against build/release/libvelqora.so: the C program
# tests/reference_conversions writes its conversions into a fresh directory, and the C# tests make each of
# them again through the binding and compare (they print "N passed, N failed").
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh csharp

jobs=$(nproc 2>/dev/null || echo 2)
[ -f build/release/build.ninja ] || cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build build/release -j "$jobs" --target velqora reference_conversions

start=$SECONDS
out=build/csharp
rm -rf "$out" && mkdir -p "$out/references"
build/release/tests/reference_conversions "$out/references"
mcs -warnaserror -out:"$out/VelqoraTests.exe" bindings/csharp/Velqora.cs bindings/csharp/tests/VelqoraTests.cs
# "velqora" resolves to libvelqora.so through the loader's search path.
LD_LIBRARY_PATH="$PWD/build/release${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" mono "$out/VelqoraTests.exe" "$out/references"
echo "csharp: references, compile and tests in $((SECONDS - start)) s"
