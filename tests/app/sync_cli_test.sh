#!/usr/bin/env bash
# "dossync sync" on real files (against a CardDAV server: carddav_cli_test): host to Outlook,
# then Outlook contacts into an empty host database.
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
alpha=$(q "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = 1;")

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

echo "junk junk junk junk junk junk junk junk" >"$work/junk.db"
"$bin" sync --host-db "$work/junk.db" --sync-db "$s" "${ol[@]}" >/dev/null 2>&1; same "junk host" $? 2
"$bin" sync --host-db "$h" --sync-db "$s" --direction 5 >/dev/null 2>&1; same "bad direction" $? 64
"$bin" sync --host-db "$h" --sync-db "$s" --outlook "imap:x" >/dev/null 2>&1; same "bad store" $? 64

# ---- Outlook to host, into a host database of its own from the second store.
h="$work/h2.db" s="$work/s2.db"
"$bin" init-host "$h" >/dev/null
hq() { sqlite3 "$h" "$1"; }
sq() { sqlite3 "$s" "$1"; }
schema() { hq "SELECT type, name, tbl_name, sql FROM sqlite_master ORDER BY name;" | md5sum; }
schema_before=$(schema)
put() { "$bin" contacts put "${ol2[@]}" --json -; }
sync() { "$bin" sync --host-db "$h" --sync-db "$s" "${ol2[@]}" --no-progress --direction 3 "$@"; }

jane=$(put <<'JSON'
{"FullName": "Dr. Jane Q Public", "Title": "Dr.", "FirstName": "Jane", "MiddleName": "Q", "LastName": "Public", "CompanyName": "Public Works Inc.",
 "BusinessAddressStreet": "1 Main St", "BusinessAddressCity": "Ottawa", "BusinessAddressState": "ON",
 "BusinessAddressPostalCode": "K1A 0B1", "BusinessAddressCountry": "Canada", "BusinessTelephoneNumber": "613-555-0100",
 "Email1Address": "info@public.ca", "Email2Address": "jane@public.ca", "Email3Address": "jane@home.ca",
 "Gender": 1, "Birthday": "1970-03-05", "JobTitle": "Director"}
JSON
)
out=$(sync --select "$jane"); same "exit" $? 0
[[ "$out" == *"create-company 1, update-company 0, nothing 0,"* ]] && ok || bad "summary: $out"
same "company" "$(hq "SELECT CompanyName || '|' || City || '|' || OfficeNumber || '|' || Email FROM Companies;")" \
  "Public Works Inc.|Ottawa|613-555-0100|info@public.ca"
cid=$(hq "SELECT CompanyID FROM Companies;")
same "contact" "$(hq "SELECT NamePrefix || '|' || FirstName || '|' || MiddleName || '|' || LastName || '|' || DisplayName || '|' || Gender || '|' || Birthday || '|' || BusinessEmail || '|' || PersonalEmail || '|' || DefaultContact || '|' || CompanyNum FROM Contacts;")" \
  "Dr.|Jane|Q|Public|Dr. Jane Q Public|Female|1970-03-05|jane@public.ca|jane@home.ca|1|$cid"
# The company's default-contact columns were made when the contact was added, before its
# columns were filled from Outlook.
same "default contact columns" "$(hq "SELECT DefaultContactName || '|' || DefaultContactEmail FROM Companies;")" "Dr. Jane Q Public|"
same "pairing kept with -1" "$(sq "SELECT CompanyNum || '|' || ContactNum FROM OutlookSync WHERE OutlookID = '$jane';")" "-1|1"

# Again: the contact is updated in place through the pairing; the company pairing is -1, so
# another company is made (its name emptied as Outlook's now is).
echo "{\"EntryID\": \"$jane\", \"JobTitle\": \"Partner\", \"CompanyName\": \"\"}" | put >/dev/null
sync --select "$jane" >/dev/null
same "one contact" "$(hq "SELECT count(*) || '|' || BusinessJobTitle FROM Contacts;")" "1|Partner"
same "empty Outlook company name empties the host's" "$(hq "SELECT count(*) || '|' || max(CompanyID) FROM Companies;")|$(hq "SELECT CompanyName FROM Companies ORDER BY CompanyID DESC LIMIT 1;")" "2|$((cid + 1))|"

# Neither direction touches the host's schema (no index, no table of ours).
"$bin" sync --host-db "$h" --sync-db "$s" "${ol2[@]}" --no-progress --direction 2 --select all >/dev/null
same "host schema untouched" "$(schema)" "$schema_before"

finish "sync cli ($store_kind)"
