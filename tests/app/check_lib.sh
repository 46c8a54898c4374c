# Shared by the command line test scripts (sourced): pass and fail counting and the closing
# line "NAME: N passed, N failed". The caller sets its own work folder and cleanup.
# dossync keeps the reports of runs under $XDG_STATE_HOME: the test's own, never the real one.
export XDG_STATE_HOME="${work:?set work before sourcing check_lib.sh}/state"
passed=0 failed=0
ok() { passed=$((passed + 1)); }
bad() { failed=$((failed + 1)); echo "FAIL $*"; }
same() { [[ "$2" == "$3" ]] && ok || bad "$1: got '$2', wanted '$3'"; }
has() { [[ "$2" == *"$3"* ]] && ok || bad "$1: '$3' not in: $2"; }
finish() {  # finish NAME: prints the closing line and answers whether all passed
  echo "$1: $passed passed, $failed failed"
  [[ $failed -eq 0 ]]
}
