#!/usr/bin/env bash
# A run saves what it says and says what failed: a change of case only, both ways (the host's
# name columns compare without regard to case); a host disk that fills up during a run from
# Outlook (no pairing names a company not there); a read-only store or synchronisation database.
source "$(dirname "$0")/check_lib.sh"
small="" mounts=()
cleanup() {
  [[ -n "$small" ]] && umount "$small" 2>/dev/null
  for m in "${mounts[@]}"; do umount "$m" 2>/dev/null; done
}
on_exit cleanup
json() { /usr/bin/python3 -c "import json, sys; d = json.load(sys.stdin); print($1)"; }

# ---- A change of case is a change, both ways.
h="$work/casehost.db" s="$work/case.db" ol=(--outlook "vdir:$work/ol")
"$bin" init-host "$h" >/dev/null
sqlite3 "$h" "INSERT INTO Companies (CompanyID, CompanyName) VALUES (1, 'Beta Corp');"
sync() { "$bin" sync --host-db "$h" --sync-db "$s" "${ol[@]}" --no-progress "$@"; }
sync --direction 2 --select 1 >/dev/null; same "host to Outlook" $? 0
id=$(sqlite3 "$s" "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = 1;")
echo "{\"EntryID\": \"$id\", \"CompanyName\": \"BETA CORP\"}" | "$bin" contacts put "${ol[@]}" --json - >/dev/null
sync --direction 3 --select "$id" --json >"$work/case.json"; same "from Outlook" $? 0
same "the host holds the new case" "$(sqlite3 "$h" 'SELECT CompanyName FROM Companies WHERE CompanyID = 1;')" "BETA CORP"
same "the report shows what was stored" \
  "$(json '[(c["old"], c["new"]) for r in d["records"] for c in r["changes"] if c["field"] == "CompanyName"]' <"$work/case.json")" \
  "[('Beta Corp', 'BETA CORP')]"
sqlite3 "$h" "UPDATE Companies SET CompanyName = 'Beta Corp' WHERE CompanyID = 1;"
sync --direction 2 --select 1 >/dev/null; same "host to Outlook again" $? 0
same "the card holds the host's case" \
  "$("$bin" contacts show "$id" "${ol[@]}" --json | json 'd["CompanyName"]')" "Beta Corp"

# ---- The host database's disk fills up during a run from Outlook with --pair-created.
cards=$work/full/default/contacts
mkdir -p "$cards"
for i in $(seq 400); do
  vcard card-$i "Person $i" "N:$i;Person;;;" "ORG:Company number $i with a long name" \
    "EMAIL:p$i@example.org" >"$cards/card-$i.vcf"
done
mkdir -p "$work/small"
if [[ $(id -u) -ne 0 ]] || ! mount -t tmpfs -o size=1m tmpfs "$work/small" 2>/dev/null; then
  echo "safe_run_cli_test: cannot mount a small tmpfs (needs root): the full disk part is skipped"
else
  small="$work/small"
  "$bin" init-host "$small/h.db" >/dev/null
  # What is left of the disk holds some of the clients, not all.
  dd if=/dev/zero of="$small/filler" bs=1k count=$(($(df -k --output=avail "$small" | tail -1) - 180)) 2>/dev/null
  out=$("$bin" sync --host-db "$small/h.db" --sync-db "$work/full.db" --outlook "vdir:$work/full" \
    --no-progress --direction 3 --select all --pair-created 2>"$work/full.err")
  same "full disk exit" $? 1
  grep -q "could not be committed\|disk is full\|database or disk is full" "$work/full.err" && ok ||
    bad "full disk error: $(head -c 400 "$work/full.err")"
  rm -f "$small/filler"
  companies=$(sqlite3 "$small/h.db" "SELECT count(*) FROM Companies;")
  # Writes are grouped by time: on a fast machine the whole run may be one group, which the full
  # disk then refuses as a whole; either way not every client fits.
  [[ $companies -lt 400 ]] && ok || bad "every company saved on a full disk: $companies"
  sqlite3 "$work/full.db" "ATTACH '$small/h.db' AS h;
    SELECT count(*) FROM OutlookSync WHERE CompanyNum > 0;
    SELECT count(*) FROM OutlookSync o WHERE CompanyNum > 0
      AND NOT EXISTS (SELECT 1 FROM h.Companies c WHERE c.CompanyID = o.CompanyNum);" >"$work/pairs"
  same "no pairing to a missing company" "$(sed -n 2p "$work/pairs")" 0
  same "a pairing for each company saved" "$(sed -n 1p "$work/pairs")" "$companies"
  same "half-made clients" "$(sqlite3 "$small/h.db" "SELECT count(*) FROM Companies c WHERE NOT EXISTS (SELECT 1 FROM Contacts k WHERE k.CompanyNum = c.CompanyID) OR NOT EXISTS (SELECT 1 FROM ClientData d WHERE d.CompanyIDNum = c.CompanyID);")" 0
  # Every record walked was committed whole or counted as failed.
  [[ "$out" =~ ^records\ ([0-9]+).*records\ failed\ ([0-9]+) ]] &&
    same "failed records counted" "${BASH_REMATCH[2]}" $((BASH_REMATCH[1] - companies)) ||
    bad "full disk summary: $out"
  has "the counts are what was committed" "$out" "create-company $companies,"
fi

# ---- Read-only: the synchronisation database, then the store. (Root writes through any mode:
# there, a read-only bind mount of the folder.)
readonly() {  # DIR
  if [[ $(id -u) -ne 0 ]]; then chmod -R a-w "$1"; return; fi
  mount --bind "$1" "$1" 2>/dev/null || return 1
  mounts+=("$1")
  mount -o remount,bind,ro "$1" 2>/dev/null
}
writable() { if [[ $(id -u) -ne 0 ]]; then chmod -R u+w "$1"; else umount "$1"; fi; }
h2="$work/h2.db" s2="$work/sdir/s2.db"
mkdir -p "$work/sdir"
"$bin" demo-data "$h2" --companies 5 >/dev/null
sync2() { "$bin" sync --host-db "$h2" --sync-db "$s2" --outlook "vdir:$work/ro" --no-progress --direction 2 --select all; }
sync2 >/dev/null; same "first run" $? 0
if readonly "$work/sdir"; then
  out=$(sync2 2>"$work/ro.err"); same "read-only sync database exit" $? 1
  has "read-only sync database summary" "$out" "records 5, create-item 0, update-item 0, pair-only 0, nothing 0, errors 5, records failed 5,"
  writable "$work/sdir"
  sqlite3 "$h2" "UPDATE Companies SET City = 'Elsewhere';"
  readonly "$work/ro/default/contacts"
  out=$(sync2 2>"$work/ro.err"); same "read-only store exit" $? 1
  has "read-only store: no pairing saved, failed records counted" "$out" "records 5, "
  [[ "$out" =~ records\ failed\ [1-5], ]] && ok || bad "read-only store summary: $out"
  writable "$work/ro/default/contacts"
else
  echo "safe_run_cli_test: cannot make a folder read-only here: the read-only part is skipped"
fi

finish "safe run cli"
