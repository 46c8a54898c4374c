#!/usr/bin/env bash
# A synchronisation killed part-way (SIGKILL) and run again: no duplicate contact in the
# store, a mapping row for every company, and both databases still sound.
set -uo pipefail
bin=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_STATE_HOME="$work/state"  # the reports of the runs
failed=0
h="$work/h.db" s="$work/s.db" cards="$work/ol/default/contacts"
"$bin" demo-data "$h" --companies 3000 --seed 11 >/dev/null
# Unique company names, so that every company has its own card.
sqlite3 "$h" "UPDATE Companies SET CompanyName = CompanyName || ' #' || CompanyID;"
args=(sync --host-db "$h" --sync-db "$s" --outlook "vdir:$work/ol" --no-progress)

for attempt in 1 2 3; do
  "$bin" "${args[@]}" >/dev/null 2>&1 &
  pid=$!
  # Kill it once it has written some cards but long before it is done.
  for _ in $(seq 1 400); do
    n=$(ls "$cards" 2>/dev/null | wc -l)
    [[ $n -ge $((attempt * 150)) ]] && break
    sleep 0.02
  done
  kill -9 $pid 2>/dev/null
  wait $pid 2>/dev/null
done
killed_at=$(ls "$cards" | wc -l)
"$bin" "${args[@]}" >/dev/null 2>&1 || { echo "FAIL the run after the kill failed"; failed=1; }

cards_now=$(ls "$cards" | grep -c '\.vcf$')
companies=$(sqlite3 "$h" "SELECT count(*) FROM Companies;")
mapped=$(sqlite3 "$s" "SELECT count(DISTINCT CompanyNum) FROM OutlookSync WHERE OutlookID <> '';")
rows=$(sqlite3 "$s" "SELECT count(*) FROM OutlookSync;")
dups=$(grep -h '^X-DOSSYNC-FILEAS:' "$cards"/*.vcf | sort | uniq -d | wc -l)
stray=$(ls "$cards" | grep -vc '\.vcf$')
echo "killed with $killed_at cards; afterwards $cards_now cards, $companies companies, $mapped mapped, $rows rows"
[[ $cards_now -eq $companies ]] || { echo "FAIL $cards_now cards for $companies companies"; failed=1; }
[[ $dups -eq 0 ]] || { echo "FAIL $dups duplicate contacts"; failed=1; }
[[ $mapped -eq $companies && $rows -eq $companies ]] || { echo "FAIL mapping rows: $mapped mapped, $rows rows"; failed=1; }
[[ $stray -eq 0 ]] || { echo "FAIL $stray files that are not cards left in the store"; failed=1; }
for db in "$h" "$s"; do
  [[ $(sqlite3 "$db" "PRAGMA integrity_check;") == ok ]] || { echo "FAIL $db is damaged"; failed=1; }
done
[[ $failed -eq 0 ]] && echo "crash: 1 passed, 0 failed" || echo "crash: 0 passed, 1 failed"
exit $failed
