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
# Companies, any with two default contacts, detail rows; loose contacts and nested categories?
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

# Hostile input: a FIFO among the cards, cards not UTF-8 or with a NUL, JSON nested very deep.
ol=(--outlook "vdir:$work/ol")
run() { timeout 20 "$bin" "$@" >"$work/out" 2>"$work/err"; echo $?; }

for name in Alpha Omega; do
  echo "{\"FileAs\": \"$name\", \"CompanyName\": \"$name Ltd\"}" | "$bin" contacts put "${ol[@]}" --json - >/dev/null
done
cards="$work/ol/default/contacts"

# A FIFO under a card's name is passed over, not waited on.
mkfifo "$cards/x.vcf"
same "fifo: list does not hang" "$(run contacts list "${ol[@]}")" 0
same "fifo: the cards still list" "$(wc -l <"$work/out")" 2

# A card that is not UTF-8 lists with the others, its bad bytes as U+FFFD, its file named once.
vcard latin "Caf$(printf '\xe9') Ol$(printf '\xe9')" 'N:;;;;' >"$cards/latin.vcf"
# A NUL byte does not cut the value short.
printf 'BEGIN:VCARD\r\nVERSION:3.0\r\nUID:nul\r\nFN:Jo\0e Bloggs\r\nN:;;;;\r\nEND:VCARD\r\n' >"$cards/nul.vcf"
same "bad bytes: list --json exit" "$(run contacts list "${ol[@]}" --json)" 0
names=$(python3 -c 'import json,sys; print("|".join(sorted(c["FullName"] for c in json.load(sys.stdin))))' <"$work/out")
same "bad bytes: every card listed, bytes replaced" "$names" "||Caf� Ol�|Jo�e Bloggs"
same "bad bytes: one warning per file" "$(grep -c 'not UTF-8' "$work/err")" 2
for f in latin nul; do has "bad bytes: warning names $f.vcf" "$(cat "$work/err")" "$cards/$f.vcf"; done

python3 -c 'print("{\"Body\": " + "[" * 100000 + "]" * 100000 + "}")' >"$work/deep.json"
same "deep json: exit" "$(run contacts put "${ol[@]}" --json "$work/deep.json")" 1
has "deep json: message" "$(cat "$work/err")" "nested more than"
# A NUL given to put is refused, not written into a card.
same "put NUL: exit" "$(echo '{"FileAs": "Nul", "Body": "a\u0000b"}' | run contacts put "${ol[@]}" --json -)" 1
has "put NUL: message" "$(cat "$work/err")" "Body holds a NUL"
same "deep json: nothing made" "$(ls "$cards" | grep -c '\.vcf$')" 5

finish cli
