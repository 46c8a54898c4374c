#!/usr/bin/env bash
# The demonstration: a synthetic practice under ./demo/ (created when absent), then the
# component opening both databases as a host would.
set -euo pipefail
bin=$1
root=$(cd "$(dirname "$0")/.." && pwd)
demo="$root/demo"
mkdir -p "$demo"
if [[ ! -f "$demo/host.db" ]]; then
  "$bin" demo-data "$demo/host.db" --companies 200 --seed 7
fi
"$bin" check --host-db "$demo/host.db" --sync-db "$demo/sync.db"
echo
echo "The practice is in $demo/host.db (sqlite3 can read it); the synchronisation database is"
echo "$demo/sync.db. Try: ./run --help"
