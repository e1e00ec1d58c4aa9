#!/usr/bin/env bash
# The shared library exports exactly the names listed in exports.txt, nothing internal.
set -euo pipefail
lib="$1"; list="$2"
diff <(nm -D --defined-only "$lib" | awk '$2 ~ /^[TWDBR]$/ {print $3}' | sort) <(grep -v '^#' "$list" | sort)
