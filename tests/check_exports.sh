#!/usr/bin/env bash
# The shared library exports exactly the names listed in exports.txt, nothing internal. A Windows DLL is
# read from its export table; a .def file given third must list the same names.
set -euo pipefail
lib="$1"; list="$2"; def="${3:-}"
want=$(grep -v '^#' "$list" | sort)
case "$lib" in
  *.dll)
    got=$(x86_64-w64-mingw32-objdump -p "$lib" |
      awk '/^\[Ordinal\/Name Pointer\] Table/ {on = 1; next} on && /^\t\[/ {print $NF; next} {on = 0}' | sort) ;;
  *)
    got=$(nm -D --defined-only "$lib" | awk '$2 ~ /^[TWDBR]$/ {print $3}' | sort) ;;
esac
diff <(echo "$got") <(echo "$want")
if [ -n "$def" ]; then
  diff <(awk 'NR > 1 && NF {print $1}' "$def" | sort) <(echo "$want")
fi
