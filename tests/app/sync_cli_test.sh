#!/usr/bin/env bash
# End-to-end checks of "dossync sync" on real files: a host database, a synchronisation
# database and an Outlook store (the vCard folder, or a CardDAV server: store_lib.sh).
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/store_lib.sh"

h="$work/h.db" s="$work/s.db"
"$bin" init-host "$h" >/dev/null
sqlite3 "$h" "INSERT INTO Companies (CompanyID, CompanyName, OfficeNumber, Email) VALUES
  (1, 'Alpha Ltd', '111', 'a@alpha'), (2, 'Beta Ltd', '222', 'b@beta'), (3, 'Gamma Ltd', '333', '');
  INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, FirstName, LastName, DefaultContact, Gender, Birthday)
  VALUES (10, 1, 'Ann Alpha', 'Ann', 'Alpha', 1, 'FEMALE', '1970-03-05'), (11, NULL, 'Loose Lee', 'Loose', 'Lee', 0, '', NULL);"
sync() { "$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress "$@"; }
count() { ls $cards 2>/dev/null | grep -c '\.vcf$'; }
q() { sqlite3 "$s" "$1"; }

# Companies 1 and 3 chosen: two new items; company 2 is paired with nothing.
out=$(sync --select 1,3); same "sync exit" $? 0
[[ "$out" == "records 3, create-item 2, update-item 0, pair-only 1, nothing 0, errors 0, records failed 0, seconds "* ]] && ok || bad "summary: $out"
same "two cards" "$(count)" 2
same "unselected company mapped with an empty id" "$(q "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = 2;")" ""
alpha=$(q "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = 1;")
has "the item as transferred" "$("$bin" contacts show "$alpha" "${ol[@]}" --json)" '"FileAs": "Alpha Ltd"'

# Information type 7 walks the contacts.
out=$(sync --info 7 --select 11)
same "contact walk pairs every contact" "$(q 'SELECT count(*) FROM OutlookSync WHERE ContactNum IS NOT NULL;')" 2
same "contact card made" "$(count)" 3

# Errors: reported with their location; --on-error exit ends with code 3.
sqlite3 "$h" "UPDATE Contacts SET Birthday = 'someday' WHERE ContactID = 10;"
sync --select 1 >/dev/null 2>"$work/err"; same "a failed record: exit code 1" $? 1
grep -q "error 13: .*someday.*createNewDossieraCompanyWithDefaultContactInOutlook" "$work/err" && ok || { bad "error report"; cat "$work/err"; }
sync --select 1 --on-error exit >/dev/null 2>&1; same "exit action exit code" $? 3
same "a failed transfer keeps the pairing" "$(q "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = 1;")" "$alpha"

# A run that cannot reach the store spoils no pairing, and the next good run adds no duplicates.
sqlite3 "$h" "UPDATE Contacts SET Birthday = NULL WHERE ContactID = 10;"
before=$(count)
store_down
sync --select 1,2,3 >/dev/null 2>"$work/err"
store_up
grep -Eqi "error|cannot reach" "$work/err" && ok || bad "unreachable store not reported"
same "pairing kept without the store" "$(q "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = 1;")" "$alpha"
sync --select 1,2,3 >/dev/null
same "only the new company gets a card" "$(count)" $((before + 1))
same "paired card updated again" "$(q "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = 1;")" "$alpha"

# Start-up failures and usage.
echo "junk junk junk junk junk junk junk junk" >"$work/junk.db"
"$bin" sync --host-db "$work/junk.db" --sync-db "$s" "${ol[@]}" >/dev/null 2>&1; same "junk host" $? 2
"$bin" sync --host-db "$work/none.db" --sync-db "$s" "${ol[@]}" >/dev/null 2>&1; same "missing host" $? 2
"$bin" sync --host-db "$h" --sync-db "$s" --direction 5 >/dev/null 2>&1; same "bad direction" $? 64
"$bin" sync --host-db "$h" --sync-db "$s" --outlook "imap:x" >/dev/null 2>&1; same "bad store" $? 64

finish "sync cli ($store_kind)"
