#!/usr/bin/env bash
# Builds Orvane and its tests with AddressSanitizer and UndefinedBehaviorSanitizer
# into build-asan/ and runs the whole test suite there, headless, as
# tools/test.sh does. Extra arguments go to ctest (for instance -R AccountStore).
# Any finding in any process (a test program, the orvane it starts, a second
# `orvane URL`) is written to build-asan/sanitizer-reports/ and fails the run.
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
# Programs the tests start inherit these, orvane included. A finding stops
# the program that made it, with a symbolized stack trace, and is written to
# a file named after the program and its pid: orvane's output is only shown
# when a test fails, and `orvane URL` run by a test has its output dropped.
# Leak detection is off: GTK, fontconfig and WebKit keep one-time
# allocations until exit by design, and so do the test programs' GTK and
# WebKit set-ups, which would drown any leak of Orvane's own.
export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:detect_leaks=0:symbolize=1:log_path=$reports/asan:log_exe_name=1"
export UBSAN_OPTIONS="halt_on_error=1:abort_on_error=1:print_stacktrace=1:symbolize=1:log_path=$reports/ubsan:log_exe_name=1"

status=0
xvfb-run -a -s "-screen 0 1280x800x24" \
  dbus-run-session -- \
  ctest --test-dir build-asan --output-on-failure "$@" || status=$?

if compgen -G "$reports/*" >/dev/null; then
  for report in "$reports"/*; do
    echo "==== $report"
    cat "$report"
  done
  echo "Sanitizer findings: see above (kept in $reports)."
  exit 1
fi
exit "$status"
