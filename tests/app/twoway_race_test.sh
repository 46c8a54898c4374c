#!/usr/bin/env bash
# A two-way run against a CardDAV server (Radicale) whose cards another client changes between
# the run's read and its write (tests/support/dav_race_proxy.py makes that change just before
# the run's PUT reaches the server, which then answers 412): the server's card is merged again,
# never overwritten. What the other client changed alone stays and reaches the host on the next
# run; a field both changed keeps the host's value under --conflict host and the server's under
# --conflict outlook, which the next run then carries to the host.
export DOSSYNC_TEST_STORE=carddav
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/store_lib.sh"
/usr/bin/python3 "$(dirname "$0")/../support/dav_race_proxy.py" "$work" \
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

# Each rule in turn: the host changes the office numbers of two companies; just before the run
# writes their cards, the other client changes the city of the first and the number of the
# second.
round=0
for rule in host outlook; do
  round=$((round + 1))
  a=$((2 * round - 1)) b=$((2 * round))
  hq "UPDATE Companies SET OfficeNumber = '613-555-010$round' WHERE CompanyID = $a;
      UPDATE Companies SET OfficeNumber = '613-555-020$round' WHERE CompanyID = $b;"
  printf '%s\t%s\t%s\n' "$(card_of $a)" "$city" "\\g<1>Server Town $round" \
    "$(card_of $b)" "$tel" "\\g<1>613-999-030$round" >"$work/race"
  : >"$work/proxy.log"
  sync2 --conflict "$rule"; same "$rule: the run" $? 0
  has "$rule: the server answered 412" "$(cat "$work/proxy.log")" " 412"
  same "$rule: both races happened" "$(grep -c '^RACE .* 20[14]$' "$work/proxy.log")" 2
  card=$(server_card $a)
  has "$rule: the run's change on the other client's card" "$card" "613-555-010$round"
  has "$rule: the other client's change kept" "$card" "Server Town $round"
  card=$(server_card $b)
  if [[ $rule == host ]]; then
    has "host: a field both changed takes the host's value" "$card" "613-555-020$round"
  else
    has "outlook: a field both changed keeps the server's value" "$card" "613-999-030$round"
  fi

  sync2 --conflict "$rule"; same "$rule: the next run" $? 0
  same "$rule: the other client's city reaches the host" \
    "$(hq "SELECT City FROM Companies WHERE CompanyID = $a;")" "Server Town $round"
  want=613-555-020$round
  [[ $rule == outlook ]] && want=613-999-030$round
  same "$rule: the field both changed, in the host" \
    "$(hq "SELECT OfficeNumber FROM Companies WHERE CompanyID = $b;")" "$want"
  has "$rule: and on the server" "$(server_card $b)" "$want"
done
same "still a card per company" "$(ls "$cards" | grep -c '\.vcf$')" 4

finish "two-way race"
