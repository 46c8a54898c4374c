#!/usr/bin/env bash
# End-to-end checks of "dossync mail", "dossync account" and "dossync appointment": mail goes
# to a real SMTP server on 127.0.0.1 (Debian's python3-aiosmtpd, tests/app/smtp_sink.py) and
# what it received is read back with Python's email parser; the appointment is read back with
# python3-icalendar.
set -uo pipefail
bin=$1
here=$(cd "$(dirname "$0")" && pwd)
py=/usr/bin/python3
work=$(mktemp -d)
sink_pid=""
cleanup() {
  [[ -n "$sink_pid" ]] && kill "$sink_pid" 2>/dev/null && wait "$sink_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
source "$(dirname "$0")/check_lib.sh"
# No desktop: --display must not try to open anything.
unset DISPLAY WAYLAND_DISPLAY

mkdir -p "$work/sink"
"$py" "$here/smtp_sink.py" "$work/sink" 2>"$work/sink.log" &
sink_pid=$!
for _ in $(seq 100); do [[ -s "$work/sink/port" ]] && break; sleep 0.1; done
if [[ ! -s "$work/sink/port" ]]; then
  echo "FAIL the SMTP server did not start:"; cat "$work/sink.log"
  echo "mail cli: 0 passed, 1 failed"; exit 1
fi
port=$(cat "$work/sink/port")
received() { ls "$work/sink"/*.eml 2>/dev/null | wc -l; }

o="vdir:$work/ol"
profile_dir="$work/ol/default"
"$bin" account set --outlook "$o" --smtp "smtp://127.0.0.1:$port" --from office@example.org \
  --name "Bürö Office" >/dev/null
same "account set" $? 0
has "account show" "$("$bin" account show --outlook "$o")" "smtp://127.0.0.1:$port"

# One mail with every kind of recipient and two attachments (one renamed, one not).
head -c 3000 /dev/urandom >"$work/report.bin"
printf 'plain text\r\nsecond line\n' >"$work/notes.txt"
"$bin" mail --outlook "$o" --to "Jane Doe <jane@example.org>" --to bob@example.org \
  --cc "carol@example.org" --bcc "hidden@example.org" --subject "Grüße aus Köln — 2024" \
  --body "Hello Jane,
see the files." --attach "$work/report.bin=Rapport annuel é.bin" --attach "$work/notes.txt" \
  --send >"$work/out" 2>"$work/err"
same "send exit" $? 0
same "one message received" "$(received)" 1
same "envelope sender" "$(cat "$work/sink/1.from")" "office@example.org"
same "envelope recipients, Bcc included" "$(sort "$work/sink/1.rcpt" | tr '\n' ' ')" \
  "bob@example.org carol@example.org hidden@example.org jane@example.org "

"$py" - "$work/sink/1.eml" "$work/report.bin" "$work/notes.txt" >"$work/check" 2>&1 <<'PY'
import email, email.policy, sys
raw = open(sys.argv[1], "rb").read()
msg = email.message_from_bytes(raw, policy=email.policy.default)
def say(name, value): print("%s=%r" % (name, value))
head = raw.split(b"\r\n\r\n", 1)[0].decode("ascii")
say("bcc_header", "bcc:" in head.lower())
say("to", sorted(a.addr_spec for a in msg["To"].addresses))
say("to_name", [a.display_name for a in msg["To"].addresses if a.addr_spec == "jane@example.org"][0])
say("cc", [a.addr_spec for a in msg["Cc"].addresses])
say("from", (msg["From"].addresses[0].display_name, msg["From"].addresses[0].addr_spec))
say("subject", str(msg["Subject"]))
say("subject_encoded", "=?utf-8?" in [l for l in head.split("\r\n") if l.lower().startswith("subject:")][0].lower())
say("ascii_only", all(b < 128 for b in raw))
body = msg.get_body(("plain",))
text = body.get_payload(decode=True)
say("body", text)
files = [(p.get_filename(), p.get_payload(decode=True)) for p in msg.iter_attachments()]
say("names", [f[0] for f in files])
say("report_bytes", files[0][1] == open(sys.argv[2], "rb").read())
say("notes_bytes", files[1][1] == open(sys.argv[3], "rb").read())
PY
line() { grep "^$1=" "$work/check" | head -1 | cut -d= -f2-; }
[[ -s "$work/check" ]] && ! grep -q Traceback "$work/check" && ok || bad "parse the received mail: $(cat "$work/check")"
same "no Bcc header" "$(line bcc_header)" "False"
same "To header" "$(line to)" "['bob@example.org', 'jane@example.org']"
same "To display name" "$(line to_name)" "'Jane Doe'"
same "Cc header" "$(line cc)" "['carol@example.org']"
same "From header" "$(line from)" "('Bürö Office', 'office@example.org')"
same "UTF-8 subject" "$(line subject)" "'Grüße aus Köln — 2024'"
same "subject is an encoded-word" "$(line subject_encoded)" "True"
same "7-bit on the wire" "$(line ascii_only)" "True"
same "body followed by two line breaks" "$(line body)" "b'Hello Jane,\r\nsee the files.\r\n\r\n'"
same "attachment display names" "$(line names)" "['Rapport annuel é.bin', 'notes.txt']"
same "binary attachment bytes" "$(line report_bytes)" "True"
same "text attachment bytes" "$(line notes_bytes)" "True"

# A ";"-joined recipient is one recipient that does not resolve: nothing is sent, the message
# is kept in the outbox.
"$bin" mail --outlook "$o" --to "jane@example.org; bob@example.org" --subject s --body b --send \
  >"$work/out" 2>"$work/err"
[[ $? -ne 0 ]] && ok || bad "joined recipients: exit 0"
has "joined recipients stay one" "$(cat "$work/err")" "'jane@example.org; bob@example.org'"
same "joined recipients: nothing sent" "$(received)" 1

# The server refuses a recipient: the command fails with the server's answer.
"$bin" mail --outlook "$o" --to refuse-me@example.org --subject s --body b --send \
  >"$work/out" 2>"$work/err"
[[ $? -ne 0 ]] && ok || bad "refused recipient: exit 0"
has "refused recipient: the server's answer" "$(cat "$work/err")" "550 5.1.1"
same "refused recipient: nothing delivered" "$(received)" 1

# An attachment that is not there: the mail is neither sent nor kept.
"$bin" mail --outlook "$o" --to jane@example.org --subject s --body b \
  --attach "$work/missing.pdf" --send >"$work/out" 2>"$work/err"
[[ $? -ne 0 ]] && ok || bad "missing attachment: exit 0"
has "missing attachment named" "$(cat "$work/err")" "missing.pdf"
same "missing attachment: nothing sent" "$(received)" 1

# Nothing listens on the port: the command fails naming the server, the message stays in
# outbox/ with its Bcc.
closed=$("$py" -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
"$bin" account set --outlook "$o" --smtp "smtp://127.0.0.1:$closed" --from office@example.org >/dev/null
before=$(ls "$profile_dir/outbox" | wc -l)
"$bin" mail --outlook "$o" --to jane@example.org --bcc hidden@example.org --subject "Kept" \
  --body "keep me" --send >"$work/out" 2>"$work/err"
[[ $? -ne 0 ]] && ok || bad "refused connection: exit 0"
has "refused connection names the server" "$(cat "$work/err")" "127.0.0.1:$closed"
same "refused connection keeps one more message" "$(ls "$profile_dir/outbox" | wc -l)" $((before + 1))
kept=$(ls -t "$profile_dir/outbox"/*.eml | head -1)
has "kept message has its Bcc" "$(cat "$kept")" "Bcc: hidden@example.org"
has "error says where it is kept" "$(cat "$work/err")" "$kept"

# --display without a desktop saves a draft and says where.
out=$("$bin" mail --outlook "$o" --to jane@example.org --bcc hidden@example.org --subject Draft \
  --body-file "$work/notes.txt" --display)
same "display exit" $? 0
draft=${out#Draft saved: }
[[ "$out" == "Draft saved: $profile_dir/drafts/"*.eml && -f "$draft" ]] && ok || bad "draft path: $out"
has "draft is marked unsent" "$(cat "$draft")" "X-Unsent: 1"
has "draft keeps its Bcc" "$(cat "$draft")" "Bcc: hidden@example.org"

# With a desktop the draft is handed to xdg-open (a stand-in here that notes what it got).
mkdir -p "$work/bin"
printf '#!/bin/sh\nprintf "%%s" "$1" >"%s/opened.tmp" && mv "%s/opened.tmp" "%s/opened"\n' \
  "$work" "$work" "$work" >"$work/bin/xdg-open"
chmod +x "$work/bin/xdg-open"
out=$(DISPLAY=:99 PATH="$work/bin:$PATH" "$bin" mail --outlook "$o" --to jane@example.org \
  --subject Opened --body b --display)
for _ in $(seq 50); do [[ -f "$work/opened" ]] && break; sleep 0.1; done
draft=${out#Draft saved and opened: }
[[ "$out" == "Draft saved and opened: "*.eml ]] && ok || bad "opened draft: $out"
same "xdg-open got the draft" "$(cat "$work/opened" 2>/dev/null)" "$draft"

# An appointment through the component, read back by an independent iCalendar parser.
out=$("$bin" appointment --outlook "$o" --start "2025-03-14 09:30" --end "2025-03-14 10:45" \
  --subject "Year-end review — Müller" --location "Room 2, Main St; 3rd floor")
same "appointment exit" $? 0
ics=${out#Saved the appointment in }
[[ "$ics" == "$profile_dir/calendar/"*.ics && -f "$ics" ]] && ok || bad "appointment file: $out"
got=$("$py" - "$ics" 2>&1 <<'PY'
import icalendar, sys
cal = icalendar.Calendar.from_ical(open(sys.argv[1], "rb").read())
events = cal.walk("VEVENT")
e = events[0]
print(len(events), e.decoded("DTSTART").isoformat(), e.decoded("DTEND").isoformat(),
      str(e["SUMMARY"]), "|", str(e["LOCATION"]), "|", bool(e.get("UID")), bool(e.get("DTSTAMP")), sep=" ")
PY
)
same "appointment as read by python3-icalendar" "$got" \
  "1 2025-03-14T09:30:00 2025-03-14T10:45:00 Year-end review — Müller | Room 2, Main St; 3rd floor | True True"
"$bin" appointment --outlook "$o" --start "2025-03-14 11:00" --end "2025-03-14 10:00" \
  --subject x --location y >"$work/out" 2>"$work/err"
[[ $? -ne 0 ]] && ok || bad "appointment ending before it starts: exit 0"
has "appointment error located" "$(cat "$work/err")" "clsOutlookSynchronization-CreateAppointment"

finish "mail cli"
