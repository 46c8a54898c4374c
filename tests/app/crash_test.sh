#!/usr/bin/env bash
# Runs of 2,000 companies killed part-way (SIGKILL), then run whole: one way (host to Outlook;
# the other way: reverse_crash_test), and two ways after edits on both sides (never the same
# company on both) and new companies on each. Nothing lost or made twice; databases sound.
source "$(dirname "$0")/check_lib.sh"

n=2000
h="$work/h.db" s="$work/s.db" cards="$work/ol/default/contacts"
demo_host "$h" $n 17
hq() { sqlite3 -cmd ".timeout 5000" "$h" "$1"; }

# ---- One way, into a store and synchronisation database of its own.
one=(sync --host-db "$h" --sync-db "$work/one.db" --outlook "vdir:$work/one" --no-progress)
one_cards="$work/one/default/contacts"
for attempt in 1 2 3; do
  kill_when "(( \$(ls '$one_cards' 2>/dev/null | wc -l) >= $((attempt * 150)) ))" "${one[@]}"
done
killed_at=$(ls "$one_cards" | wc -l)
"$bin" "${one[@]}" >/dev/null 2>&1; same "one way: the run after the kills" $? 0
echo "one way: killed with $killed_at cards of $n"
same "one way: a card per company" "$(ls "$one_cards" | grep -c '\.vcf$')" $n
same "one way: no duplicate contact" "$(grep -h '^X-DOSSYNC-FILEAS:' "$one_cards"/*.vcf | sort | uniq -d | wc -l)" 0
same "one way: one mapping row per company" "$(sqlite3 "$work/one.db" "SELECT count(DISTINCT CASE WHEN OutlookID <> ''
  THEN CompanyNum END) || ' ' || count(*) FROM OutlookSync;")" "$n $n"
same "one way: no file but cards left in the store" "$(ls "$one_cards" | grep -vc '\.vcf$')" 0
sound "$h" "$work/one.db"

# ---- Two ways.
args=(sync --two-way --host-db "$h" --sync-db "$s" --outlook "vdir:$work/ol" --no-progress)
run() { "$bin" "${args[@]}" >"$work/run.log" 2>&1; }

run; same "the first two-way run" $? 0
# How long a run that reads everything takes: the kills land within about that time.
t0=$(date +%s%N)
run; same "a quiet run" $? 0
full=$(($(date +%s%N) - t0))

# Card edits as another program makes them (written whole, renamed over the card): stdin lines
# "ID city" set the business city of company ID's card; "NEW uid name" lines make new cards.
cat >"$work/edit.py" <<'EOF'
import os, re, sys
folder, tmp = sys.argv[1], sys.argv[2]
os.makedirs(tmp, exist_ok=True)
lines = [line.split(None, 2) for line in sys.stdin]
want = {p[0]: p[1].strip() for p in lines if p[0] != "NEW"}
def put(name, text):
    with open(os.path.join(tmp, name), "w", newline="") as f:
        f.write(text)
    os.replace(os.path.join(tmp, name), os.path.join(folder, name))
adr = re.compile(r"^(ADR[^:\r\n]*WORK[^:\r\n]*:(?:[^;\r\n]*;){3})[^;\r\n]*", re.M | re.I)
for name in [n for n in os.listdir(folder) if n.endswith(".vcf")]:
    text = re.sub(r"\r\n[ \t]", "", open(os.path.join(folder, name), newline="").read())
    m = re.search(r"^ORG[^:]*:[^\r\n]*#(\d+)", text, re.M)
    if m and m.group(1) in want:
        city = want[m.group(1)]
        put(name, adr.sub(lambda a: a.group(1) + city, text, 1) if adr.search(text) else
            text.replace("\r\nEND:VCARD", "\r\nADR;TYPE=WORK:;;;%s;;;\r\nEND:VCARD" % city))
for _, uid, name in [p for p in lines if p[0] == "NEW"]:
    put(uid + ".vcf", "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:%s\r\nFN:%s\r\nORG:%s;\r\n"
        "ADR;TYPE=WORK:;;1 Main Street;Kingston;ON;K7L 1A1;Canada\r\nEND:VCARD\r\n" % (uid, name.strip(), name.strip()))
EOF
edit_cards() { /usr/bin/python3 "$work/edit.py" "$cards" "$work/tmp"; }

