#!/usr/bin/env bash
# Two runs at once on one host database (SQLite, or PostgreSQL: host_lib.sh), in both directions
# and of different schemes, with synchronisation databases of their own or shared: every run
# succeeds and nothing of either is lost.
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/host_lib.sh"

h=$(host_make host) out="vdir:$work/out" in="vdir:$work/in"
[[ $host_kind == sqlite ]] || "$bin" init-host "$h" >/dev/null || bad "init-host"
"$bin" demo-data "$h" --companies 300 --seed 7 >/dev/null || bad "demo-data"
hq() { host_query "$h" "$1"; }
companies=$(hq 'SELECT count(*) FROM "Companies";') contacts=$(hq 'SELECT count(*) FROM "Contacts";')

n=150
make_cards() {  # DIR FIRST: in store DIR, n people "FIRST PersonK" at "FIRST Co K"
  echo "{\"FullName\": \"$2 Person1\", \"FirstName\": \"$2\", \"LastName\": \"Person1\", \"CompanyName\": \"$2 Co 1\"}" |
    "$bin" contacts put --outlook "vdir:$work/$1" --json - >/dev/null || bad "contacts put"
  for i in $(seq 2 $n); do
    vcard "$2$i" "$2 Person$i" "N:Person$i;$2;;;" "ORG:$2 Co $i" >"$work/$1/default/contacts/$2$i.vcf"
  done
}
make_cards in Card
make_cards in2 Other

sync() { "$bin" sync --host-db "$h" --no-progress "$@"; }
# both NAME ARGS1 -- ARGS2: the two runs started together; both end well, without errors.
both() {
  local name=$1 a=() b=()
  shift
  while [[ $1 != -- ]]; do a+=("$1"); shift; done
  shift
  b=("$@")
  sync "${a[@]}" >"$work/a.txt" 2>&1 &
  local pa=$!
  sync "${b[@]}" >"$work/b.txt" 2>&1 &
  local pb=$!
  wait $pa; same "$name: first exit" $? 0
  wait $pb; same "$name: second exit" $? 0
  for f in a b; do
    [[ "$(grep -v '^dossync: made the folder ' "$work/$f.txt")" == "records "*", errors 0, "* ]] && ok ||
      bad "$name: $f: $(head -c 600 "$work/$f.txt")"
  done
}
cards() { ls "$work/${1:-out}/default/contacts" | grep -c '\.vcf$'; }
q() { sqlite3 "$work/$1" "$2"; }
walked() { sed -n 's/^records \([0-9]*\),.*/\1/p' "$work/$1.txt"; }
# A host-to-Outlook run sends every company there when it began; one the other run adds meanwhile
# may be walked too, then paired without a card (not selected).
top=0
before() { top=$(hq 'SELECT max("CompanyID") FROM "Companies";') before=$(hq 'SELECT count(*) FROM "Companies";'); }
sent_out() {  # NAME DB SCHEME WALKED (before() called before the runs began)
  same "$1: companies walked, paired once each" "$(q "$2" "SELECT count(*) || '|' || count(DISTINCT CompanyNum) FROM OutlookSync WHERE SchemeNum = $3 AND CompanyNum > 0 AND ContactNum IS NULL;")" "$4|$4"
  same "$1: companies there before, sent" "$(q "$2" "SELECT count(*) FROM OutlookSync WHERE SchemeNum = $3 AND CompanyNum BETWEEN 1 AND $top AND ContactNum IS NULL AND OutlookID <> '';")" "$before"
  same "$1: cards, each paired once" "$(q "$2" "SELECT count(*) || '|' || count(DISTINCT OutlookID) FROM OutlookSync WHERE SchemeNum = $3 AND CompanyNum > 0 AND ContactNum IS NULL AND OutlookID <> '';")" "$(cards)|$(cards)"
}
# Every card of the Outlook-to-host run is a contact of the host, at its company, paired once (a
# run with no pairings yet finds the contacts an earlier one made by their company's name).
brought_in() {  # NAME DB SCHEME
  same "$1: cards brought in" "$(hq "SELECT count(*) FROM \"Contacts\" c JOIN \"Companies\" k ON k.\"CompanyID\" = c.\"CompanyNum\"
    WHERE c.\"FirstName\" = 'Card' AND k.\"CompanyName\" = 'Card Co ' || substr(c.\"LastName\", 7);")" "$n"
  same "$1: cards paired once each" "$(q "$2" "SELECT count(*) || '|' || count(DISTINCT OutlookID) || '|' || count(DISTINCT ContactNum) FROM OutlookSync WHERE SchemeNum = $3 AND ContactNum > 0;")" "$n|$n|$n"
}

