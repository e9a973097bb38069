#!/usr/bin/env bash
# Installs the Debian packages Orvane needs (when missing) and builds it into
# build/. Safe to run again: it only installs what is missing and rebuilds
# what changed. Works as root or through sudo.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-packages.sh

cmake_args=(-S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo)
if [ "${CI:-}" = "true" ]; then cmake_args+=(-DORVANE_WERROR=ON); fi
cmake "${cmake_args[@]}" >/dev/null
cmake --build build -j"$(nproc)"
