#!/usr/bin/env bash
# Secrets on the command line: where the CardDAV password comes from (file, command,
# environment, ~/.netrc, the URL, a prompt on a terminal) against a real Radicale, that ps never
# shows it, that what dossync writes is its owner's only under umask 022, and that a hostile
# CardDAV server cannot get the credentials or a card sent to another origin or path.
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

# Each source of the password logs on.
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

# Everything written under umask 022 is its owner's only: the synchronisation database, the
# CardDAV copy and its state, the reports.
shared=$(find "$s"* "$XDG_DATA_HOME" "$XDG_STATE_HOME" -type f -perm /077 2>/dev/null)
same "files readable by others" "$shared" ""
(( $(find "$XDG_DATA_HOME" -type f -name '*.vcf' | wc -l) >= 120 )) && ok || bad "the copy was made"

# A hostile server lists members on another origin (itself, named otherwise) and outside the
# collection: dossync warns, and no request reaches them; its own cards still work.
mkdir -p "$work/hostile"
"$py" - "$work/hostile" <<'PY' >/dev/null 2>&1 &
import http.server, os, sys, threading
folder = sys.argv[1]
card = "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:own\r\nFN:Own Card\r\nN:Card;Own;;;\r\nEND:VCARD\r\n"
ms = lambda inner: ('<?xml version="1.0"?><D:multistatus xmlns:D="DAV:" '
                    'xmlns:C="urn:ietf:params:xml:ns:carddav">%s</D:multistatus>' % inner).encode()
member = lambda href, props: ("<D:response><D:href>%s</D:href><D:propstat><D:prop>%s</D:prop>"
                              "<D:status>HTTP/1.1 200 OK</D:status></D:propstat></D:response>" % (href, props))
class Book(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    def reply(self, code, body=b"", kind="application/xml"):
        self.send_response(code)
        if code == 401:
            self.send_header("WWW-Authenticate", 'Basic realm="book"')
        for name, value in (("Content-Type", kind), ("ETag", '"1"'), ("Content-Length", str(len(body)))):
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)
    def answer(self):
        body = self.rfile.read(int(self.headers.get("Content-Length") or 0)).decode()
        with open(os.path.join(folder, "book.log"), "a") as f:
            f.write(self.command + " " + self.path + "\n")
        if not self.headers.get("Authorization"):
            return self.reply(401)
        if not self.path.startswith("/book/"):
            return self.reply(404)
        hostile = ["http://localhost:%d/steal/a.vcf" % port, "/elsewhere/b.vcf", "/book/%2e%2e/elsewhere/c.vcf"]
        if self.command == "PROPFIND" and self.headers.get("Depth") == "0":
            return self.reply(207, ms(member("/book/", "<D:resourcetype><D:collection/><C:addressbook/></D:resourcetype>")))
        if self.command == "PROPFIND":
            return self.reply(207, ms(member("/book/", "<D:resourcetype><D:collection/></D:resourcetype>") +
                                      "".join(member(h, '<D:getetag>"1"</D:getetag><D:resourcetype/>')
                                              for h in ["/book/own.vcf"] + hostile)))
        if self.command == "REPORT":
            return self.reply(207, ms("".join(member(h, '<D:getetag>"1"</D:getetag><C:address-data>%s</C:address-data>' % card)
                                              for h in hostile + ["/book/own.vcf"] if h in body)))
        if self.command in ("PUT", "DELETE"):
            return self.reply(204)
        return self.reply(200, card.encode(), "text/vcard")
    do_PROPFIND = do_REPORT = do_PUT = do_DELETE = do_GET = answer
    def log_message(self, *a): pass
server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Book)
port = server.server_address[1]
with open(os.path.join(folder, "port.tmp"), "w") as f:
    f.write(str(port))
os.rename(os.path.join(folder, "port.tmp"), os.path.join(folder, "port"))
threading.Timer(600, os._exit, (0,)).start()  # bounded: the script stops it long before
server.serve_forever()
PY
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
