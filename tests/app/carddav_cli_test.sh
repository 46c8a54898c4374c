#!/usr/bin/env bash
# What only an address book on a CardDAV server (Radicale, store_lib.sh) has: the logon, the copy
# kept between runs, a server lost mid-run, another client (vdirsyncer) reading and writing it.
export DOSSYNC_TEST_STORE=carddav
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/store_lib.sh"
port=$(cat "$work/radicale/port")

h="$work/h.db" s="$work/s.db"
"$bin" init-host "$h" >/dev/null && "$bin" demo-data "$h" --companies 12 --seed 3 >/dev/null
sync() { "$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress "$@"; }
# The book's sync token (it changes with every write) and how many cards it holds.
propfind() {
  curl -s -u alice:secret -X PROPFIND -H "Depth: $2" --data \
    "<propfind xmlns=\"DAV:\"><prop><$3/></prop></propfind>" "$store_url/$1/"
}
token() { propfind "$1" 0 sync-token | sed -n 's/.*<sync-token>\([^<]*\)<.*/\1/p'; }
on_server() { propfind "$1" 1 getetag | grep -o '\.vcf</' | wc -l; }

# A refused logon is one error before anything is opened (its message: DavClientTest).
"$bin" sync --host-db "$h" --sync-db "$s" --outlook "carddav:$store_url/book/" --profile alice \
  --password wrong --no-progress --select all >"$work/out" 2>"$work/err"
same "wrong password exit" $? 1
same "nothing paired" "$([[ -f "$s" ]] && sqlite3 "$s" 'SELECT count(*) FROM OutlookSync;' 2>/dev/null || echo 0)" 0
"$bin" contacts list --outlook "carddav:http://127.0.0.1:1/alice/book/" --profile alice \
  --password secret >/dev/null 2>"$work/err"
same "an unreachable server: try again later (EX_TEMPFAIL)" $? 75
has "and says to try again later" "$(cat "$work/err")" "try again later"

# The practice goes up; a second run with nothing changed writes nothing.
out=$(sync --select all); same "sync exit" $? 0
has "every company made" "$out" "create-item 12,"
before=$(token book)
out=$(sync --select all)
has "again: nothing to change" "$out" "create-item 0, update-item 0, pair-only 0, nothing 12,"
same "a quiet run writes nothing" "$(token book)" "$before"

mkdir -p "$work/vs/status" "$work/vs/down" "$work/vs/up"
vs_pair() {  # NAME BOOK: a folder $work/vs/NAME paired with the book
  printf '[pair %s]\na = "%s_local"\nb = "%s_remote"\ncollections = null\n' "$1" "$1" "$1"
  printf '[storage %s_local]\ntype = "filesystem"\npath = "%s/"\nfileext = ".vcf"\n' "$1" "$work/vs/$1"
  printf '[storage %s_remote]\ntype = "carddav"\nurl = "%s/"\nusername = "alice"\npassword = "secret"\n' \
    "$1" "$store_url/$2"
}
{ printf '[general]\nstatus_path = "%s/"\n' "$work/vs/status"; vs_pair down book; vs_pair up book2; } \
  >"$work/vs/config"
vs() { vdirsyncer -c "$work/vs/config" "$@" >>"$work/vs/log" 2>&1; }
vs discover down && vs sync down; same "vdirsyncer download" $? 0
same "vdirsyncer got every card" "$(ls "$work/vs/down" | grep -c '\.vcf$')" 12

for n in 1 2 3; do
  vcard other-$n "Other Person $n" "N:Person;Other $n;;;" "ORG:Other Co $n" "NICKNAME:o$n" >"$work/vs/up/other-$n.vcf"
done
vs discover up && vs sync up; same "vdirsyncer upload" $? 0
out=$("$bin" sync --host-db "$h" --sync-db "$work/s2.db" "${ol2[@]}" --no-progress --direction 3 --select all)
has "their contacts come in" "$out" "create-company 3, update-company 0, nothing 0,"
same "their companies" "$(sqlite3 "$h" "SELECT count(*) FROM Companies WHERE CompanyName LIKE 'Other Co %';")" 3

# The server goes away mid-run: the failed records counted, the others paired; once it is back,
# the next run makes the missing cards and no card twice.
h3="$work/h3.db" s3="$work/s3.db"
"$bin" demo-data "$h3" --companies 150 --seed 5 >/dev/null
sync3() { "$bin" sync --host-db "$h3" --sync-db "$s3" "${ol2[@]}" --no-progress --select all; }
sync3 >"$work/mid.out" 2>"$work/mid.err" &
run=$!
wait_for 6 '(( $(ls $cards2 2>/dev/null | grep -c "\.vcf$") >= 10 ))'
store_down
wait $run; same "mid-run failure: exit" $? 1
has "mid-run failure names the server" "$(cat "$work/mid.err")" "127.0.0.1:$port"
out=$(cat "$work/mid.out")
if [[ "$out" =~ ^records\ ([0-9]+).*records\ failed\ ([1-9][0-9]*) ]]; then
  same "the records that did not fail are paired" "$(sqlite3 "$s3" 'SELECT count(*) FROM OutlookSync;')" \
    $((BASH_REMATCH[1] - BASH_REMATCH[2]))
else
  bad "mid-run failure summary: $out"
fi
store_up
sync3 >/dev/null 2>"$work/mid2.err"
same "after the outage every company has one card" "$(on_server book2)" $((150 + 3))

# The wizard's Outlook tree reads the server.
if "$bin" wizard --screenshots "$work/shots" --host-db "$h" --sync-db "$s" "${ol[@]}" >"$work/shots.out" 2>&1; then
  same "wizard pictures" "$(ls "$work/shots" | grep -c '\.png$')" "$(grep -c '\.png$' "$work/shots.out")"
else
  bad "wizard --screenshots against the server"; cat "$work/shots.out"
fi

finish "carddav cli"
