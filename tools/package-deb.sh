#!/usr/bin/env bash
# Builds a Debian package of Orvane for /usr into build-deb/packages/:
#   tools/package-deb.sh
# Its dependencies are computed by dpkg-shlibdeps (cmake/Packaging.cmake).
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-packages.sh dpkg-dev file
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S . -B build-deb -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DORVANE_BUILD_TESTS=OFF \
  "${launcher[@]}" >/dev/null
cmake --build build-deb -j"$(nproc)"
cpack --config build-deb/CPackConfig.cmake -G DEB -B build-deb/packages
ls build-deb/packages/*.deb
