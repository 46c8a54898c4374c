#!/usr/bin/env bash
# A two-way run against Radicale whose card another client changes between the run's read and
# its write (radicale_server.py --race; the run's PUT then meets a 412): the server's card is
# merged again, never overwritten; a field both changed keeps the host's value under --conflict
# host and the server's under --conflict outlook; the next run carries both changes to the host.
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

# For each rule, the host changes the office numbers of companies a and b; just before the run
# writes their cards, the other client changes the city of a and the number of b.
for rule in host outlook; do
  [[ $rule == host ]] && a=1 b=2 || a=3 b=4
  hq "UPDATE Companies SET OfficeNumber = '613-555-010$a' WHERE CompanyID = $a;
      UPDATE Companies SET OfficeNumber = '613-555-020$b' WHERE CompanyID = $b;"
  printf '%s\t%s\t%s\n' "$(card_of $a)" "$city" "\\g<1>Server Town $a" \
    "$(card_of $b)" "$tel" "\\g<1>613-999-030$b" >"$work/race"
  : >"$work/proxy.log"
  sync2 --conflict $rule; same "$rule: the run" $? 0
  has "$rule: the server answered 412" "$(cat "$work/proxy.log")" " 412"
  same "$rule: both races happened" "$(grep -c '^RACE .* 20[14]$' "$work/proxy.log")" 2
  card=$(server_card $a)
  has "$rule: the run's change on the other client's card" "$card" "613-555-010$a"
  has "$rule: the other client's change kept" "$card" "Server Town $a"
  [[ $rule == host ]] && want=613-555-020$b || want=613-999-030$b
  has "$rule: a field both changed keeps the rule's value" "$(server_card $b)" "$want"
  sync2 --conflict $rule; same "$rule: the next run" $? 0
  same "$rule: the other client's city and the rule's value reach the host" \
    "$(hq "SELECT City FROM Companies WHERE CompanyID = $a;")|$(hq "SELECT OfficeNumber FROM Companies WHERE CompanyID = $b;")" \
    "Server Town $a|$want"
done
same "still a card per company" "$(ls "$cards" | grep -c '\.vcf$')" 4

finish "two-way race"
