#!/usr/bin/env bash
# pip install --no-build-isolation . into a fresh virtual environment (Debian's packages visible), the module
# imported from another directory at the library's version, velqora-batch converting a frame; then pip wheel
# and the wheel installed into a second environment, which runs on its own copy of the module.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc 2>/dev/null || echo 2)}
version=$(sed -n 's/^#define VQP_VERSION_STRING "\(.*\)"/\1/p' include/velqora.h)

check() { # venv: imports from elsewhere, the version, where the module lives, a batch of one frame
  local venv=$1
  (cd "$work" && "$venv/bin/python" - "$venv" "$version" <<'PY'
import sys, velqora, velqora._velqora as ext
venv, version = sys.argv[1], sys.argv[2]
assert velqora.__version__ == version, (velqora.__version__, version)
assert ext.__file__.startswith(venv), ext.__file__
PY
  )
  head -c $((64 * 48)) /dev/urandom > "$work/frame.raw"
  "$venv/bin/velqora-batch" -q -f BayerRG8 -W 64 -H 48 --workers 1 --out-dir "$work/out-${venv##*/}" "$work/frame.raw"
  test -s "$work/out-${venv##*/}/frame.png"
}

/usr/bin/python3 -m venv --system-site-packages "$work/a"
"$work/a/bin/pip" install -q --no-index --no-build-isolation "$root"
check "$work/a"
(cd "$work" && /usr/bin/python3 -m pip wheel -q --no-index --no-build-isolation --no-deps -w "$work/dist" "$root")
/usr/bin/python3 -m venv --system-site-packages "$work/b"
"$work/b/bin/pip" install -q --no-index "$work"/dist/velqora-"$version"-*.whl
check "$work/b"
echo "pip install, pip wheel and the wheel's install: velqora $version"
