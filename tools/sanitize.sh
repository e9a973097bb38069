#!/usr/bin/env bash
# Builds Orvane and its tests with AddressSanitizer and UndefinedBehaviorSanitizer
# into build-asan/ and runs the whole test suite there, headless, as
# tools/test.sh does. Extra arguments go to ctest (for instance -R AccountStore).
# A finding in any process of the run (a test program, the orvane it starts)
# fails the run; the reports are printed at the end and kept in
# build-asan/sanitizer-reports/, but for UndefinedBehaviorSanitizer's in a test
# program, which show in its test's output.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
tools/install-packages.sh

cmake_args=(-S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_SANITIZE=ON)
if [ "${CI:-}" = "true" ]; then cmake_args+=(-DORVANE_WERROR=ON); fi
cmake "${cmake_args[@]}" >/dev/null
cmake --build build-asan -j"$(nproc)"

reports=$root/build-asan/sanitizer-reports
rm -rf "$reports"
mkdir -p "$reports"
# The test programs' temporary folders, kept to the end of the run for
# orvane's output (see below).
scratch=$(mktemp -d /tmp/orvane-asan.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
export TMPDIR=$scratch ORVANE_KEEP_TEST_FILES=1

# Programs the tests start inherit these, orvane included. A finding stops
# the program that made it, with a symbolized stack trace. Leak detection is
# off: GTK, fontconfig and WebKit keep one-time allocations until exit by
# design, and so do the test programs' GTK and WebKit set-ups, which would
# drown any leak of Orvane's own.
# AddressSanitizer writes to a file named after the program and its pid, as
# orvane's output is only shown when a test fails and `orvane URL` run by a
# test has its output dropped. GCC's UndefinedBehaviorSanitizer ignores
# log_path next to AddressSanitizer and writes to standard error: a test
# program's finding fails its test, and orvane's are looked for in its output
# (orvane.log) after the run.
# GLib's slice allocator would keep freed GObjects out of AddressSanitizer's
# sight; plain malloc lets it catch a use after the last unref.
export G_SLICE=always-malloc
export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:detect_leaks=0:symbolize=1:log_path=$reports/asan:log_exe_name=1"
export UBSAN_OPTIONS="halt_on_error=1:abort_on_error=1:print_stacktrace=1:symbolize=1:suppressions=$root/tools/ubsan.supp"

status=0
xvfb-run -a -s "-screen 0 1280x800x24" \
  dbus-run-session -- \
  ctest --test-dir build-asan --output-on-failure "$@" || status=$?

while IFS= read -r -d '' log; do
  cp "$log" "$reports/ubsan.orvane.$(basename "$(dirname "$log")")"
done < <(grep -rlZ --include=orvane.log -e 'runtime error:' "$scratch" || true)

if compgen -G "$reports/*" >/dev/null; then
  for report in "$reports"/*; do
    echo "==== $report"
    cat "$report"
  done
  echo "Sanitizer findings: see above (kept in $reports)."
  exit 1
fi
exit "$status"
