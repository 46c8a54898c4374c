# Sourced first by the command line tests, dossync's path as $1: $bin, a work folder $work removed
# on exit (after the on_exit hooks), pass and fail counting and the closing line.
set -uo pipefail
bin=${bin:-${1:?usage: $0 PATH-OF-DOSSYNC}}
work=${work:-$(mktemp -d)}
exit_hooks=()
on_exit() { exit_hooks+=("$1"); }
run_exit_hooks() {
  local hook
  for hook in "${exit_hooks[@]}"; do eval "$hook"; done
  rm -rf "$work"
}
[[ -n "$(trap -p EXIT)" ]] || trap run_exit_hooks EXIT
stop() { [[ -z "${1:-}" ]] || { kill "$1" 2>/dev/null; wait "$1" 2>/dev/null; }; return 0; }  # PID
# A home and XDG folders of the test's own: dossync never reads or writes the real ones.
export HOME="$work/home" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" \
  XDG_STATE_HOME="$work/state"
mkdir -p "$HOME"
passed=0 failed=0
ok() { passed=$((passed + 1)); }
bad() { failed=$((failed + 1)); echo "FAIL $*"; }
same() { [[ "$2" == "$3" ]] && ok || bad "$1: got '$2', wanted '$3'"; }
has() { [[ "$2" == *"$3"* ]] && ok || bad "$1: '$3' not in: $2"; }
# check NAME EXPECTED_EXIT COMMAND...: runs it, its output in $work/stdout and $work/stderr (out, err).
check() {
  local name=$1 want=$2
  shift 2
  "$@" >"$work/stdout" 2>"$work/stderr"
  local rc=$?
  [[ $rc -eq $want ]] && ok || { bad "$name: exit $rc, wanted $want"; cat "$work/stdout" "$work/stderr"; }
}
# wait_for SECONDS CONDITION: waits until the shell condition holds; answers whether it did.
wait_for() {
  local end=$((SECONDS + $1))
  until eval "$2"; do ((SECONDS < end)) || return 1; sleep 0.01; done
}
# vcard UID FN [LINE...]: a vCard 3.0 as another address book writes it, with those lines.
vcard() {
  printf 'BEGIN:VCARD\r\nVERSION:3.0\r\nUID:%s\r\nFN:%s\r\n' "$1" "$2"
  shift 2
  printf '%s\r\n' "$@" END:VCARD
}
out() { cat "$work/stdout"; }
err() { cat "$work/stderr"; }
finish() {  # finish NAME: prints the closing line and answers whether all passed
  echo "$1: $passed passed, $failed failed"
  [[ $failed -eq 0 ]]
}
# demo_host PATH COMPANIES SEED: a demo host database whose company names are their own
# ("... #ID"), so that a duplicate shows as a name seen twice.
demo_host() {
  "$bin" demo-data "$1" --companies "$2" --seed "$3" >/dev/null
  sqlite3 "$1" "UPDATE Companies SET CompanyName = CompanyName || ' #' || CompanyID;"
}
# kill_when CONDITION ARGS...: runs dossync ARGS in the background and kills it (SIGKILL) once
# the shell condition holds; answers whether it was killed before it ended on its own.
kill_when() {
  local condition=$1
  shift
  "$bin" "$@" >/dev/null 2>&1 &
  local pid=$!
  while kill -0 $pid 2>/dev/null && ! eval "$condition"; do sleep 0.01; done
  kill -9 $pid 2>/dev/null
  wait $pid 2>/dev/null
  [[ $? -eq 137 ]]
}
sound() {  # sound DATABASE...: SQLite's integrity check passes on each
  local db
  for db; do same "integrity of $(basename "$db")" "$(sqlite3 "$db" "PRAGMA integrity_check;")" ok; done
}
