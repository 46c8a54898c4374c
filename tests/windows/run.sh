#!/usr/bin/env bash
# The Windows tests under wine64, in a Wine prefix and a virtual X display (Xvfb) of their own:
# regsvr32 registration and unregistration; VBScript hosts of both classes (a synchronisation
# into the Outlook stand-in's folder, read back by dossync on Linux; the registered progress
# dialog; a mail draft); the C++ clients (COM, control styles, the wizard driven through its
# windows and photographed: DOSSYNC_UPDATE_SCREENSHOTS=1 copies the pictures to docs/wizard/);
# and the x64 MSI installed and removed in a fresh prefix.
# Usage: tests/windows/run.sh BUILD_DIR   (build-windows/x86_64). Exits 1 when a test failed.
set -uo pipefail
build=$(cd "${1:?usage: run.sh BUILD_DIR}" && pwd)
root=$(cd "$(dirname "$0")/../.." && pwd)
here=$root/tests/windows
wine=/usr/lib/wine/wine64
work=$(mktemp -d /tmp/dossync-windows.XXXXXX)
export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
export DOSSYNC_STANDIN_STORE
xvfb=
cleanup() {
  "$wine"server -k 2>/dev/null || /usr/lib/wine/wineserver -k 2>/dev/null
  [[ -n "$xvfb" ]] && kill "$xvfb" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

failed=0
# verdict NAME [SHOWN]: passes NAME when the command just before succeeded; otherwise shows
# SHOWN, indented, and fails NAME.
verdict() {
  if [[ $? -eq 0 ]]; then echo "PASS $1"; return; fi
  [[ -z ${2:-} ]] || sed 's/^/    /' <<<"$2"
  echo "FAIL $1"; failed=1
}
# Z: is Wine's drive for /.
winpath() { printf 'Z:%s' "${1//\//\\}"; }
wrun() { "$wine" "$@" 2>&1 | tr -d '\r'; }
# client NAME PROGRAM ARGS...: runs a test program, its output indented; passes when its last
# line is "OK NAME".
client() {
  local name=$1 out
  shift
  out=$(wrun "$@")
  echo "$out" | sed 's/^/    /'
  [[ "$(echo "$out" | tail -n 1)" == "OK $name" ]]; verdict "$name"
}
# Runs a test script with cscript, host_services.vbs in front of it (Wine's VBScript has no
# ExecuteGlobal).
script() {
  local name=$1 file=$2
  shift 2
  cat "$here/host_services.vbs" "$here/$file" >"$work/$file"
  client "$name" cscript //nologo "$(winpath "$work/$file")" "$@"
}
key() { wrun reg query "$1" >/dev/null 2>&1; }
listed() { "$dossync" contacts list --outlook "vdir:$store" --json 2>/dev/null | grep -c '"EntryID"'; }

# Linux dossync makes the demo practice and reads the store back.
dossync=$root/build/dossync
[[ -x $dossync ]] || BUILD_DIR=$root/build TARGETS=dossync "$root/scripts/build.sh" || exit 1

for n in $(seq 90 120); do
  [[ -e /tmp/.X$n-lock || -e /tmp/.X11-unix/X$n ]] && continue
  Xvfb ":$n" -screen 0 1280x1024x24 -nolisten tcp >/dev/null 2>&1 &
  xvfb=$!
  export DISPLAY=":$n"
  break
done
for _ in $(seq 50); do [[ -e /tmp/.X11-unix/X${DISPLAY#:} ]] && break; sleep 0.1; done

"$wine" wineboot -i >/dev/null 2>&1
dll=$build/kvoutlookdx64.dll
clsid='{BE836407-1D92-49EC-A31B-A757F55DAA60}'
libid='{338616D9-A370-4A62-A5DB-7279735217FC}'

# ---- Registration.
wrun regsvr32 /s "$(winpath "$dll")" >/dev/null
inproc=$(wrun reg query "HKCR\\CLSID\\$clsid\\InprocServer32")
grep -q "ThreadingModel.*Apartment" <<<"$inproc" && grep -qi "kvoutlookdx64.dll" <<<"$inproc" &&
  key "HKCR\\kvoutlookdx.clsOutlookSynchronization\\CLSID" &&
  key "HKCR\\kvoutlookdx.clsOutlookSendMail\\CLSID" && key "HKCR\\CLSID\\$clsid\\TypeLib" &&
  key "HKCR\\TypeLib\\$libid"
verdict registration "$inproc"
wrun regsvr32 /s "$(winpath "$build/outlook_standin.dll")" >/dev/null

# ---- The component from VBScript, synchronising into the stand-in's folder.
store=$work/store
mkdir -p "$store"
companies=12
"$dossync" demo-data "$work/host.db" --companies $companies --seed 7 >/dev/null
printf 'This file is not a database.\n' >"$work/notadb.db"
printf 'Please sign.\n' >"$work/papers.txt"
DOSSYNC_STANDIN_STORE=$(winpath "$store")
script component component_test.vbs "$(winpath "$work")" $companies
listed=$(listed)
[[ "$listed" -ge $companies ]]; verdict "store read back on Linux: $listed contacts ($companies or more)"
# The host's run left its report where the component keeps them: LOCALAPPDATA\dossync\<profile>.
# The Windows build stores its JSON lines in zstd frames of raw blocks: the tail line reads as is.
report=$(ls "$WINEPREFIX"/drive_c/users/*/AppData/Local/dossync/*/reports/*.jsonl.zst 2>/dev/null | tail -n 1)
[[ -n "$report" ]] && grep -aq '"records":[0-9]' "$report" && [[ -f "${report%/*}/index.jsonl" ]]
verdict "the run's report under AppData/Local/dossync: $(grep -ao '"records":[0-9]*' "$report" 2>/dev/null | tail -n 1)"

# ---- The message-box library's own progress dialog, registered (the stand-in's, for this test
# alone): the component reaches it through its type information.
dialog='{7A9A54EF-A4EC-444D-BF86-22A4D602E2A0}'
wrun reg add "HKCR\\CLSID\\$dialog\\InprocServer32" /ve /d "$(winpath "$build/outlook_standin.dll")" /f >/dev/null
wrun reg add "HKCR\\CLSID\\$dialog\\InprocServer32" /v ThreadingModel /d Apartment /f >/dev/null
wrun reg add "HKCR\\kvdlgbox3.outlookDialog\\CLSID" /ve /d "$dialog" /f >/dev/null
script "registered dialog" dialog_test.vbs "$(winpath "$work")" $companies
wrun reg delete "HKCR\\kvdlgbox3.outlookDialog" /f >/dev/null
wrun reg delete "HKCR\\CLSID\\$dialog" /f >/dev/null

# ---- The mail sender from VBScript.
script "send mail" send_mail_test.vbs "$(winpath "$work")"
draft=$(ls "$store"/*/drafts/*.eml 2>/dev/null | head -n 1)
# (How a draft is composed is the Linux mail tests' check; here, that every part got through.)
[[ -n "$draft" ]] && grep -q "^Subject: Year-end papers" "$draft" && grep -q "X-Unsent: 1" "$draft" &&
  grep -q "^ bob@example.com" "$draft" && grep -q "^Bcc: dora@example.com" "$draft" &&
  grep -q 'filename="Year-end papers.txt"' "$draft"
verdict "draft written" "$(head -n 40 "${draft:-/dev/null}")"

# ---- C++ clients.
client "control styles" "$build/control_style_test.exe"
client "com clients" "$build/com_clients.exe" "$(winpath "$work/host.db")"

# ---- The wizard driven through its windows: a tour photographed, then a synchronisation.
before=$(listed)
"$dossync" demo-data "$work/wizard.db" --companies $companies --seed 11 >/dev/null
client "wizard drive" "$build/wizard_client.exe" "$(winpath "$work/wizard.db")" \
  "$(winpath "$work/wizard-sync.db")" "$(winpath "$work/shots")"
scheme=$(sqlite3 "$work/wizard-sync.db" "SELECT SchemeName FROM OutlookScheme;" 2>&1)
after=$(listed)
[[ "$scheme" == "Month-end clients" && "$after" -gt "$before" ]]
verdict "the wizard's synchronisation: scheme [$scheme], contacts $before then $after"
[[ "${DOSSYNC_UPDATE_SCREENSHOTS:-}" != 1 ]] || cp "$work"/shots/windows-*.png "$root/docs/wizard/"

# ---- Unregistration. The mail class's ProgID has been taken over by another server meanwhile:
# it is not ours to remove.
wrun regsvr32 /s /u "$(winpath "$build/outlook_standin.dll")" >/dev/null
other='{0F0F0F0F-0000-4000-8000-000000000001}'
wrun reg add "HKCR\\kvoutlookdx.clsOutlookSendMail\\CLSID" /ve /d "$other" /f >/dev/null
wrun regsvr32 /s /u "$(winpath "$dll")" >/dev/null
! key "HKCR\\CLSID\\$clsid" && ! key "HKCR\\kvoutlookdx.clsOutlookSynchronization" &&
  ! key "HKCR\\TypeLib\\$libid" && wrun reg query "HKCR\\kvoutlookdx.clsOutlookSendMail\\CLSID" | grep -q "$other"
verdict unregistration

# ---- The installer, in a prefix of its own: nothing registered before it.
ours_left() {  # the registry keys of ours still there, one a line
  local k
  for k in "CLSID\\$clsid" "CLSID\\{356BEAEA-5C2B-4D7C-A886-DDE4BF8E6C1E}" \
    kvoutlookdx.clsOutlookSynchronization kvoutlookdx.clsOutlookSendMail "TypeLib\\$libid" \
    "Interface\\{96180550-E106-4BE4-8FBA-56E8CC140B47}" \
    "Interface\\{2157B503-838E-4C41-8D9D-413B478B8EDC}" \
    "Interface\\{CA3B57CA-2414-4F66-B18B-9769DAF70343}"; do
    key "HKCR\\$k" && echo "$k"
  done
}
msi=$(ls "$build"/../dossync-*-x64.msi 2>/dev/null | tail -n 1)
"$wine"server -k 2>/dev/null || /usr/lib/wine/wineserver -k 2>/dev/null
export WINEPREFIX=$work/msi-prefix
"$wine" wineboot -i >/dev/null 2>&1
installed=$WINEPREFIX/drive_c/Program\ Files/dossync/kvoutlookdx64.dll
if [[ -z "$msi" ]]; then
  false; verdict "installer: no build-windows/dossync-*-x64.msi (scripts/build-windows.sh makes it)"
else
  wrun msiexec /i "$(winpath "$msi")" /qn >/dev/null
  inproc=$(wrun reg query "HKCR\\CLSID\\$clsid\\InprocServer32")
  [[ -f "$installed" ]] && grep -qi 'Program Files\\dossync\\kvoutlookdx64.dll' <<<"$inproc" &&
    grep -q "ThreadingModel.*Apartment" <<<"$inproc" && key "HKCR\\TypeLib\\$libid"
  verdict "installer: installed into Program Files and registered" "$inproc"
  script "installed" install_test.vbs
  wrun msiexec /x "$(winpath "$msi")" /qn >/dev/null
  left=$(ours_left)
  [[ -z "$left" && ! -e "$installed" ]]; verdict "installer: uninstalled, no key of ours left" "$left"
fi

exit $failed
