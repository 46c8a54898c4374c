#!/usr/bin/env bash
# "sync --two-way" end to end (store_lib.sh, host_lib.sh): quiet runs, conflicts under both rules,
# new records made once, deletions, a mass deletion refused and --force, --restore-deleted, the
# first run after one-way runs, the preview is the report, usage errors. (Changes on both sides
# in one run: TwoWayTest.ChangesOnEachSideMeetInOneRunAndAQuietRunWritesNothing.)
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/store_lib.sh"
source "$(dirname "$0")/host_lib.sh"

h=$(host_make host) s=$(host_make syncdb)
[[ $host_kind == sqlite ]] || "$bin" init-host "$h" >/dev/null || bad "init-host"
"$bin" demo-data "$h" --companies 12 --seed 5 >/dev/null || bad "demo-data"
hq() { host_query "$h" "$1"; }
two() { "$bin" sync --two-way --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress "$@"; }
run() { local name=$1 want=$2; shift 2; check "$name" "$want" two "$@"; }  # NAME WANT ARGS (of two)
cards() { ls "$cards" 2>/dev/null | grep -c '\.vcf$'; }
item_of() { "$bin" contacts list "${ol[@]}" | awk -F'\t' -v n="$1" '$2 == n { print $1 }'; }
prop() { "$bin" contacts show "$1" "${ol[@]}" --json | jq -r ".$2"; }
put() { "$bin" contacts put "${ol[@]}" --json - >/dev/null; }
name_of() { hq "SELECT \"CompanyName\" FROM \"Companies\" WHERE \"CompanyID\" = $1;"; }
# Everything a run may change: the host's rows, the pairs, the cards.
world() { echo "$(host_dump "$h") $(host_dump "$s") $(cd "$cards" && cat ./*.vcf 2>/dev/null | md5sum)"; }
# The records of a report or preview (--json), but the entry ids new items get.
plan_of() {
  jq -c '.records[] | [.kind, .key, .name, .action, [.changes[] | [.target, .field, .old, .new]],
    .conflicts, .notes]' "$1" | sed 's/preview-[0-9]*//g'
}
action_of() { jq -r --arg k "$2" '[.records[] | select(.key == $k) | .action] | first // "(not listed)"' "$1"; }

# ---- Usage errors: the options that cannot go with --two-way, before anything is opened.
for args in "--select 1,2" "--pair-created" "--conflict both"; do run "usage: --two-way $args" 64 $args; done
run "usage: --direction" 64 --direction 2; has "usage: --direction named" "$(err)" "leave out --direction"
run "usage: --info" 64 --info 3; has "usage: --info named" "$(err)" "--info 1"
"$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --force >/dev/null 2>&1; same "usage: --force alone" $? 64
same "usage: nothing made" "$(cards)" 0

# ---- First run: one item a company; then a quiet run writes nothing anywhere.
companies=$(hq 'SELECT count(*) FROM "Companies";')
contacts=$(hq 'SELECT count(*) FROM "Contacts";')
run "first run" 0
has "first run: an item a company" "$(out)" "create-item $companies,"
has "first run: summary" "$(out)" ", conflicts 0, errors 0, records failed 0"
same "first run: cards" "$(cards)" "$companies"
before="$(world) $(writes)"
run "quiet run" 0
has "quiet run: nothing" "$(out)" "records $companies, create-item 0, update-item 0,"
has "quiet run: all nothing" "$(out)" "nothing $companies,"
same "quiet run changes no byte, sends no write" "$(world) $(writes)" "$before"
same "no contact added" "$(hq 'SELECT count(*) FROM "Contacts";')" "$contacts"

c1=$(name_of 1) c2=$(name_of 2) c3=$(name_of 3)
i1=$(item_of "$c1") i2=$(item_of "$c2") i3=$(item_of "$c3")
city1=$(hq 'SELECT "City" FROM "Companies" WHERE "CompanyID" = 1;')

# ---- Conflicts: the host's value by default, the item's with --conflict outlook.
hq "UPDATE \"Companies\" SET \"City\" = 'Aylmer' WHERE \"CompanyID\" IN (1, 2);"
put <<<"{\"EntryID\": \"$i1\", \"BusinessAddressCity\": \"Gatineau\"}"
put <<<"{\"EntryID\": \"$i2\", \"BusinessAddressCity\": \"Chelsea\"}"
preview_then_run conflict-host 0 two
r="$work/out/conflict-host.json"
same "host rule: item and host take the host's" \
  "$(prop "$i1" BusinessAddressCity)|$(hq 'SELECT "City" FROM "Companies" WHERE "CompanyID" = 1;')" "Aylmer|Aylmer"
same "host rule: named" "$(jq -c '[.records[] | select(.key == "1") | .conflicts[] | [.base, .host, .outlook, .kept]]' "$r")" \
  "[[\"$city1\",\"Aylmer\",\"Gatineau\",\"host\"]]"
