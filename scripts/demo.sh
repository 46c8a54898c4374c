#!/usr/bin/env bash
# The demonstration: a synthetic practice under ./demo/ (created when absent), synchronised
# company by company, each with its default contact, into the local vCard store ./demo/outlook.
set -euo pipefail
bin=$1
root=$(cd "$(dirname "$0")/.." && pwd)
demo="$root/demo"
mkdir -p "$demo"
if [[ ! -f "$demo/host.db" ]]; then
  "$bin" demo-data "$demo/host.db" --companies 200 --seed 7
fi
echo "Synchronising every company of $demo/host.db with its default contact into $demo/outlook ..."
"$bin" sync --host-db "$demo/host.db" --sync-db "$demo/sync.db" --outlook "vdir:$demo/outlook" \
  --direction 2 --info 1 --select all
cat <<EOF2

Look at the result:
  ./run contacts list --outlook vdir:demo/outlook            (one line per contact)
  ./run contacts list --outlook vdir:demo/outlook --json     (every property)
  ls demo/outlook/default/contacts/                           (one vCard file per contact)
  sqlite3 demo/sync.db 'SELECT * FROM OutlookSync LIMIT 5;'   (which company is which contact)
Run ./run again to synchronise once more (the same contacts are updated, none duplicated).
EOF2
