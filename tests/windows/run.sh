#!/usr/bin/env bash
# The Windows tests, under wine64, in a Wine prefix of their own:
#   registration   regsvr32 registers kvoutlookdx.dll (CLSID, InprocServer32, ProgID, TypeLib
#                  keys checked) and, at the end, unregisters it (the same keys gone)
#   component      a VBScript host drives clsOutlookSynchronization, its services written as
#                  VBScript classes, and synchronises a demo practice into the Outlook stand-in's
#                  folder, which dossync on Linux then reads back
#   send mail      a VBScript host composes a draft through clsOutlookSendMail and the stand-in
#   com clients    C++ clients bound early, bound late, and sinking ExitProgram
# Usage: tests/windows/run.sh BUILD_DIR   (build-windows/x86_64). Exits 1 when a test failed.
set -uo pipefail
build=$(cd "${1:?usage: run.sh BUILD_DIR}" && pwd)
root=$(cd "$(dirname "$0")/../.." && pwd)
here=$root/tests/windows
wine=/usr/lib/wine/wine64
work=$(mktemp -d /tmp/dossync-windows.XXXXXX)
export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
export DOSSYNC_STANDIN_STORE
cleanup() {
  "$wine"server -k 2>/dev/null || /usr/lib/wine/wineserver -k 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

failed=0
pass() { echo "PASS $1"; }
fail() {
  echo "FAIL $1"
  failed=1
}
# Z: is Wine's drive for /.
winpath() { printf 'Z:%s' "${1//\//\\}"; }
wrun() { "$wine" "$@" 2>&1 | tr -d '\r'; }
# Runs a test script with cscript, host_services.vbs in front of it (Wine's VBScript has no
# ExecuteGlobal); passes when its last line is "OK NAME".
script() {
  local name=$1 file=$2
  shift 2
  local joined=$work/${file%.vbs}.joined.vbs out
  cat "$here/host_services.vbs" "$here/$file" >"$joined"
  out=$(wrun cscript //nologo "$(winpath "$joined")" "$@")
  echo "$out" | sed 's/^/    /'
  [[ "$(echo "$out" | tail -n 1)" == "OK $name" ]] && pass "$name" || fail "$name"
}
key() { wrun reg query "$1" >/dev/null 2>&1; }

# Linux dossync makes the demo practice and reads the store back.
dossync=$root/build/dossync
if [[ ! -x $dossync ]]; then
  BUILD_DIR=$root/build TARGETS=dossync "$root/scripts/build.sh" || exit 1
fi

"$wine" wineboot -i >/dev/null 2>&1
dll=$build/kvoutlookdx.dll
clsid='{BE836407-1D92-49EC-A31B-A757F55DAA60}'
libid='{338616D9-A370-4A62-A5DB-7279735217FC}'

# ---- Registration.
wrun regsvr32 /s "$(winpath "$dll")" >/dev/null
inproc=$(wrun reg query "HKCR\\CLSID\\$clsid\\InprocServer32")
if grep -q "ThreadingModel.*Apartment" <<<"$inproc" && grep -qi "kvoutlookdx.dll" <<<"$inproc" &&
  key "HKCR\\kvoutlookdx.clsOutlookSynchronization\\CLSID" &&
  key "HKCR\\kvoutlookdx.clsOutlookSendMail\\CLSID" && key "HKCR\\CLSID\\$clsid\\TypeLib" &&
  key "HKCR\\TypeLib\\$libid"; then
  pass "registration"
else
  echo "$inproc" | sed 's/^/    /'
  fail "registration"
fi
wrun regsvr32 /s "$(winpath "$build/outlook_standin.dll")" >/dev/null

# ---- The stand-in itself, so that a failure below is not taken for the component's.
store=$work/store
mkdir -p "$store"
DOSSYNC_STANDIN_STORE=$(winpath "$work/standin")
script standin standin_test.vbs
DOSSYNC_STANDIN_STORE= script "standin without store" standin_test.vbs without-store

# ---- The component from VBScript, synchronising into the stand-in's folder.
companies=12
"$dossync" demo-data "$work/host.db" --companies $companies --seed 7 >/dev/null
printf 'This file is not a database.\n' >"$work/notadb.db"
printf 'Please sign.\n' >"$work/papers.txt"
DOSSYNC_STANDIN_STORE=$(winpath "$store")
script component component_test.vbs "$(winpath "$work")" $companies
listed=$("$dossync" contacts list --outlook "vdir:$store" --json 2>/dev/null | grep -c '"EntryID"' || true)
if [[ "$listed" -ge $companies ]]; then
  pass "store read back on Linux ($listed contacts)"
else
  fail "store read back on Linux: $listed contacts, expected $companies or more"
fi

# ---- The mail sender from VBScript.
script "send mail" send_mail_test.vbs "$(winpath "$work")"
draft=$(ls "$store"/*/drafts/*.eml 2>/dev/null | head -n 1)
if [[ -n "$draft" ]] && grep -q "^Subject: Year-end papers" "$draft" && grep -q "X-Unsent: 1" "$draft" &&
  grep -q "^To: ann@example.com," "$draft" && grep -q "^ bob@example.com" "$draft" &&
  grep -q "^Bcc: dora@example.com" "$draft" && grep -q 'filename="Year-end papers.txt"' "$draft"; then
  pass "draft written"
else
  [[ -n "$draft" ]] && sed 's/^/    /' "$draft" | head -n 40
  fail "draft written"
fi

# ---- C++ clients.
out=$(wrun "$build/com_clients.exe" "$(winpath "$work/host.db")")
echo "$out" | sed 's/^/    /'
[[ "$(echo "$out" | tail -n 1)" == "OK com clients" ]] && pass "com clients" || fail "com clients"

# ---- Unregistration.
wrun regsvr32 /s /u "$(winpath "$build/outlook_standin.dll")" >/dev/null
wrun regsvr32 /s /u "$(winpath "$dll")" >/dev/null
if key "HKCR\\CLSID\\$clsid" || key "HKCR\\kvoutlookdx.clsOutlookSynchronization" ||
  key "HKCR\\kvoutlookdx.clsOutlookSendMail" || key "HKCR\\TypeLib\\$libid"; then
  fail "unregistration"
else
  pass "unregistration"
fi

exit $failed
