#!/usr/bin/env bash
# "dossync mail", "account" and "appointment": mail goes to a local SMTP server (smtp_sink.py)
# and what it received is read back with Python's email parser.
source "$(dirname "$0")/check_lib.sh"
here=$(cd "$(dirname "$0")" && pwd)
py=/usr/bin/python3
sink_pid=""
on_exit 'stop "$sink_pid"'
unset DISPLAY WAYLAND_DISPLAY

mkdir -p "$work/sink"
"$py" "$here/smtp_sink.py" "$work/sink" 2>"$work/sink.log" &
sink_pid=$!
wait_for 10 '[[ -s $work/sink/port ]]' || { echo "FAIL the SMTP server did not start: $(cat "$work/sink.log")"; exit 1; }
port=$(cat "$work/sink/port")
received() { ls "$work/sink"/*.eml 2>/dev/null | wc -l; }

o="vdir:$work/ol"
profile_dir="$work/ol/default"
account() {  # PORT ARGS...: the store's mail account, the sink's or another server on PORT
  "$bin" account set --outlook "$o" --smtp "smtp://127.0.0.1:$1" --from office@example.org "${@:2}" >/dev/null
}
mail() { "$bin" mail --outlook "$o" "$@"; }
account "$port" --name "Bürö Office"; same "account set" $? 0
has "account show" "$("$bin" account show --outlook "$o")" "smtp://127.0.0.1:$port"

# Every kind of recipient, two attachments (one renamed).
head -c 3000 /dev/urandom >"$work/report.bin"
printf 'plain text\r\nsecond line\n' >"$work/notes.txt"
mail --to "Jane Doe <jane@example.org>" --to bob@example.org \
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
head = raw.split(b"\r\n\r\n", 1)[0].decode("ascii")
subject = [l for l in head.split("\r\n") if l.lower().startswith("subject:")][0]
files = [(p.get_filename(), p.get_payload(decode=True)) for p in msg.iter_attachments()]
print("to", sorted((a.display_name, a.addr_spec) for a in msg["To"].addresses))
print("cc", [a.addr_spec for a in msg["Cc"].addresses])
print("from", (msg["From"].addresses[0].display_name, msg["From"].addresses[0].addr_spec))
print("subject", repr(str(msg["Subject"])), "encoded-word:", "=?utf-8?" in subject.lower())
print("no Bcc header:", "bcc:" not in head.lower(), "7-bit:", all(b < 128 for b in raw))
print("body", msg.get_body(("plain",)).get_payload(decode=True))
print("attachments", [f[0] for f in files], files[0][1] == open(sys.argv[2], "rb").read(),
      files[1][1] == open(sys.argv[3], "rb").read())
PY
same "the received mail" "$(cat "$work/check")" "to [('', 'bob@example.org'), ('Jane Doe', 'jane@example.org')]
cc ['carol@example.org']
from ('Bürö Office', 'office@example.org')
subject 'Grüße aus Köln — 2024' encoded-word: True
no Bcc header: True 7-bit: True
body b'Hello Jane,\r\nsee the files.\r\n\r\n'
attachments ['Rapport annuel é.bin', 'notes.txt'] True True"

# Fails without sending, showing why: the server refuses a recipient (its answer shown).
fails() {  # fails NAME TEXT_IN_ERROR MAIL_ARGUMENTS...
  local name=$1 text=$2
  shift 2
  mail --subject s --body b --send "$@" >"$work/out" 2>"$work/err"
  [[ $? -ne 0 ]] && ok || bad "$name: exit 0"
  has "$name: error" "$(cat "$work/err")" "$text"
  same "$name: nothing sent" "$(received)" 1
}
fails "refused recipient" "550 5.1.1" --to refuse-me@example.org

# Nothing listens: the error names the server, and the message stays in outbox/ with its Bcc.
closed=$("$py" -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
account "$closed"
fails "refused connection" "127.0.0.1:$closed" --to jane@example.org --bcc hidden@example.org
kept=$(ls -t "$profile_dir/outbox"/*.eml | head -1)
has "kept message has its Bcc" "$(cat "$kept")" "Bcc: hidden@example.org"
has "error says where it is kept" "$(cat "$work/err")" "$kept"

# --display without a desktop saves a draft and says where.
out=$(mail --to jane@example.org --bcc hidden@example.org --subject Draft --body-file "$work/notes.txt" --display)
same "display exit" $? 0
draft=${out#Draft saved: }
[[ "$out" == "Draft saved: $profile_dir/drafts/"*.eml && -f "$draft" ]] && ok || bad "draft path: $out"
has "draft keeps its Bcc" "$(cat "$draft")" "Bcc: hidden@example.org"

# With a desktop the draft is handed to xdg-open (a stand-in here that notes what it got).
mkdir -p "$work/bin"
printf '#!/bin/sh\nprintf "%%s" "$1" >"%s/opened.tmp" && mv "%s/opened.tmp" "%s/opened"\n' \
  "$work" "$work" "$work" >"$work/bin/xdg-open"
chmod +x "$work/bin/xdg-open"
out=$(DISPLAY=:99 PATH="$work/bin:$PATH" mail --to jane@example.org --subject Opened --body b --display)
wait_for 5 '[[ -f $work/opened ]]'
draft=${out#Draft saved and opened: }
[[ "$out" == "Draft saved and opened: "*.eml ]] && ok || bad "opened draft: $out"
same "xdg-open got the draft" "$(cat "$work/opened" 2>/dev/null)" "$draft"

# An appointment through the component, in the profile's calendar.
out=$("$bin" appointment --outlook "$o" --profile work --start "2025-03-14 09:30" \
  --end "2025-03-14 10:45" --subject "Year-end review, Müller" --location "Room 2; Main St")
same "appointment exit" $? 0
ics=${out#Saved the appointment in }
[[ "$ics" == "$work/ol/work/calendar/"*.ics && -f "$ics" ]] && ok || bad "appointment file: $out"
same "appointment" "$(grep -E '^(DTSTART|DTEND|SUMMARY|LOCATION|UID):' "$ics" | tr -d '\r')" \
  "UID:$(basename "$ics" .ics)
DTSTART:20250314T093000
DTEND:20250314T104500
SUMMARY:Year-end review\\, Müller
LOCATION:Room 2\\; Main St"

# A log-on needs TLS unless the account allows a plain connection: the sink offers no STARTTLS,
# so "auto" refuses before any AUTH; --starttls never logs on (the sink notes the user).
umask 022
account "$port" --user office --password hunter2
before=$(received)
mail --to jane@example.org --subject s --body b --send >"$work/out" 2>"$work/err"
[[ $? -ne 0 ]] && ok || bad "auto over plain: exit 0"
has "auto over plain: says why" "$(cat "$work/err")" "offers no TLS (STARTTLS)"
same "auto over plain: nothing sent, no log-on" "$(received):$(cat "$work/sink/auth" 2>/dev/null)" "$before:"
[[ "$(cat "$work/err")" != *hunter2* ]] && ok || bad "the error showed the password"
account "$port" --user office --password hunter2 --starttls never
mail --to jane@example.org --subject s --body b --send >/dev/null 2>"$work/err"
same "never: sent" $? 0
same "never: logged on" "$(cat "$work/sink/auth" 2>/dev/null)" "office"
# Written under umask 022 and still the owner's only: the account, drafts, the outbox.
mail --to jane@example.org --subject Draft --body b --display >/dev/null
same "private mail files" "$(find "$profile_dir" -type f -perm /077)" ""

finish "mail cli"
