#!/usr/bin/env bash
# Validates a desktop entry with desktop-file-validate. Debian 12's validator
# knows the Desktop Entry format up to 1.4; SingleMainWindow (1.5, read by
# GNOME Shell and KDE Plasma) is the one newer key Orvane writes, so the
# validator's complaint about that key alone is let through.
set -uo pipefail
output=$(desktop-file-validate "$1" 2>&1)
status=$?
problems=$(printf '%s\n' "$output" | grep -v 'key "SingleMainWindow"' | grep -v '^$' || true)
if [ -n "$problems" ]; then
  printf '%s\n' "$problems"
  exit 1
fi
if [ $status -ne 0 ] && [ -z "$(printf '%s\n' "$output" | grep 'key "SingleMainWindow"')" ]; then
  exit $status
fi
exit 0
