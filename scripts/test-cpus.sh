#!/usr/bin/env bash
# Runs the test programs, the converter's demo and the Python tests on emulated x86-64 processors, so that
# every vector level runs here whatever this machine has, and code that would need a newer processor
# than the one it finds dies with an illegal instruction:
#   qemu64      the x86-64 baseline (SSE2): the scalar level
#   Nehalem-v1  SSE4.2, no AVX: the scalar level
#   Haswell-v4  AVX2 without AVX-512: the AVX2 level
# Each run prints the level the library chose. Usage: test-cpus.sh [BUILD_DIR [PYTHON_BUILD_DIR]]
# (defaults build/release and build/python; the Python tests are skipped when the module is not built; the
# batch tests, whose Dask processes would run natively anyway, run once, in test-python.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/release}"
pybuild="${2:-build/python}"


declare -A want=([qemu64]=scalar [Nehalem-v1]=scalar [Haswell-v4]=avx2)
out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT

# qemu warns about the model's features it does not emulate (none of them matters here).
emulate() { qemu-x86_64 -cpu "$cpu" "$@" 2> >(grep -v "TCG doesn't support requested feature" >&2); }

for cpu in qemu64 Nehalem-v1 Haswell-v4; do
  echo "== Emulated CPU $cpu"
  run=(emulate)
  # The library must choose the level this processor allows, no more and no less.
  version="$("${run[@]}" "$build/tools/velqora-convert" --version)"
  echo "$version"
  case "$version" in
    *"vector level ${want[$cpu]}") ;;
    *) echo "test-cpus: on $cpu the library should choose ${want[$cpu]}"; exit 1 ;;
  esac
  for t in "$build"/tests/test_*; do
    [ -x "$t" ] && [ -f "$t" ] || continue
    start=$SECONDS
    if ! "${run[@]}" "$t" >"$out/log" 2>&1; then
      cat "$out/log"
      echo "test-cpus: $(basename "$t") failed on $cpu"
      exit 1
    fi
    echo "$(basename "$t"): $(grep -m1 '^vector level' "$out/log"); $(grep -m1 '^\[  PASSED  \]' "$out/log") ($((SECONDS - start)) s)"
  done
  "${run[@]}" "$build/tools/velqora-convert" --demo "$out/demo" >"$out/log" 2>&1 || { cat "$out/log"; exit 1; }
  echo "demo: $(grep -c . "$out/log") lines, $(ls "$out/demo" | wc -l) files"
  if [ -d "$pybuild/python/velqora" ]; then
    VELQORA_LIB="$PWD/$build/libvelqora.so" PYTHONPATH="$PWD/$pybuild/python" \
      "${run[@]}" /usr/bin/python3 -c 'import velqora; print("python: vector level", velqora.vector_level())'
    VELQORA_LIB="$PWD/$build/libvelqora.so" PYTHONPATH="$PWD/$pybuild/python" \
      "${run[@]}" /usr/bin/python3 -m pytest -q -p no:cacheprovider python/tests \
        --ignore=python/tests/test_batch.py | tail -n1
  fi
done
