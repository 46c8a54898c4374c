#!/usr/bin/env bash
# Preview and report end to end (vCard folder or CardDAV server: store_lib.sh): a preview changes
# no file and writes nothing; the run after it reports what it showed, both ways; errors with
# their record and location; --pair-created; old reports let go.
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/store_lib.sh"

h="$work/h.db" s="$work/s.db"
"$bin" demo-data "$h" --companies 8 --seed 3 >/dev/null
hq() { sqlite3 "$h" "$1"; }
sync() { "$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress "$@"; }
# Every file of the run's world by content, but the server's log and what reading fills.
world() {
  (cd "$work" && find . -type f ! -name radicale.log ! -path '*/.Radicale.cache/*' \
    ! -name carddav-state ! -path './out/*' -print0 | sort -z | xargs -0 md5sum)
}
mkdir -p "$work/out"
# The records of a preview or report, but the entry ids new items get (they differ).
plan_of() {
  jq -c '(.records[] | [.kind, .key, .name, .selected, .action, .foundBy, .contactFoundBy,
      [.changes[] | [.target, .field, .old, .new]], .added, .notes, .warnings]),
    (.summary | [.companiesCreatedAgain, .companiesToCreateAgain, .nameMatches,
      .itemsPairedTwice, .contactsAtAnotherCompany])' "$1"
}
# Of a report FILE: record KEY's action; the counts; record KEY's FIELD; a summary count.
action() { jq -r --arg k "$2" '[.records[] | select(.key == $k) | .action] | first // "(not listed)"' "$1"; }
actions() { jq -c '.summary | [.records, .listed, .actions["create-item", "update-item", "pair-only", "nothing"]]' "$1"; }
field() { jq -r --arg k "$2" --arg f "$3" '.records[] | select(.key == $k) | .[$f] | if type == "array" then .[] else . end' "$1"; }
count() { jq -r --arg c "$2" '.summary[$c]' "$1"; }

# Host to Outlook (the unchanged item and rows not chosen listed with --all only); of two
# companies of one name, the second finds the first's item by name: paired twice, warned.
sync --select 1,2,3 >/dev/null
hq "UPDATE Companies SET City = 'Gatineau' WHERE CompanyID = 2;"
hq "INSERT INTO Companies (CompanyID, CompanyName, City) VALUES (9, 'Twin Ltd.', 'Laval'), (10, 'Twin Ltd.', 'Hull');"
sync --select 1,2,4,5,9,10 --preview --all --json >"$work/out/all.json"
preview_then_run to-outlook 0 sync --select 1,2,4,5,9,10
p="$work/out/to-outlook-preview.json"
listed() { jq -r '[.records[] | "\(.key) \(.action) \(.foundBy)"] | join(", ")' "$1"; }
same "listed" "$(listed "$p")" "2 update-item mapping, 4 create-item none, 5 create-item none, \
6 pair-only none, 7 pair-only none, 8 pair-only none, 9 create-item none, 10 update-item name"
same "listed with --all" "$(listed "$work/out/all.json")" "1 nothing mapping, 2 update-item mapping, \
3 pair-only mapping, 4 create-item none, 5 create-item none, 6 pair-only none, 7 pair-only none, \
8 pair-only none, 9 create-item none, 10 update-item name"
same "all counted" "$(actions "$p")" "[10,8,3,2,4,1]"
has "twins warned" "$(field "$p" 9 warnings)" 'also paired with company 10 "Twin Ltd."'
same "items paired twice" "$(count "$p" itemsPairedTwice)" 1
[[ "$store_kind" == vdir || $run_writes -gt 0 ]] && ok || bad "the server logged none of the run's writes"
hq "UPDATE Companies SET City = 'Hull' WHERE CompanyID = 2;"
has "text form" "$(sync --select 2 --preview)" 'item BusinessAddressCity: "Gatineau" -> "Hull"'
# The first twin, not chosen, is listed once the second is paired with its item: in its place
# (after the rows not chosen that have no item), with its warning.
sync --select 10 --preview --json >"$work/out/late.json"
has "late warning on a record not listed" "$(field "$work/out/late.json" 9 warnings)" 'also paired with company 10 "Twin Ltd."'
same "listed in its place" "$(jq -c '[.records[].key]' "$work/out/late.json")" '["6","7","8","9","10"]'
same "report show last is the run's report" "$("$bin" report show last "${ol[@]}" --json | plan_of /dev/stdin)" \
  "$(plan_of "$work/out/to-outlook.json")"

# Outlook to host: a new contact makes a company paired with -1, made again each run, counted.
put() { "$bin" contacts put "${ol[@]}" --json -; }
jane=$(put <<<'{"FullName": "Jane Q Public", "FirstName": "Jane", "LastName": "Public", "CompanyName": "Public Works", "BusinessAddressCity": "Ottawa"}')
preview_then_run from-outlook 0 sync --direction 3 --select "$jane"
same "company made" "$(action "$work/out/from-outlook.json" "$jane")" create-company
same "to make again next run" "$(count "$work/out/from-outlook.json" companiesToCreateAgain)" 1
preview_then_run again 0 sync --direction 3 --select "$jane"
same "made again" "$(count "$work/out/again.json" companiesCreatedAgain)" 1

