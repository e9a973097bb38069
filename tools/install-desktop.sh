#!/usr/bin/env bash
# Installs Orvane's desktop entry, D-Bus activation file, icons and AppStream
# metadata for the current user, pointing at the binary in build/src/orvane,
# so Orvane shows in the app launcher and can be picked for mailto: links.
# Safe to run again. Usage: tools/install-desktop.sh [path/to/orvane]
set -euo pipefail
cd "$(dirname "$0")/.."

binary=$(realpath "${1:-build/src/orvane}")
# The translated desktop entry and AppStream file the same build made.
generated=$(dirname "$binary")/../data
if [ ! -x "$binary" ] || [ ! -f "$generated/app.orvane.Orvane.desktop" ]; then
  echo "No Orvane build at $binary: build it first (tools/setup.sh)." >&2
  exit 1
fi

data_home=${XDG_DATA_HOME:-$HOME/.local/share}
apps="$data_home/applications"
services="$data_home/dbus-1/services"
icons="$data_home/icons/hicolor"
metainfo="$data_home/metainfo"
mkdir -p "$apps" "$services" "$icons/scalable/apps" "$icons/symbolic/apps" "$metainfo"

# The user's copy starts the build tree's binary; a quoted path survives spaces.
quoted=$(printf '%s' "$binary" | sed 's/[\\"`$]/\\&/g')
sed "s|^Exec=orvane |Exec=\"$quoted\" |" "$generated/app.orvane.Orvane.desktop" > "$apps/app.orvane.Orvane.desktop"
sed "s|@ORVANE_EXEC@|\"$quoted\"|" data/app.orvane.Orvane.service.in > "$services/app.orvane.Orvane.service"
install -m 0644 data/icons/app.orvane.Orvane.svg "$icons/scalable/apps/"
install -m 0644 data/icons/app.orvane.Orvane-symbolic.svg "$icons/symbolic/apps/"
install -m 0644 "$generated/app.orvane.Orvane.metainfo.xml" "$metainfo/"

if command -v update-desktop-database >/dev/null; then
  update-desktop-database -q "$apps" || true
fi
if command -v gtk4-update-icon-cache >/dev/null; then
  gtk4-update-icon-cache -q -t -f "$icons" || true
elif command -v gtk-update-icon-cache >/dev/null; then
  gtk-update-icon-cache -q -t -f "$icons" || true
fi
echo "Installed Orvane's desktop entry for ${USER:-$(id -un)} (binary: $binary)."
