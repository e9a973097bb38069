#!/usr/bin/env bash
# Fails when a lower layer includes a higher one:
#   core (base, accounts, services, maintenance) -> web (web, bridges) -> app.
set -u
src=${1:-$(dirname "$0")/../src}
status=0
check() { # folder, forbidden include pattern
  local hits
  hits=$(grep -rnE "^#include [<\"]($2)" "$src/$1" --include='*.h' --include='*.cpp' 2>/dev/null)
  if [ -n "$hits" ]; then
    echo "$1 must not include ($2):"; echo "$hits"; status=1
  fi
}
for core in base accounts services maintenance; do
  [ -d "$src/$core" ] || continue
  # The ui/ subfolders belong to the app layer.
  hits=$(grep -rnE '^#include [<"](web/|bridges/|app/|gtk/|adwaita|webkit/|services/ui/|maintenance/ui/)' "$src/$core" --include='*.h' --include='*.cpp' | grep -v "^$src/$core/ui/")
  if [ -n "$hits" ]; then echo "core layer ($core) includes a higher layer:"; echo "$hits"; status=1; fi
done
check web 'app/|adwaita|services/ui/|maintenance/ui/'
check bridges 'app/|adwaita|services/ui/|maintenance/ui/'
[ $status -eq 0 ] && echo "layers ok"
exit $status
