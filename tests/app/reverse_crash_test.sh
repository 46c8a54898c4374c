#!/usr/bin/env bash
# Outlook to host killed part-way (SIGKILL) several times, then run whole: databases sound, each
# contact in the host once, each client whole (client record, eight detail rows, its card's
# columns, a contact with both summaries). A company without a contact is whole only as one made
# again (paired with -1) for a contact paired already: one of its name has the contact.
source "$(dirname "$0")/check_lib.sh"

n=2000
h="$work/h.db" s="$work/s.db" cards="$work/ol/default/contacts"
"$bin" init-host "$h" >/dev/null
mkdir -p "$cards"
# Cards as another address book writes them; each person and company has a name of its own.
for i in $(seq 1 $n); do
  printf -v id %04d "$i"
  bday=()
  ((i % 3 == 0)) && printf -v bday 'BDAY:19%02d-%02d-%02d' $((40 + i % 60)) $((1 + i % 12)) $((1 + i % 28))
  vcard "rc-$id" "Pat Smith-$i" "N:Smith-$i;Pat;;;" "ORG:Smith-$i Holdings Inc.;" \
    "ADR;TYPE=WORK:;;$i Bank Street;Ottawa;ON;K1P 5N2;Canada" "TEL;TYPE=WORK,VOICE:613-555-$id" \
    "EMAIL;TYPE=INTERNET:pat$i@smith.ca" "${bday[@]}" >"$cards/rc-$id.vcf"
done
hq() { sqlite3 -cmd ".timeout 2000" "$h" "$1" 2>/dev/null; }
args=(sync --host-db "$h" --sync-db "$s" --outlook "vdir:$work/ol" --no-progress --direction 3 --select all)

killed=0
for attempt in 1 2 3 4 5; do
  # Kill it once it has brought in a random number (1 to 600) of new companies, however fast
  # or slow the machine is; a run with nothing left to bring in ends on its own.
  before=$(hq "SELECT count(*) FROM Companies;")
  target=$((${before:-0} + 1 + RANDOM % 600))
  kill_when '(($(hq "SELECT count(*) FROM Companies;" || echo 0) >= target))' "${args[@]}" &&
    killed=$((killed + 1))
done
[[ $killed -gt 0 ]] && ok || bad "no run was killed part-way"
"$bin" "${args[@]}" >/dev/null 2>&1; same "the run after the kills" $? 0

sound "$h" "$s"
same "every Outlook contact in the host once" \
  "$(hq "SELECT count(*) || '|' || count(DISTINCT DisplayName) FROM Contacts;")" "$n|$n"
same "every Outlook contact paired with its host contact" \
  "$(sqlite3 "$s" "SELECT count(DISTINCT OutlookID) FROM OutlookSync WHERE ContactNum > 0;")" $n

details=""
for t in AccountingServices ClientOptions ClientNotes CorpTaxInfo LawInfo OtherInfo SoftwareInfo WSIB_EHTInfo; do
  details+=" + (SELECT count(*) FROM $t WHERE ${t}ID = d.ClientDataID)"
done
# One line per company that is not whole, saying what it lacks.
torn=$(hq "
  WITH k AS (
    SELECT c.CompanyID, c.CompanyName, c.ContactNotes,
      (SELECT count(*) FROM ClientData d WHERE d.CompanyIDNum = c.CompanyID) AS clients,
      (SELECT min(0 $details) FROM ClientData d WHERE d.CompanyIDNum = c.CompanyID) AS details,
      (SELECT count(*) FROM Contacts p WHERE p.CompanyNum = c.CompanyID) AS contacts,
      (SELECT count(*) FROM Contacts p WHERE p.CompanyNum = c.CompanyID
         AND p.BusinessNotes LIKE '{\\rtf1%') AS summarised
    FROM Companies c)
  SELECT CompanyID || ' ''' || ifnull(CompanyName, '') || ''':' || why FROM (SELECT *,
      CASE WHEN clients <> 1 THEN ' ' || clients || ' client records' ELSE '' END
      || CASE WHEN ifnull(details, 0) <> 8 THEN ' ' || ifnull(details, 0) || ' of 8 detail rows' ELSE '' END
      || CASE WHEN ifnull(CompanyName, '') = '' THEN ' no name' ELSE '' END
      || CASE WHEN contacts = 0 AND NOT EXISTS (SELECT 1 FROM Companies o JOIN Contacts p
           ON p.CompanyNum = o.CompanyID WHERE o.CompanyName = k.CompanyName AND k.CompanyName <> '')
         THEN ' no contact' ELSE '' END
      || CASE WHEN contacts > 0 AND summarised < contacts THEN ' contact without summary' ELSE '' END
      || CASE WHEN contacts > 0 AND ifnull(ContactNotes, '') NOT LIKE '{\\rtf1%' THEN ' no company summary' ELSE '' END
      AS why FROM k)
  WHERE why <> '';")
companies=$(hq "SELECT count(*) FROM Companies;")
echo "$killed runs killed part-way; afterwards $companies companies"
[[ -z "$torn" ]] && ok || bad "$(wc -l <<<"$torn") of $companies companies not whole:
$(head -20 <<<"$torn")"

finish "reverse crash"
