#!/usr/bin/env bash
# khard's folder of cards as the store: the cards go among khard's, dossync's state elsewhere,
# and a company card khard edits between two runs is still the company's card.
if ! command -v khard >/dev/null; then
  echo "khard_vdir_test: khard is not installed (Debian: khard), skipped"
  exit 0
fi
source "$(dirname "$0")/check_lib.sh"
book="$work/book" h="$work/h.db" s="$work/s.db"
mkdir -p "$book" "$XDG_CONFIG_HOME/khard"
printf '[addressbooks]\n[[book]]\npath = %s/\n' "$book" >"$XDG_CONFIG_HOME/khard/khard.conf"
kh() { timeout 30 khard "$@"; }
ol=(--outlook "vdir:$book")
sync() { "$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress --select all "$@"; }
q() { sqlite3 "$h" "$1"; }

printf 'First name: Jane\nLast name: Doe\nEmail:\n  work: jane@doe.example\n' >"$work/jane.yaml"
kh new -a book -i "$work/jane.yaml" </dev/null >/dev/null 2>&1
same "khard made its card" "$(ls "$book" | grep -c '\.vcf$')" 1

"$bin" init-host "$h" >/dev/null
q "INSERT INTO Companies (CompanyID, CompanyName, OfficeNumber, Email) VALUES
  (1, 'Acme Ltd', '111', 'info@acme.example'), (2, 'Beta Ltd', '222', '');
  INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, FirstName, LastName, DefaultContact)
  VALUES (10, 2, 'Bob Beta', 'Bob', 'Beta', 1);"

# The cards go into the folder itself, beside khard's; nothing else is added there.
sync >/dev/null; same "first run exit" $? 0
same "cards among khard's" "$(ls "$book" | grep -c '\.vcf$')" 3
same "nothing but cards in the book" "$(ls -A "$book" | grep -vc '\.vcf$')" 0
state=$(ls -d "$XDG_STATE_HOME"/dossync/vdir/book-* 2>/dev/null)
[[ -n "$state" && -s "$state/store-id" ]] && ok || bad "no store-id under $XDG_STATE_HOME/dossync/vdir"
kh list >"$work/khard-list" 2>&1
has "khard lists the company" "$(cat "$work/khard-list")" "Acme Ltd"

# khard edits the company card: it drops X-ABShowAs and our parameters.
acme=$(grep -l '^ORG:Acme Ltd' "$book"/*.vcf)
id=$(sqlite3 "$s" "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = 1;")
kh show --format yaml uid:"$(basename "$acme" .vcf)" >"$work/acme.yaml"
sed -i "s/: '\\?111'\\?\$/: 555 0199/" "$work/acme.yaml"
echo y | kh modify -i "$work/acme.yaml" uid:"$(basename "$acme" .vcf)" >/dev/null
grep -q '555 0199' "$acme" && ok || bad "khard did not edit the card: $(cat "$acme")"
grep -qi 'X-ABShowAs\|X-DOSSYNC-DERIVED' "$acme" && bad "khard kept the company marks" || ok
json=$("$bin" contacts show "$id" "${ol[@]}" --json)
has "still a company: no FullName" "$json" '"FullName": ""'
has "khard's edit read" "$json" '"BusinessTelephoneNumber": "555 0199"'

# From Outlook: the company takes the new number; nobody named after the company appears.
sync --direction 3 --pair-created >/dev/null; same "run from Outlook exit" $? 0
same "company number from khard" "$(q "SELECT OfficeNumber FROM Companies WHERE CompanyID = 1;")" "555 0199"
same "no contact named after the company" "$(q "SELECT count(*) FROM Contacts WHERE CompanyNum = 1 OR DisplayName = 'Acme Ltd';")" 0

# Back to Outlook: the company card updated in place, and marked again.
sync >/dev/null; same "second run exit" $? 0
same "no second company card" "$(grep -l '^ORG:Acme Ltd' "$book"/*.vcf | wc -l)" 1
grep -q 'X-ABShowAs:COMPANY' "$acme" && ok || bad "company mark not restored: $(cat "$acme")"

finish khard_vdir_test
