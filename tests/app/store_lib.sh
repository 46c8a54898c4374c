# The store a command line test runs against (after check_lib.sh): the vCard folder, or with
# DOSSYNC_TEST_STORE=carddav an address book on a Radicale server of its own.
#   ol, ol2 (--outlook arguments), cards, cards2 (their cards; for a server, dossync's copies),
#   store_down/store_up, writes (the write requests the server logged; 0 for a folder)
store_kind=${DOSSYNC_TEST_STORE:-vdir}
radicale_pid=""
store_cleanup() { stop "$radicale_pid"; }
on_exit store_cleanup
store_start_server() {
  mkdir -p "$work/radicale"
  rm -f "$work/radicale/port"
  /usr/bin/python3 "$(dirname "${BASH_SOURCE[0]}")/../support/radicale_server.py" "$work/radicale" \
    alice:secret --book alice/book --book alice/book2 ${1:+--port "$1"} >/dev/null 2>&1 &
  radicale_pid=$!
  wait_for 15 '[[ -s $work/radicale/port ]]' || { echo "FAIL Radicale did not start"; cat "$work/radicale/radicale.log"; exit 1; }
}
if [[ "$store_kind" == carddav ]]; then
  store_start_server
  store_url="http://127.0.0.1:$(cat "$work/radicale/port")/alice"
  ol=(--outlook "carddav:$store_url/book/" --profile alice --password secret)
  ol2=(--outlook "carddav:$store_url/book2/" --profile alice --password secret)
  copies="$XDG_DATA_HOME/dossync/carddav/127.0.0.1_$(cat "$work/radicale/port")_alice"
  cards="${copies}_book/alice/contacts"
  cards2="${copies}_book2/alice/contacts"
  store_down() { store_cleanup; radicale_pid=""; }
  store_up() { store_start_server "$(cat "$work/radicale/port")"; }
else
  ol=(--outlook "vdir:$work/ol")
  ol2=(--outlook "vdir:$work/ol2")
  cards="$work/ol/default/contacts"
  cards2="$work/ol2/default/contacts"
  store_down() { mv "$cards" "$cards.away" && touch "$cards"; }
  store_up() { rm "$cards" && mv "$cards.away" "$cards"; }
fi
writes() { grep -Ec '\] (PUT|DELETE|MKCOL|PROPPATCH|MOVE|COPY) request' "$work/radicale/radicale.log" 2>/dev/null || echo 0; }
# preview_then_run NAME WANT COMMAND...: COMMAND --preview --json changes nothing (the test's
# world) and writes nothing to the server; then COMMAND --json reports what it showed (the test's
# plan_of). Both in $work/out/NAME{-preview,}.json; $run_writes, the run's writes.
preview_then_run() {
  local name=$1 want=$2 before w
  shift 2
  mkdir -p "$work/out"
  before=$(world) w=$(writes)
  "$@" --preview --json >"$work/out/$name-preview.json"; same "$name: preview exit" $? "$want"
  same "$name: the preview changes nothing (files|writes)" "$(world)|$(writes)" "$before|$w"
  "$@" --json >"$work/out/$name.json" 2>"$work/stderr"; same "$name: exit" $? "$want"
  run_writes=$(($(writes) - w))
  same "$name: the report is the preview" "$(plan_of "$work/out/$name.json")" \
    "$(plan_of "$work/out/$name-preview.json")"
}
