#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang (AddressSanitizer and UndefinedBehaviorSanitizer on the library
# too) and runs each for SECONDS seconds (default 30) from the seed corpus in fuzz/corpus/, on a copy of
# it. Fails on the first finding; prints each harness's execution count.
#   scripts/fuzz.sh [SECONDS] [HARNESS...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"
shift || true
harnesses=("$@")
[ ${#harnesses[@]} -gt 0 ] || harnesses=(fuzz_demosaic fuzz_u16 fuzz_helpers fuzz_develop)

CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELQORA_FUZZ=ON \
  -DVELQORA_SANITIZE=ON -DVELQORA_BUILD_TESTS=OFF -DVELQORA_BUILD_TOOLS=OFF \
  -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link > /dev/null
cmake --build build/fuzz -j "$(nproc 2>/dev/null || echo 2)" --target "${harnesses[@]}"

for h in "${harnesses[@]}"; do
  work=$(mktemp -d)
  [ -d "fuzz/corpus/$h" ] && cp -r "fuzz/corpus/$h/." "$work/"
  echo "== $h, ${seconds} s"
  status=0
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 ASAN_OPTIONS=detect_leaks=1 \
    "build/fuzz/fuzz/$h" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="build/fuzz/$h-" "$work" > "build/fuzz/$h.log" 2>&1 || status=$?
  grep -E "stat::number_of_executed_units|runtime error|ERROR|SUMMARY|Test unit written" "build/fuzz/$h.log" || true
  rm -rf "$work"
  if [ "$status" -ne 0 ]; then
    echo "fuzz: $h found a problem (see build/fuzz/$h-*)" >&2
    exit 1
  fi
done