same "host rule: counted" "$(jq .summary.conflicts "$r")" 2
has "text report names it" "$("$bin" report show last "${ol[@]}")" "base \"$city1\", host \"Aylmer\", Outlook \"Gatineau\""
hq "UPDATE \"Companies\" SET \"City\" = 'Wakefield' WHERE \"CompanyID\" = 2;"
put <<<"{\"EntryID\": \"$i2\", \"BusinessAddressCity\": \"Chelsea\"}"
run "outlook rule" 0 --conflict outlook
has "outlook rule: summary" "$(out)" "conflicts 1,"
same "outlook rule: host and item take the item's" \
  "$(hq 'SELECT "City" FROM "Companies" WHERE "CompanyID" = 2;')|$(prop "$i2" BusinessAddressCity)" "Chelsea|Chelsea"

# ---- New records on both sides: made once over three runs, no default contact added.
hq "INSERT INTO \"Companies\" (\"CompanyName\", \"City\") VALUES ('Zephyr Accounting', 'Perth');"
put <<<'{"FileAs": "Quill Printing", "CompanyName": "Quill Printing", "FirstName": "Rosa", "LastName": "Quill", "FullName": "Rosa Quill", "BusinessAddressCity": "Almonte"}'
for n in 1 2 3; do run "new records, run $n" 0; done
same "one item for the new company" "$(item_of 'Zephyr Accounting' | wc -l)" 1
same "one company for the new item" "$(hq "SELECT count(*) FROM \"Companies\" WHERE \"CompanyName\" = 'Quill Printing';")" 1
same "its default contact, once" "$(hq "SELECT count(*) FROM \"Contacts\" p JOIN \"Companies\" c ON c.\"CompanyID\" = p.\"CompanyNum\" WHERE c.\"CompanyName\" = 'Quill Printing';")" 1
same "cards: two more" "$(cards)" $((companies + 2))
companies=$((companies + 2))
same "no default contact added by the round trips" "$(hq 'SELECT count(*) FROM "Contacts";')" $((contacts + 1))

# ---- Deletions on each side, and --restore-deleted.
"$bin" contacts delete "$i3" "${ol[@]}" >/dev/null
run "item deleted" 0
has "item deleted: said" "$(out)" "item-deleted 1,"
same "item deleted: company kept" "$(hq 'SELECT count(*) FROM "Companies" WHERE "CompanyID" = 3;')" 1
run "item deleted, again" 0
same "item deleted: not made again" "$(item_of "$c3" | wc -l)" 0
run "restore" 0 --restore-deleted
has "restore: made again" "$(out)" "create-item 1,"
same "restore: one item" "$(item_of "$c3" | wc -l)" 1
hq 'DELETE FROM "Contacts" WHERE "CompanyNum" = 4; DELETE FROM "Companies" WHERE "CompanyID" = 4;'
c4_items=$(cards)
run "company deleted" 0
has "company deleted: its item deleted" "$(out)" "delete-item 1,"
same "company deleted: one card less" "$(cards)" $((c4_items - 1))
companies=$((companies - 1))

# ---- A mass deletion (over a fifth of the pairs, and over five) is refused; --force does it.
hq 'DELETE FROM "Contacts" WHERE "CompanyNum" BETWEEN 5 AND 10; DELETE FROM "Companies" WHERE "CompanyID" BETWEEN 5 AND 10;'
hq "UPDATE \"Companies\" SET \"City\" = 'Arnprior' WHERE \"CompanyID\" = 1;"
before="$(world) $(writes)"
run "mass deletion refused" 1
has "refusal names the number" "$(err)" " 6 "
has "refusal names --force" "$(err)" "--force"
same "refusal changes no byte, sends no write" "$(world) $(writes)" "$before"
run "mass deletion forced" 0 --force
has "forced: deleted" "$(out)" "delete-item 6,"
same "forced: the other change made too" "$(prop "$i1" BusinessAddressCity)" Arnprior
same "forced: cards" "$(cards)" $((companies - 6))

# ---- Contacts (information type 7), in a second store and scheme, two of them of one name.
ol=("${ol2[@]}") cards=$cards2
hq "INSERT INTO \"Contacts\" (\"CompanyNum\", \"DisplayName\", \"FirstName\", \"LastName\", \"BusinessName\", \"DefaultContact\")
  VALUES (1, 'Sam Lee', 'Sam', 'Lee', '$c1', FALSE), (2, 'Sam Lee', 'Sam', 'Lee', '$c2', FALSE);"
contacts=$(hq 'SELECT count(*) FROM "Contacts";')
# They were synchronised one way first: the first two-way run adopts that run's pairings and
# writes nothing anywhere (e-mail addresses, dates and genders compare equal as it wrote them).
"$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress --info 7 --scheme 2 >/dev/null ||
  bad "contacts: one-way run"
before="$(host_dump "$h") $(cd "$cards" && cat ./*.vcf | md5sum) $(writes)"
run "contacts: first run" 0 --info 7 --scheme 2
has "contacts: first run writes nothing" "$(out)" "records $contacts, create-item 0, update-item 0, create-company 0, create-contact 0, update-company 0, update-contact 0, update-both 0,"
has "contacts: first run, no conflict" "$(out)" ", conflicts 0, errors 0,"
same "contacts: first run changes no byte, sends no write" \
  "$(host_dump "$h") $(cd "$cards" && cat ./*.vcf | md5sum) $(writes)" "$before"
same "contacts: a card each" "$(cards)" "$contacts"

finish twoway_cli_test
