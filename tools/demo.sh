#!/usr/bin/env bash
# Shows Orvane at work without internet or real accounts: builds it, serves
# the stand-in Gmail, Outlook and Google Calendar pages of tests/fixtures on
# 127.0.0.1 and starts Orvane with four ready-made accounts in throw-away
# folders. The stand-in inboxes get new mail every few seconds, so the unread
# counts move; Ctrl+1 to Ctrl+4 switch accounts. Nothing of yours is touched.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/setup.sh

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "The demo needs a desktop session (no DISPLAY or WAYLAND_DISPLAY is set)." >&2
  exit 1
fi

demo=$(mktemp -d -t orvane-demo-XXXXXX)
server_pid=""
cleanup() {
  if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; fi
  rm -rf "$demo"
}
trap cleanup EXIT

build/tools/orvane-fixture-server --demo > "$demo/port" &
server_pid=$!
for _ in $(seq 100); do
  [ -s "$demo/port" ] && break
  sleep 0.1
done
port=$(head -n1 "$demo/port")
if [ -z "$port" ]; then echo "The fixture server did not start." >&2; exit 1; fi
base="http://127.0.0.1:$port"

cat > "$demo/services.json" <<JSON
{
  "gmail": { "homeURL": "$base/gmail/", "feedURL": "$base/gmail/feed/atom", "inAppHosts": ["127.0.0.1"] },
  "outlook": { "homeURL": "$base/outlook/mail/", "inAppHosts": ["127.0.0.1"] },
  "calendar": { "homeURL": "$base/calendar/", "inAppHosts": ["127.0.0.1"] }
}
JSON

uuid() { tr '[:lower:]' '[:upper:]' < /proc/sys/kernel/random/uuid; }
work=$(uuid); personal=$(uuid); outlook=$(uuid); calendar=$(uuid)
work_store=$(uuid); personal_store=$(uuid); outlook_store=$(uuid)
mkdir -p "$demo/data/Orvane" "$demo/config" "$demo/cache"
# The calendar shares the work account's session, as a calendar added from
# an account's menu does.
cat > "$demo/data/Orvane/accounts.json" <<JSON
{
  "accounts": [
    { "id": "$work", "label": "Work", "dataStoreID": "$work_store", "colorSeed": 215, "service": "mail" },
    { "id": "$personal", "label": "Personal", "dataStoreID": "$personal_store", "colorSeed": 25, "service": "mail" },
    { "id": "$outlook", "label": "Outlook", "dataStoreID": "$outlook_store", "colorSeed": 150, "service": "outlook" },
    { "id": "$calendar", "label": "Work", "dataStoreID": "$work_store", "colorSeed": 215, "service": "calendar" }
  ],
  "selectedAccountID": "$work",
  "alwaysAskOnMailto": true,
  "showDockBadge": true,
  "notificationsEnabled": false
}
JSON

echo "Orvane demo: pages served at $base, files in $demo (removed when Orvane closes)."
echo "Switch accounts with Ctrl+1 to Ctrl+4; the stand-in inboxes get new mail every few seconds."

run=(env XDG_DATA_HOME="$demo/data" XDG_CONFIG_HOME="$demo/config" XDG_CACHE_HOME="$demo/cache"
     ORVANE_SERVICE_OVERRIDES="$demo/services.json" build/src/orvane)
# An Orvane already running on this session would take the demo's window
# over: give the demo a bus of its own then.
if gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
     --method org.freedesktop.DBus.NameHasOwner app.orvane.Orvane 2>/dev/null | grep -q true; then
  dbus-run-session -- "${run[@]}"
else
  "${run[@]}"
fi
