#!/usr/bin/env bash
# Installs what is missing, builds Orvane and runs the whole test suite
# headless: a private X server (Xvfb) and a private D-Bus session.
# Extra arguments go to ctest (for instance -R AccountStore).
set -euo pipefail
cd "$(dirname "$0")/.."
tools/setup.sh
exec xvfb-run -a -s "-screen 0 1280x800x24" \
  dbus-run-session -- \
  ctest --test-dir build --output-on-failure "$@"
