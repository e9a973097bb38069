#!/usr/bin/env bash
# Installs what is missing, builds Orvane, installs its desktop entry for this
# user (so it shows in the app launcher) and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/setup.sh
if [ -x tools/install-desktop.sh ]; then tools/install-desktop.sh; fi
exec build/src/orvane "$@"
