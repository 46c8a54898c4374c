#!/usr/bin/env bash
# A synchronisation killed part-way (SIGKILL) and run again: no duplicate contact in the
# store, a mapping row for every company, and both databases still sound.
source "$(dirname "$0")/check_lib.sh"
h="$work/h.db" s="$work/s.db" cards="$work/ol/default/contacts"
demo_host "$h" 3000 11
args=(sync --host-db "$h" --sync-db "$s" --outlook "vdir:$work/ol" --no-progress)

# Each run is killed once it has written some cards but long before it is done.
for attempt in 1 2 3; do
  kill_when "(( \$(ls '$cards' 2>/dev/null | wc -l) >= $((attempt * 150)) ))" "${args[@]}"
done
killed_at=$(ls "$cards" | wc -l)
"$bin" "${args[@]}" >/dev/null 2>&1; same "the run after the kills" $? 0

companies=$(sqlite3 "$h" "SELECT count(*) FROM Companies;")
echo "killed with $killed_at cards; afterwards $companies companies"
same "a card per company" "$(ls "$cards" | grep -c '\.vcf$')" "$companies"
same "no duplicate contact" "$(grep -h '^X-DOSSYNC-FILEAS:' "$cards"/*.vcf | sort | uniq -d | wc -l)" 0
same "one mapping row per company" "$(sqlite3 "$s" "SELECT count(DISTINCT CASE WHEN OutlookID <> ''
  THEN CompanyNum END) || ' ' || count(*) FROM OutlookSync;")" "$companies $companies"
same "no file but cards left in the store" "$(ls "$cards" | grep -vc '\.vcf$')" 0
sound "$h" "$s"
finish crash