# --pair-created pairs the item with the company made: the next run updates it.
ann=$(put <<<'{"FullName": "Ann Lee", "CompanyName": "Lee Bakery"}')
sync --direction 3 --select "$ann" --pair-created >/dev/null
preview_then_run paired 0 sync --direction 3 --select "$ann" --pair-created
same "updated, not made again" "$(action "$work/out/paired-preview.json" "$ann")" "(not listed)"
same "one Lee Bakery" "$(hq "SELECT count(*) FROM Companies WHERE CompanyName = 'Lee Bakery';")" 1

# An item named like a host contact of another company: both found by name, warned.
IFS='|' read -r other_co someone <<<"$(hq "SELECT c.CompanyName, p.DisplayName FROM Companies c, Contacts p
  WHERE c.CompanyID = 3 AND p.CompanyNum = 4 LIMIT 1;")"
stray=$(put <<<"{\"FullName\": \"$someone\", \"CompanyName\": \"$other_co\"}")
preview_then_run stray 0 sync --direction 3 --select "$stray"
r="$work/out/stray.json"
same "company and contact by name" "$(field "$r" "$stray" foundBy) $(field "$r" "$stray" contactFoundBy)" "name name"
has "another company warned" "$(field "$r" "$stray" warnings)" "contact found by name at another company"
same "name matches counted" "$(count "$r" nameMatches)" 2
has "text form" "$("$bin" report show last "${ol[@]}")" 'warning: contact found by name at another company'

# SIGTERM stops the run at the next record: what was done committed and reported, marked
# interrupted; the exit code says which signal. (The store does not change it: vCard folder only.)
if [[ $store_kind == vdir ]]; then
  "$bin" demo-data "$work/int.db" --companies 3000 --seed 7 >/dev/null
  "$bin" sync --host-db "$work/int.db" --sync-db "$work/int-s.db" --outlook "vdir:$work/olint" \
    --no-progress --json >"$work/out/int.json" 2>"$work/out/int.err" &
  pid=$!
  wait_for 10 '(( $(ls "$work/olint/default/contacts" 2>/dev/null | wc -l) >= 50 ))'
  kill -TERM $pid
  wait $pid; same "stopped by SIGTERM" $? 143
  read -r interrupted records < <(jq -r '"\(.interrupted) \(.summary.records)"' "$work/out/int.json")
  same "marked interrupted" "$interrupted" true
  (( records > 0 && records < 3000 )) && ok || bad "interrupted after $records of 3000 records"
  same "its records committed" "$(sqlite3 "$work/int-s.db" 'SELECT count(*) FROM OutlookSync;')" "$records"
  same "its cards" "$(ls "$work/olint/default/contacts" | grep -c '\.vcf$')" "$records"
fi

hq "UPDATE Contacts SET Birthday = 'someday' WHERE CompanyNum = 1 AND DefaultContact = 1;"
sync --select 1 >/dev/null 2>&1
shown=$("$bin" report show last "${ol[@]}")
has "error's record" "$shown" "company 1 "
has "error's location" "$shown" "error 13 in kvoutlookdx.dll-clsOutlookSynchronization-createNewDossieraCompanyWithDefaultContactInOutlook"

sync --select 1 --keep-reports 2 >/dev/null 2>&1
same "reports kept" "$("$bin" report list "${ol[@]}" | wc -l)" 2
has "no report: said so" "$("$bin" report show 19990101-000000 "${ol[@]}" 2>&1)" \
  "dossync: No report 19990101-000000 in $XDG_STATE_HOME/dossync/reports/"

# Reports live under $XDG_STATE_HOME, a folder per store and profile; those an earlier version
# kept in the profile's folder are still listed and shown; --keep-size.
out=$(sync --select 1 2>/dev/null)
folder=$(dirname "$(sed -n 's/^Report: //p' <<<"$out")")
[[ $store_kind == carddav ]] && profile=alice || profile=default
same "state folder per store and profile" "${folder%/*/*}|${folder##*/}" "$XDG_STATE_HOME/dossync/reports|$profile"
old="$(dirname "$cards")/reports"
mkdir -p "$old"
"$bin" report show last --json "${ol[@]}" >"$old/20000101-000000.json"
same "old report listed first" "$("$bin" report list "${ol[@]}" | head -1 | cut -c1-15)" 20000101-000000
has "old report shown" "$("$bin" report show 20000101-000000 "${ol[@]}")" "direction"
# (The run itself fails: company 1's contact still has a bad birthday.)
same "--keep-size 1G accepted" "$(sync --select 1 --keep-size 1G 2>&1 | grep -c keep-size)" 0
same "--keep-size lots refused" "$(sync --select 1 --keep-size lots >/dev/null 2>&1; echo $?)" 64
sync --select 1 --keep-size 1 >/dev/null 2>&1
same "--keep-size: the new one alone" "$("$bin" report list "${ol[@]}" | wc -l)|$(ls "$old"/*.json)" "2|$old/20000101-000000.json"
same "json list" "$("$bin" report list --json "${ol[@]}" | grep -c '"id"')" 2

finish "report cli ($store_kind)"
