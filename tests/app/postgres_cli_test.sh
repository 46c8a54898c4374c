#!/usr/bin/env bash
# The command line with the host database on a PostgreSQL server (host_lib.sh): init-host,
# demo-data, check and sync both ways give what they give on a SQLite file.
source "$(dirname "$0")/check_lib.sh"
DOSSYNC_TEST_HOST=postgres source "$(dirname "$0")/host_lib.sh"
h=$(host_make host1) h2=$(host_make host2) lite="$work/h.db"
pq() { host_query "$@"; }
# sync HOST SYNC STORE ARGS...: a run of every record, the store a folder under $work.
sync() {
  "$bin" sync --host-db "$1" --sync-db "$2" --outlook "vdir:$work/$3" --no-progress --select all "${@:4}"
}

out=$("$bin" init-host "$h"); same "init-host exit" $? 0
has "init-host names the database" "$out" "Created host database $h"
"$bin" init-host "$h" >/dev/null 2>"$work/err"; same "init-host twice fails" $? 1
grep -q "holds host tables already" "$work/err" && ok || bad "second init-host: $(cat "$work/err")"
"$bin" demo-data "$h" >/dev/null; same "demo-data exit" $? 0
"$bin" demo-data "$lite" >/dev/null
same "demo companies" "$(pq "$h" 'SELECT count(*) FROM "Companies";')" 50

# check: a missing database is the failed-to-open path, its password never shown.
out=$("$bin" check --host-db "${h/dossync@/dossync:s3cret@}" --sync-db "$work/s0.db" 2>&1)
same "check exit" $? 0
out=$("$bin" check --host-db "$(host_uri nosuch | sed 's/dossync@/dossync:s3cret@/')" --sync-db "$work/s0.db" 2>&1)
same "missing database exit" $? 2
has "missing database named" "$out" "Cannot open database '$(host_uri nosuch)'"
[[ "$out" != *s3cret* ]] && ok || bad "password shown: $out"

cards() {  # the cards of a folder, without what identifies or dates them, in one digest
  for f in $(find "$1" -name '*.vcf'); do
    grep -v '^UID\|^REV\|^PRODID' "$f" | tr -d '\r' | sort | md5sum
  done | sort | md5sum
}
has "host to Outlook" "$(sync "$h" "$work/s1.db" ol1 --direction 2)" "records 50, create-item 50,"
sync "$lite" "$work/s2.db" ol2 --direction 2 >/dev/null
same "same cards as from SQLite" "$(cards "$work/ol1")" "$(cards "$work/ol2")"

"$bin" init-host "$h2" >/dev/null
"$bin" init-host "$work/h2.db" >/dev/null
cp -r "$work/ol1" "$work/ol3"
cp -r "$work/ol1" "$work/ol4"
has "Outlook to host" "$(sync "$h2" "$work/s3.db" ol3 --direction 3)" "create-company 50,"
sync "$work/h2.db" "$work/s4.db" ol4 --direction 3 >/dev/null
same "same companies as on SQLite" \
  "$(pq "$h2" 'SELECT "CompanyName", "City", "Email", "DefaultContactName" FROM "Companies" ORDER BY "CompanyID";' | md5sum)" \
  "$(sqlite3 "$work/h2.db" 'SELECT CompanyName, City, Email, DefaultContactName FROM Companies ORDER BY CompanyID;' | md5sum)"
same "same contacts as on SQLite" \
  "$(pq "$h2" "SELECT \"DisplayName\", to_char(\"Birthday\", 'YYYY-MM-DD'), \"DefaultContact\"::int FROM \"Contacts\" ORDER BY \"ContactID\";" | md5sum)" \
  "$(sqlite3 "$work/h2.db" 'SELECT DisplayName, Birthday, DefaultContact FROM Contacts ORDER BY ContactID;' | md5sum)"

# Both databases on the server: a missing table is made again; a missing database fails to open.
s=$(host_make sync1)
sync "$h" "$s" ol5 --direction 2 >/dev/null 2>&1
pq "$s" 'DROP TABLE "OutlookScheme";'
has "again: paired, updated in place" "$(sync "$h" "$s" ol5 --direction 2 2>&1)" "create-item 0, update-item 0, pair-only 0, nothing 50,"
same "missing table made again" "$(pq "$s" "SELECT count(*) FROM information_schema.tables WHERE table_name = 'OutlookScheme';")" 1
out=$("$bin" check --host-db "$h" --sync-db "$(host_uri nosync)" 2>&1)
same "missing sync database exit" $? 2
has "missing sync database named" "$out" "$(host_uri nosync)"

# Runs that find the tables missing at the same moment: every one succeeds, the tables made once.
host_make sync2 >/dev/null
pids=()
for i in 1 2 3 4; do
  "$bin" check --host-db "$h" --sync-db "$(host_uri sync2)" >"$work/maker$i.txt" 2>&1 &
  pids+=($!)
done
for i in "${!pids[@]}"; do
  wait "${pids[$i]}"; same "maker $i exit" $? 0
done
same "made once" "$(cat "$work"/maker*.txt | grep -ci error)" 0

# A preview changes no row and takes no number from a sequence (pg_dump's data is the same).
echo '{"FullName": "Nora New", "CompanyName": "New Co"}' |
  "$bin" contacts put --outlook "vdir:$work/ol5" --json - >/dev/null
before="$(host_dump "$h") $(host_dump "$s")"
for direction in 3 2; do
  sync "$h" "$s" ol5 --direction $direction --preview >/dev/null 2>&1
  same "preview $direction exit" $? 0
  same "preview $direction changes nothing on the server" "$(host_dump "$h") $(host_dump "$s")" "$before"
done
has "preview from Outlook" "$(sync "$h" "$s" ol5 --direction 3 --preview)" "1 create-company"

finish postgres_cli_test
