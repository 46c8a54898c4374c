#!/usr/bin/env bash
# Secrets: each source of the CardDAV password, never shown (ps, errors), files its owner's only
# under umask 022, and a hostile server that cannot get requests sent to another origin or path.
source "$(dirname "$0")/check_lib.sh"
export DOSSYNC_TEST_STORE=carddav
unset DOSSYNC_PASSWORD
umask 022
source "$(dirname "$0")/store_lib.sh"
hostile_pid=""
on_exit 'stop "$hostile_pid"'
py=/usr/bin/python3
url="carddav:$store_url/book/"
h="$work/h.db" s="$work/s.db"
"$bin" init-host "$h" >/dev/null && "$bin" demo-data "$h" --companies 120 --seed 4 >/dev/null
printf 'secret\nsecond line\n' >"$work/pw"
list() { "$bin" contacts list --outlook "$url" --profile alice "$@" >"$work/out" 2>"$work/err"; }
book_at() { echo "carddav:http://${1:-}127.0.0.1:$(cat "$work/radicale/port")/alice/book/"; }  # [USER:PASSWORD@]

list --password-file "$work/pw"; same "password file" $? 0
list --password-command "cat '$work/pw'"; same "password command" $? 0
DOSSYNC_PASSWORD=secret list; same "DOSSYNC_PASSWORD" $? 0
printf 'machine 127.0.0.1 login alice password secret\n' >"$HOME/.netrc"
list </dev/null; same "~/.netrc" $? 0
"$bin" contacts list --outlook "$(book_at)" </dev/null >/dev/null 2>"$work/err"
same "~/.netrc gives the user too" $? 0
rm "$HOME/.netrc"
"$bin" contacts list --outlook "$(book_at alice:secret@)" >/dev/null 2>"$work/err"
same "user and password in the URL" $? 0

# Failures say what is wrong and never show the password.
list </dev/null; same "no password: refused" $? 1
has "no password: says where to give one" "$(cat "$work/err")" "--password-file"
list --password-command "echo hunter2; exit 3"; [[ $? -ne 0 ]] && ok || bad "a failing command is an error"
has "failing command named" "$(cat "$work/err")" "exit status 3"
list --password-file "$work/none"; [[ $? -ne 0 ]] && ok || bad "a missing password file is an error"
has "missing file named" "$(cat "$work/err")" "$work/none"
"$bin" contacts list --outlook "$(book_at alice:hunter2@)" >"$work/out" 2>>"$work/err"
same "wrong password in the URL: refused" $? 1
list --password hunter2 --password-file "$work/pw"; same "two sources are a usage error" $? 64
[[ "$(cat "$work/err" "$work/out")" != *hunter2* ]] && ok || bad "an error showed the password"

# A terminal is asked, without echo, when nothing else gives the password.
"$py" - "$bin" "$url" >"$work/tty" 2>&1 <<'PY'
import os, pty, sys, time
pid, fd = pty.fork()
if pid == 0:
    os.execv(sys.argv[1], [sys.argv[1], "contacts", "list", "--outlook", sys.argv[2], "--profile", "alice"])
seen, sent, end = b"", False, time.time() + 30
while time.time() < end:
    try:
        chunk = os.read(fd, 1024)
    except OSError:
        break
    if not chunk:
        break
    seen += chunk
    if not sent and b"Password for alice" in seen:
        os.write(fd, b"secret\n")
        sent = True
_, status = os.waitpid(pid, 0)
print("exit", os.waitstatus_to_exitcode(status), "asked", sent, "echoed", b"secret" in seen)
PY
same "a prompt on a terminal" "$(cat "$work/tty")" "exit 0 asked True echoed False"

# ps shows no password while a run works, even one given as --password.
rm -rf "$s" "${copies}_book"  # the run downloads the book again, after it has parsed
"$bin" sync --host-db "$h" --sync-db "$s" --outlook "$url" --profile alice --password secret --no-progress \
  --select all >/dev/null 2>&1 &
run=$! args=""
wait_for 60 '(( $(ls "$cards" 2>/dev/null | grep -c "\.vcf$") >= 10 ))' && args=$(ps -o args= -p $run)
wait $run; same "run with --password" $? 0
[[ -n "$args" && "$args" != *" secret"* ]] && ok || bad "ps during a run with --password: '$args'"

# The synchronisation database, the CardDAV copy and its state, the reports.
shared=$(find "$s"* "$XDG_DATA_HOME" "$XDG_STATE_HOME" -type f -perm /077 2>/dev/null)
same "files readable by others" "$shared" ""
(( $(find "$XDG_DATA_HOME" -type f -name '*.vcf' | wc -l) >= 120 )) && ok || bad "the copy was made"

# A hostile server lists members on another origin and outside the book: warned, never asked.
mkdir -p "$work/hostile"
"$py" "$(dirname "$0")/../support/radicale_server.py" --hostile "$work/hostile" >/dev/null 2>&1 &
hostile_pid=$!
wait_for 10 '[[ -s $work/hostile/port ]]'
bad_url="carddav:http://127.0.0.1:$(cat "$work/hostile/port")/book/"
"$bin" contacts list --outlook "$bad_url" --profile alice --password-file "$work/pw" >"$work/out" 2>"$work/err"
same "hostile: list exit" $? 0
same "hostile: only its own card" "$(cut -f2 "$work/out")" "Card, Own"
for href in "/steal/a.vcf" "/elsewhere/b.vcf" "/book/%2e%2e/elsewhere/c.vcf"; do
  has "hostile: warns of $href" "$(cat "$work/err")" "$href, which is outside the address book; skipped"
done
id=$(cut -f1 "$work/out")
echo "{\"EntryID\": \"$id\", \"JobTitle\": \"Changed\"}" >"$work/own.json"
"$bin" contacts put --outlook "$bad_url" --profile alice --password-file "$work/pw" --json "$work/own.json" >/dev/null 2>&1
"$bin" contacts delete "$id" --outlook "$bad_url" --profile alice --password-file "$work/pw" >/dev/null 2>&1
same "hostile: the own card written and deleted" "$(grep '^\(PUT\|DELETE\) /book/own.vcf' "$work/hostile/book.log" | sort -u | wc -l)" 2
same "hostile: nothing asked outside the book or of the other origin" "$(grep -v ' /book/' "$work/hostile/book.log")" ""

finish "secrets cli"