killed=0
for round in 1 2 3; do
  # Host: office numbers of about 280 companies, and 20 new companies with a default contact.
  hq "UPDATE Companies SET OfficeNumber = '613-55$round-' || CompanyID
      WHERE CompanyID % 7 = $round AND CompanyID <= $n;"
  for i in $(seq 1 20); do
    hq "INSERT INTO Companies (CompanyName, CategoryNum, City, OfficeNumber)
          SELECT 'Host New $round-$i', CategoryNum, 'Perth', '613-000-$round$i' FROM Companies
          WHERE CompanyID = 1;
        INSERT INTO Contacts (CompanyNum, DefaultContact, FirstName, LastName, DisplayName)
          VALUES (last_insert_rowid(), 1, 'Pat', 'New$round$i', 'Pat New$round$i');"
  done
  # Cards: the city of about 280 other companies, and 20 new cards.
  {
    hq "SELECT CompanyID || ' Town$round-' || CompanyID FROM Companies
        WHERE CompanyID % 7 = ($round + 3) % 7 AND CompanyID <= $n;"
    for i in $(seq 1 20); do echo "NEW crash-new-$round-$i Card New $round-$i"; done
  } | edit_cards

  for k in 1 2; do
    kill_at=$(($(date +%s%N) + full * (10 + RANDOM % 120) / 100))
    kill_when '(($(date +%s%N) >= kill_at))' "${args[@]}" && killed=$((killed + 1))
  done
  run || { bad "round $round: the run after the kills failed"; tail -5 "$work/run.log"; }

  companies=$(hq "SELECT count(*) FROM Companies;")
  card_count=$(ls "$cards" | grep -c '\.vcf$')
  same "round $round: one card per company" "$card_count" "$companies"
  same "round $round: no company twice" \
    "$(hq "SELECT count(*) FROM (SELECT CompanyName FROM Companies GROUP BY CompanyName HAVING count(*) > 1);")" 0
  same "round $round: no card twice" \
    "$(grep -ah '^UID:\|^X-DOSSYNC-FILEAS:' "$cards"/*.vcf | sort | uniq -d | wc -l)" 0
  same "round $round: pairs one to one" \
    "$(sqlite3 "$s" "SELECT count(*) || ' ' || count(DISTINCT CompanyNum) || ' ' || count(DISTINCT OutlookID) FROM TwoWayPairs;")" \
    "$companies $companies $companies"
  # Every edit of this round and the ones before, on both sides.
  lost=0
  for r in $(seq 1 "$round"); do
    want=$(hq "SELECT count(*) FROM Companies WHERE CompanyID % 7 = $r AND CompanyID <= $n;")
    have=$(grep -al "^TEL;TYPE=WORK,VOICE:613-55$r-" "$cards"/*.vcf | wc -l)
    host_kept=$(hq "SELECT count(*) FROM Companies WHERE OfficeNumber LIKE '613-55$r-%';")
    [[ $have -eq $want && $host_kept -eq $want ]] || { lost=1; echo "round $round: office numbers of $r: $have cards, $host_kept host rows, $want wanted"; }
    want=$(hq "SELECT count(*) FROM Companies WHERE CompanyID % 7 = ($r + 3) % 7 AND CompanyID <= $n;")
    have=$(hq "SELECT count(*) FROM Companies WHERE City = 'Town$r-' || CompanyID;")
    [[ $have -eq $want ]] || { lost=1; echo "round $round: cities of $r: $have host rows, $want wanted"; }
    for side in Host Card; do
      made=$(hq "SELECT count(*) FROM Companies WHERE CompanyName LIKE '$side New $r-%';")
      on_cards=$(grep -alE "^ORG[^:]*:$side New $r-[0-9]+" "$cards"/*.vcf | wc -l)
      [[ $made -eq 20 && $on_cards -eq 20 ]] || { lost=1; echo "round $round: new of $r ($side): $made companies, $on_cards cards"; }
    done
  done
  same "round $round: no change lost" $lost 0
done
[[ $killed -ge 2 ]] && ok || bad "only $killed runs were killed part-way"
sound "$h" "$s"
echo "$killed runs killed part-way; a quiet run took $((full / 1000000)) ms"
finish crash
