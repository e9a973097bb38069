#!/usr/bin/env bash
# Installs the Debian packages Orvane needs to build and to run its tests,
# and any further ones named as arguments, when missing. Works as root or through sudo. Used by tools/setup.sh and
# tools/sanitize.sh.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libglib2.0-dev libglib2.0-dev-bin libgtk-4-dev libadwaita-1-dev libepoxy-dev
  libwebkitgtk-6.0-dev libsoup-3.0-dev libxml2-dev nlohmann-json3-dev
  libgtest-dev libgmock-dev
  xvfb xauth dbus dbus-x11 at-spi2-core xdotool x11-utils imagemagick xdg-utils
  python3
  desktop-file-utils appstream adwaita-icon-theme fonts-dejavu-core gettext
  poppler-utils hunspell-en-us
  "$@"
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
