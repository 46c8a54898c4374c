#!/usr/bin/env bash
# A two-way run against Radicale whose card another client changes between the run's read and
# its write (radicale_server.py --race; the run's PUT then meets a 412): the server's card
# is merged again, never overwritten; under --conflict outlook a field both changed keeps the
# server's value, and the next run carries both changes to the host. (The host rule, at the
# store: CardDavStoreTest.APropertyBothChangedKeepsTheValueTheRuleNames.)
export DOSSYNC_TEST_STORE=carddav
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/store_lib.sh"
/usr/bin/python3 "$(dirname "$0")/../support/radicale_server.py" --race "$work" \
  "$(cat "$work/radicale/port")" alice:secret >"$work/proxy.out" 2>&1 &
proxy=$!
on_exit 'stop "$proxy"'
wait_for 5 '[[ -s $work/proxy-port ]]' || { echo "FAIL the proxy did not start: $(cat "$work/proxy.out")"; exit 1; }
port=$(cat "$work/proxy-port")
cards="$XDG_DATA_HOME/dossync/carddav/127.0.0.1_${port}_alice_book/alice/contacts"

h="$work/h.db" s="$work/s.db"
"$bin" demo-data "$h" --companies 4 --seed 5 >/dev/null
sqlite3 "$h" "UPDATE Companies SET CompanyName = 'Firm ' || CompanyID, City = 'Ottawa';"
hq() { sqlite3 "$h" "$1"; }
sync2() {
  "$bin" sync --two-way --host-db "$h" --sync-db "$s" \
    --outlook "carddav:http://127.0.0.1:$port/alice/book/" --profile alice --password secret \
    --no-progress "$@" >"$work/run.log" 2>&1
}
card_of() { grep -l "^ORG:Firm $1;\?"$'\r'"\?$" "$cards"/*.vcf | head -1 | xargs -r basename; }
# The server's card of company $1, unfolded.
server_card() {
  curl -s -u alice:secret "http://127.0.0.1:$port/alice/book/$(card_of "$1")" | sed -e ':a' -e 'N;$!ba' -e 's/\r\n[ \t]//g'
}
tel='^(TEL;TYPE=WORK,VOICE:)[^\r\n]*'
city='^(ADR[^:\r\n]*WORK[^:\r\n]*:[^;\r\n]*;[^;\r\n]*;[^;\r\n]*;)[^;\r\n]*'

sync2; same "the first run" $? 0
same "a card per company" "$(ls "$cards" | grep -c '\.vcf$')" 4

# The host changes the office numbers of two companies; just before the run writes their cards,
# the other client changes the city of the first and the number of the second.
hq "UPDATE Companies SET OfficeNumber = '613-555-0101' WHERE CompanyID = 1;
    UPDATE Companies SET OfficeNumber = '613-555-0201' WHERE CompanyID = 2;"
printf '%s\t%s\t%s\n' "$(card_of 1)" "$city" "\\g<1>Server Town" \
  "$(card_of 2)" "$tel" "\\g<1>613-999-0301" >"$work/race"
sync2 --conflict outlook; same "the run" $? 0
has "the server answered 412" "$(cat "$work/proxy.log")" " 412"
same "both races happened" "$(grep -c '^RACE .* 20[14]$' "$work/proxy.log")" 2
card=$(server_card 1)
has "the run's change on the other client's card" "$card" "613-555-0101"
has "the other client's change kept" "$card" "Server Town"
has "a field both changed keeps the server's value" "$(server_card 2)" "613-999-0301"

sync2 --conflict outlook; same "the next run" $? 0
same "the other client's city reaches the host" "$(hq "SELECT City FROM Companies WHERE CompanyID = 1;")" \
  "Server Town"
same "the field both changed, in the host" "$(hq "SELECT OfficeNumber FROM Companies WHERE CompanyID = 2;")" \
  613-999-0301
same "still a card per company" "$(ls "$cards" | grep -c '\.vcf$')" 4

finish "two-way race"
