#!/usr/bin/env bash
# End-to-end checks of the dossync command line on real files.
source "$(dirname "$0")/check_lib.sh"

check help 0 "$bin" --help
for c in init-host demo-data check; do has "help lists $c" "$(out)" "$c"; done
check usage 64 "$bin" no-such-command

check init-host 0 "$bin" init-host "$work/h.db"
check init-host-refuses-existing 1 "$bin" init-host "$work/h.db"

check check-good 0 "$bin" check --host-db "$work/h.db" --sync-db "$work/s.db"
has flag-false "$(out)" "FailedToInitializeFlag: False"
same "sync tables" "$(sqlite3 "$work/s.db" "SELECT count(*) FROM sqlite_master WHERE name IN ('OutlookScheme','OutlookSync');")" 2

check missing-host 0 "$bin" check --host-db "$work/none.db" --sync-db "$work/s.db"
has missing-host-flag "$(out)" "FailedToInitializeFlag: False"
[[ "$(err)" != *"companies database"* ]] && ok || bad "missing host showed a message"
echo "not a database at all, just words" >"$work/bad.db"
check garbage-host 2 "$bin" check --host-db "$work/bad.db" --sync-db "$work/s.db"
has garbage-host-message "$(err)" "The outlook synchronization was not able to access the companies database and needs to close."

check demo-data 0 "$bin" demo-data "$work/d1.db" --companies 30 --seed 5
"$bin" demo-data "$work/d2.db" --companies 30 --seed 5 >/dev/null
[[ "$(sqlite3 "$work/d1.db" .dump)" == "$(sqlite3 "$work/d2.db" .dump)" ]] && ok || bad "demo-data not deterministic"
# companies, companies with two default contacts, detail rows, loose contacts?, nested categories?
same "demo data" "$(sqlite3 "$work/d1.db" "SELECT (SELECT count(*) FROM Companies),
  (SELECT count(*) FROM (SELECT CompanyNum FROM Contacts WHERE DefaultContact=1 GROUP BY CompanyNum HAVING count(*) > 1)),
  (SELECT count(*) FROM ClientData c JOIN WSIB_EHTInfo w ON w.WSIB_EHTInfoID = c.ClientDataID),
  (SELECT count(*) > 0 FROM Contacts WHERE CompanyNum IS NULL),
  (SELECT count(*) > 0 FROM Categories WHERE CategoryNum IN (SELECT CategoryID FROM Categories WHERE CategoryNum IS NOT NULL));")" \
  "30|0|30|1|1"

# contacts put then show (another process) gives back text, numbers and dates exactly.
store="vdir:$work/store"
cat >"$work/contact.json" <<'JSON'
{"FirstName": "Zoë", "LastName": "O'Brien; Jr, \\ \"x\"", "FileAs": "[O'Brien] \"Zoë\"",
 "CompanyName": "Acme; Inc., Ltd.", "Categories": "Business, VIP", "Email2Address": "zoe@home.ca",
 "BusinessAddressStreet": "1 Main St\r\nSuite 5", "HomeAddressCountry": "", "WebPage": "https://acme.ca/a;b,c",
 "Body": "  leading and trailing  \nsecond line", "Gender": 1, "Birthday": "1970-03-05", "Anniversary": "1999-12-31"}
JSON
id=$("$bin" contacts put --outlook "$store" --json "$work/contact.json")
check contacts-show 0 "$bin" contacts show "$id" --outlook "$store" --json
same "contacts round trip: properties that differ" "$(jq -c --slurpfile w "$work/contact.json" --arg id "$id" \
  '. as $g | [($w[0] | to_entries[] | select(.value != $g[.key]) | .key), (select(.EntryID != $id or .Class != 40) | "EntryID|Class")]' \
  "$work/stdout")" "[]"
check contacts-delete 0 "$bin" contacts delete "$id" --outlook "$store"
check contacts-show-deleted 1 "$bin" contacts show "$id" --outlook "$store"
echo '{"Nickname": "x"}' >"$work/bad.json"
check contacts-unknown-property 1 "$bin" contacts put --outlook "$store" --json "$work/bad.json"
has contacts-unknown-property-named "$(err)" "Nickname"

finish cli
