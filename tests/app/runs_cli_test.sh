#!/usr/bin/env bash
# Runs that must not harm (databases on SQLite or PostgreSQL: host_lib.sh): two runs of one
# scheme at once (the second waits, or gives up with exit 75 naming the first); paths naming the
# wrong thing refused before anything is written; messages that name the option to correct.
source "$(dirname "$0")/check_lib.sh"
source "$(dirname "$0")/host_lib.sh"

h=$(host_make host) s=$(host_make syncdb)
[[ $host_kind == sqlite ]] || "$bin" init-host "$h" >/dev/null || bad "init-host"
"$bin" demo-data "$h" --companies 200 --seed 3 >/dev/null || bad "demo-data"
companies=$(host_query "$h" 'SELECT count(*) FROM "Companies";')
tables() { host_query "$1" "SELECT count(*) FROM information_schema.tables WHERE table_schema = current_schema();" 2>/dev/null ||
  true; }
[[ $host_kind == sqlite ]] && tables() { sqlite3 "$1" "SELECT count(*) FROM sqlite_master;"; }
run() { local name=$1 want=$2; shift 2; check "$name" "$want" "$bin" "$@"; }  # NAME WANT ARGS
S=(--host-db "$h" --sync-db "$s" --no-progress)
sync() { "$bin" sync "${S[@]}" "$@"; }
cards() { ls "$work/$1/default/contacts" 2>/dev/null | grep -c '\.vcf$'; }
sq() { host_query "$s" "$1"; }

# ---- The first run stopped (SIGSTOP) once it holds scheme 5: another with --wait 0 gives up
# naming it; one with a wait says whom it waits for, then updates what the first made.
holds() {  # holds PID: the run PID holds scheme 5
  if [[ $host_kind == sqlite ]]; then
    grep -qs "^process $1 " "$s.scheme-5.lock"
  else
    [[ $(host_query "$s" "SELECT count(*) FROM pg_locks l JOIN pg_stat_activity a ON a.pid = l.pid WHERE l.locktype = 'advisory' AND l.objsubid = 2 AND l.objid = 5 AND l.granted AND a.application_name LIKE 'dossync process $1 %';") == 1 ]]
  fi
}
"$bin" sync "${S[@]}" --scheme 5 --outlook "vdir:$work/out" >"$work/a.txt" 2>&1 &
first=$!
wait_for 60 "holds $first" || bad "the first run never held scheme 5: $(cat "$work/a.txt")"
kill -STOP $first
run "busy: gives up" 75 sync "${S[@]}" --scheme 5 --outlook "vdir:$work/out" --wait 0
for said in "(process $first on " ", started $(date -u +%Y-)" "--wait SECONDS"; do
  has "busy: names the holder, its start, what to do" "$(err)" "$said"
done
"$bin" sync "${S[@]}" --scheme 5 --outlook "vdir:$work/out" --wait 120 >"$work/b.txt" 2>&1 &
second=$!
wait_for 60 'grep -qs "waiting up to 120 seconds" "$work/b.txt"'
has "second waits for the first" "$(cat "$work/b.txt")" "is in use by another run (process $first on "
kill -CONT $first
wait $first; same "first run" $? 0
wait $second; same "second run" $? 0
has "second updated in place" "$(cat "$work/b.txt")" "create-item 0, update-item 0, pair-only 0, nothing $companies,"
same "one card a company" "$(cards out)" "$companies"
same "one pairing a company" "$(sq 'SELECT count(*) || '"'|'"' || count(DISTINCT "CompanyNum") || '"'|'"' || count(DISTINCT "OutlookID") FROM "OutlookSync" WHERE "SchemeNum" = 5 AND "ContactNum" IS NULL;')" \
  "$companies|$companies|$companies"
if [[ $host_kind == sqlite ]]; then
  same "lock file let go" "$(cat "$s.scheme-5.lock")" ""
fi

# ---- Paths that name the wrong thing: refused, nothing changed.
echo "my notes" >"$work/notes.txt"
for cmd in sync check; do
  run "$cmd: text file as --sync-db" 64 $cmd --host-db "$h" --sync-db "$work/notes.txt"
  has "$cmd: text file: what to do" "$(err)" "--replace-sync-db"
done
run "wizard: text file as --sync-db" 64 wizard --host-db "$h" --sync-db "$work/notes.txt" --screenshots "$work/shots"
same "text file kept" "$(cat "$work/notes.txt")" "my notes"
run "replace allowed" 0 check --host-db "$h" --sync-db "$work/notes.txt" --replace-sync-db
same "replaced by a database" "$(sqlite3 "$work/notes.txt" "SELECT count(*) FROM sqlite_master WHERE name LIKE 'Outlook%';")" 2

before_h=$(tables "$h") before_s=$(tables "$s")
run "swapped: sync" 64 sync --host-db "$s" --sync-db "$h" --outlook "vdir:$work/out"
has "swapped: says so" "$(err)" "swapped?"
run "swapped: check" 64 check --host-db "$s" --sync-db "$h"
run "swapped: wizard" 64 wizard --host-db "$s" --sync-db "$h" --screenshots "$work/shots"
if [[ $host_kind == sqlite ]]; then  # one server database may hold both on purpose
  run "host as both" 64 check --host-db "$h" --sync-db "$h"
  has "host as both: which" "$(err)" "--sync-db"
fi
same "databases unchanged" "$(tables "$h")|$(tables "$s")" "$before_h|$before_s"
[[ -e "$work/shots" ]] && bad "wizard made its folder" || ok

# ---- The store: commands that read make nothing; a sync makes the store's folder only
# inside a folder that exists, and says so; ~ is the home folder.
run "list: no such store" 1 contacts list --outlook "vdir:$work/nobook"
has "list: which option" "$(err)" "check --outlook"
run "report: no such store" 0 report list --outlook "vdir:$work/nobook"
mkdir "$work/empty"
run "list: empty folder" 0 contacts list --outlook "vdir:$work/empty" --json
same "list: empty folder lists nothing" "$(out)" "[]"
run "show: empty folder" 1 contacts show 0123 --outlook "vdir:$work/empty"
run "list: default store" 0 contacts list
same "nothing made by reading" "$(ls -A "$work/empty")|$(ls -A "$XDG_DATA_HOME" 2>/dev/null)|$(ls -d "$work/nobook" 2>/dev/null)" "||"
run "sync: parent missing" 64 sync "${S[@]}" --scheme 7 --select 1 --outlook "vdir:$work/no/book"
[[ -e "$work/no" ]] && bad "parent made" || ok
run "sync: new folder" 0 sync "${S[@]}" --scheme 7 --select 1 --outlook "vdir:~/book"
has "sync: new folder said" "$(err)" "made the folder $HOME/book"
same "sync: ~ is home" "$(ls "$HOME/book/default/contacts" | grep -c '\.vcf$')" 1

# ---- Messages that say what to do.
run "select: unknown numbers named" 0 sync "${S[@]}" --scheme 7 --select "1,999999,888888" --outlook "vdir:$work/out7"
has "select: warning" "$(err)" "--select names no company 999999, 888888"
if [[ $host_kind == sqlite ]]; then
  run "sync db cannot be made" 2 check --host-db "$h" --sync-db "$work/no/such/s.db"
  has "init failure: which option" "$(err)" "check --sync-db: $work/no/such/s.db"
fi
run "missing host" 2 sync --host-db "$work/none.db" --sync-db "$work/s9.db" --outlook "vdir:$work/out"
has "missing host: which option" "$(err)" "check --host-db"

finish "runs cli"
