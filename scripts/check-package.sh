#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and builds the example consumer against it twice:
# through find_package(Velqora) and through pkg-config. Usage: scripts/check-package.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
prefix=$(mktemp -d)
work=$(mktemp -d)
trap 'rm -rf "$prefix" "$work"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
for f in include/velqora.h lib/libvelqora.so lib/cmake/Velqora/VelqoraConfig.cmake lib/pkgconfig/velqora.pc; do
  [ -e "$prefix/$f" ] || { echo "check-package: $f was not installed" >&2; exit 1; }
done

if [ -n "$(find "$build" -name libgstvelqora.so -print -quit)" ]; then
  echo "-- the installed GStreamer plugin"
  plugin=$(find "$prefix" -name libgstvelqora.so -print -quit)
  [ -n "$plugin" ] || { echo "check-package: libgstvelqora.so was not installed" >&2; exit 1; }
  GST_PLUGIN_PATH=$(dirname "$plugin") GST_REGISTRY="$work/registry.bin" gst-inspect-1.0 velqorademosaic \
    > "$work/inspect.txt"
  for word in video/x-bayer rggb12packed video/x-raw BGRx method threads; do
    grep -q "$word" "$work/inspect.txt" || { echo "check-package: gst-inspect-1.0 lists no $word" >&2; exit 1; }
  done
fi

echo "-- consumer through find_package(Velqora)"
cmake -S examples -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

echo "-- consumer through pkg-config"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
libdir=$(pkg-config --variable=libdir velqora)
cc -std=c99 -Wall -Wextra -Werror -pedantic examples/consumer.c -o "$work/consumer-pc" \
  $(pkg-config --cflags --libs velqora) -Wl,-rpath,"$libdir"
"$work/consumer-pc"
