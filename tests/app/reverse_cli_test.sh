#!/usr/bin/env bash
# End-to-end checks of "dossync sync --direction 3": Outlook contacts into the host database.
# The Outlook store: the vCard folder, or a CardDAV server (store_lib.sh).
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/store_lib.sh"

h="$work/h.db" s="$work/s.db"
"$bin" init-host "$h" >/dev/null
hq() { sqlite3 "$h" "$1"; }
sq() { sqlite3 "$s" "$1"; }
schema() { hq "SELECT type, name, tbl_name, sql FROM sqlite_master ORDER BY name;" | md5sum; }
# The host's own category under another case is the one new clients are filed in.
hq "INSERT INTO Categories (CategoryName) VALUES ('DOSSIERA CLIENTS');"
schema_before=$(schema)
put() { "$bin" contacts put "${ol[@]}" --json -; }
sync() { "$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress --direction 3 "$@"; }

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
same "the existing category is reused" "$(hq "SELECT count(*) || '|' || max(CategoryID) FROM Categories;")" \
  "1|$(hq "SELECT CategoryNum FROM HostCategory;")"
same "contact" "$(hq "SELECT NamePrefix || '|' || FirstName || '|' || MiddleName || '|' || LastName || '|' || DisplayName || '|' || Gender || '|' || Birthday || '|' || BusinessEmail || '|' || PersonalEmail || '|' || DefaultContact || '|' || CompanyNum FROM Contacts;")" \
  "Dr.|Jane|Q|Public|Dr. Jane Q Public|Female|1970-03-05|jane@public.ca|jane@home.ca|1|$cid"
# The company's default-contact columns were made when the contact was added, before its
# columns were filled from Outlook.
same "default contact columns" "$(hq "SELECT DefaultContactName || '|' || DefaultContactEmail FROM Companies;")" "Dr. Jane Q Public|"
same "pairing kept with -1" "$(sq "SELECT CompanyNum || '|' || ContactNum FROM OutlookSync WHERE OutlookID = '$jane';")" "-1|1"

# Again: the contact is updated in place through the pairing; the company pairing is -1, so
# another company is made.
echo "{\"EntryID\": \"$jane\", \"JobTitle\": \"Partner\", \"CompanyName\": \"\"}" | put >/dev/null
out=$(sync --select "$jane")
[[ "$out" == *"create-company 1, update-company 0, nothing 0,"* ]] && ok || bad "second summary: $out"
same "one contact" "$(hq "SELECT count(*) || '|' || BusinessJobTitle FROM Contacts;")" "1|Partner"
same "two companies" "$(hq "SELECT count(*) FROM Companies;")" 2
same "empty Outlook company name empties the host's" "$(hq "SELECT CompanyName FROM Companies ORDER BY CompanyID DESC LIMIT 1;")" ""

# --select all takes every contact of the store; a blank entry is not transferred.
put <<<'{"FullName": "mrs Ann", "CompanyName": "Ann Co"}' >/dev/null
out=$(sync --select all); same "all exit" $? 0
same "Ann's company" "$(hq "SELECT count(*) FROM Companies WHERE CompanyName = 'Ann Co';")" 1
same "Ann is its default contact" "$(hq "SELECT c.DefaultContact FROM Contacts c JOIN Companies k ON k.CompanyID = c.CompanyNum WHERE k.CompanyName = 'Ann Co';")" 1

# Neither direction touches the host's schema (no index, no table of ours).
"$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress --direction 2 --select all >/dev/null
same "host schema untouched" "$(schema)" "$schema_before"

finish "reverse cli ($store_kind)"
