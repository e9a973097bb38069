#!/usr/bin/env bash
# Makes Orvane the desktop's email app, so mailto: links open in Orvane: the
# same as "Make Orvane the Default" in Orvane's preferences, for desktops that
# do not take the request from the app. Orvane's desktop entry must be
# installed first (tools/install-desktop.sh, or a package).
set -euo pipefail

if ! command -v xdg-mime >/dev/null; then
  echo "xdg-mime is missing: install xdg-utils." >&2
  exit 1
fi
xdg-mime default app.orvane.Orvane.desktop x-scheme-handler/mailto
echo "mailto: links now open with: $(xdg-mime query default x-scheme-handler/mailto)"
