#!/usr/bin/env bash
# Prints the size of the test suite against the size of the program: lines of
# tests/**/*.{cpp,h,js,py} (the stand-in pages under tests/fixtures left out)
# and of the fuzz targets in fuzz/ over lines of src/**/*.{cpp,h,js}. With --max R it fails when the ratio is
# above R. The project keeps it at 0.40 or below.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
count() { # folder, find arguments...
  local dir=$1; shift
  find "$dir" "$@" -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.js' -o -name '*.py' \) -print0 |
    xargs -0 cat | wc -l
}
tests=$(( $(count "$root/tests" -path "$root/tests/fixtures" -prune -o) + $(count "$root/fuzz") ))
src=$(find "$root/src" -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.js' \) -print0 | xargs -0 cat | wc -l)
ratio=$(awk -v t="$tests" -v s="$src" 'BEGIN { printf "%.3f", t / s }')
echo "tests: $tests lines, src: $src lines, ratio $ratio"
if [ "${1:-}" = "--max" ]; then
  # The exact quotient, not the rounded one, is held to the bound.
  awk -v t="$tests" -v s="$src" -v m="$2" 'BEGIN { exit !(t <= m * s) }' || { echo "above $2"; exit 1; }
fi