# Each run with its own synchronisation database, both made in the same folder at once.
before
both "own databases" --direction 2 --outlook "$out" --sync-db "$work/s2.db" --select all -- \
  --direction 3 --outlook "$in" --sync-db "$work/s3.db" --select all
sent_out "own databases" s2.db -1 "$(walked a)"
brought_in "own databases" s3.db -1
same "companies and contacts" "$(hq 'SELECT count(*) FROM "Companies";')|$(hq 'SELECT count(*) FROM "Contacts";')" \
  "$((companies + n))|$((contacts + n))"
[[ -e "$work/Temp.mdb" ]] && bad "Temp.mdb left behind" || ok

# One synchronisation database neither finds, made once for both; then again on what they paired.
rm -rf "$work/out"
for round in "one database" again; do
  before
  both "$round" --direction 2 --outlook "$out" --sync-db "$work/s.db" --select all --scheme 1 -- \
    --direction 3 --outlook "$in" --sync-db "$work/s.db" --select all --scheme 2
  sent_out "$round" s.db 1 "$(walked a)"
  brought_in "$round" s.db 2
done
same "again: contacts" "$(hq 'SELECT count(*) FROM "Contacts";')" $((contacts + n))

# Two people, each with a scheme and a selection of their own, and their own Outlook.
both "two schemes" --direction 2 --outlook "vdir:$work/out1" --sync-db "$work/s.db" --scheme 7 --select "$(seq -s, 1 2 300)" -- \
  --direction 2 --outlook "vdir:$work/out2" --sync-db "$work/s.db" --scheme 8 --select "$(seq -s, 2 2 300)"
same "two schemes: cards" "$(cards out1)|$(cards out2)" "150|150"
same "two schemes: pairings" "$(q s.db "SELECT count(*) || '|' || count(DISTINCT OutlookID) || '|' || sum(SchemeNum = 7) || '|' || sum(CompanyNum % 2 = SchemeNum % 2) FROM OutlookSync WHERE SchemeNum IN (7, 8) AND OutlookID <> '';")" "300|300|150|300"

# Two people bringing cards in at once, each adding companies and contacts.
both "two bringing in" --direction 3 --outlook "$in" --sync-db "$work/s.db" --select all --scheme 3 -- \
  --direction 3 --outlook "vdir:$work/in2" --sync-db "$work/s.db" --select all --scheme 4
same "two bringing in: contacts" "$(hq 'SELECT count(*) FROM "Contacts";')" $((contacts + 2 * n))
same "two bringing in: others at their companies" "$(hq "SELECT count(*) FROM \"Contacts\" c JOIN \"Companies\" k ON k.\"CompanyID\" = c.\"CompanyNum\"
  WHERE c.\"FirstName\" = 'Other' AND k.\"CompanyName\" = 'Other Co ' || substr(c.\"LastName\", 7);")" "$n"

# The same changed cards brought in at once under two schemes: the host holds the change.
sed -i 's/^\(FN:Card Person\([0-9]*\)\)\(\r\?\)$/\1\3\nTITLE:Boss \2\3/' "$work"/in/default/contacts/*.vcf
both "same changes" --direction 3 --outlook "$in" --sync-db "$work/s.db" --select all --scheme 2 -- \
  --direction 3 --outlook "$in" --sync-db "$work/s.db" --select all --scheme 3
same "same changes: contacts" "$(hq 'SELECT count(*) FROM "Contacts";')" $((contacts + 2 * n))
same "same changes: titles" "$(hq "SELECT count(*) FROM \"Contacts\" WHERE \"FirstName\" = 'Card' AND \"BusinessJobTitle\" = 'Boss ' || substr(\"LastName\", 7);")" "$n"

finish "concurrent cli"
