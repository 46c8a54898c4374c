#!/usr/bin/env bash
# The demonstration: a synthetic practice under ./demo/ (created when absent), synchronised
# company by company, each with its default contact, into the local vCard store ./demo/outlook.
set -euo pipefail
bin=$1
root=$(cd "$(dirname "$0")/.." && pwd)
demo="$root/demo"
mkdir -p "$demo"
if [[ ! -f "$demo/host.db" ]]; then
  "$bin" demo-data "$demo/host.db" --companies 200 --seed 7
fi
if [[ "${2:-}" == "carddav" ]]; then
  # A CardDAV server of our own (Debian's Radicale) on 127.0.0.1, left running for other clients.
  server="$demo/radicale"
  mkdir -p "$server"
  pid=$(cat "$server/pid" 2>/dev/null || true)
  if [[ -z "$pid" ]] || ! kill -0 "$pid" 2>/dev/null; then
    rm -f "$server/port"
    nohup /usr/bin/python3 "$root/tests/support/radicale_server.py" "$server" demo:demo-secret \
      --book demo/practice --book calendar:demo/calendar >/dev/null 2>&1 &
    echo $! >"$server/pid"
    for _ in $(seq 150); do [[ -s "$server/port" ]] && break; sleep 0.1; done
    [[ -s "$server/port" ]] || { echo "Radicale did not start:"; cat "$server/radicale.log"; exit 1; }
  fi
  url="http://127.0.0.1:$(cat "$server/port")/demo/practice/"
  echo "Synchronising every company of $demo/host.db into the address book $url ..."
  "$bin" sync --host-db "$demo/host.db" --sync-db "$demo/sync-carddav.db" \
    --outlook "carddav:$url" --profile demo --password demo-secret --direction 2 --info 1 --select all
  cat <<EOF2

The address book:  $url
User / password:   demo / demo-secret      (Radicale, running as process $(cat "$server/pid"))
Look at it:
  ./run contacts list --outlook carddav:$url --profile demo --password demo-secret
  or any CardDAV client (Thunderbird, Evolution, vdirsyncer, DAVx5) with that URL and login.
Run ./run demo-carddav again to synchronise once more; stop the server with
  kill \$(cat demo/radicale/pid)
EOF2
  exit 0
fi
if [[ "${2:-}" == "postgres" ]]; then
  # A PostgreSQL cluster of our own under demo/pg (socket only, no TCP), left running; the
  # practice is the database "practice" there, filled with the same seed as demo/host.db.
  server="$demo/pg"
  mkdir -p "$server"
  pid=$(cat "$demo/pg-server.pid" 2>/dev/null || true)
  if [[ -z "$pid" ]] || ! kill -0 "$pid" 2>/dev/null; then
    rm -f "$server/uri-base"
    [[ $(id -u) -eq 0 ]] && chmod o+x "$demo"  # the cluster runs as "nobody" under root
    nohup /usr/bin/python3 "$root/tests/support/postgres_server.py" "$server" \
      >"$demo/pg-server.log" 2>&1 &
    echo $! >"$demo/pg-server.pid"
    for _ in $(seq 300); do [[ -s "$server/uri-base" ]] && break; sleep 0.1; done
    [[ -s "$server/uri-base" ]] || {
      echo "PostgreSQL did not start:"
      cat "$demo/pg-server.log" "$server/postgres.log" 2>/dev/null
      exit 1
    }
  fi
  base=$(cat "$server/uri-base")
  uri=${base/\/postgres\?//practice?}
  if [[ -z $(psql -qXAt "$base" -c "SELECT 1 FROM pg_database WHERE datname = 'practice';") ]]; then
    psql -qX "$base" -c "CREATE DATABASE practice;"
    "$bin" demo-data "$uri" --companies 200 --seed 7
  fi
  echo "Synchronising every company of $uri into $demo/outlook-postgres ..."
  "$bin" sync --host-db "$uri" --sync-db "$demo/sync-postgres.db" \
    --outlook "vdir:$demo/outlook-postgres" --direction 2 --info 1 --select all
  cat <<EOF2

The practice:   $uri
Connect:        psql '$uri'
                (tables keep their names' case: SELECT * FROM "Companies" LIMIT 5;)
The contacts:   ./run contacts list --outlook vdir:demo/outlook-postgres
The server runs as process $(cat "$demo/pg-server.pid"); stop it with
  kill \$(cat demo/pg-server.pid)
Run ./run demo-postgres again to synchronise once more.
EOF2
  exit 0
fi
if [[ "${2:-}" == "reverse" ]]; then
  # The cards put the first time are updated, not put again, on the next runs; the run pairs
  # each with the company it makes, so that the next run finds it rather than making another.
  known="$demo/reverse-ids"
  old=()
  [[ -f "$known" ]] && mapfile -t old <"$known"
  ids=()
  while read -r json; do
    n=${#ids[@]}
    id=""
    if [[ -n "${old[$n]:-}" ]]; then
      id=$(echo "{\"EntryID\": \"${old[$n]}\", ${json#\{}" |
        "$bin" contacts put --outlook "vdir:$demo/outlook" --json - 2>/dev/null) || id=""
    fi
    [[ -n "$id" ]] || id=$(echo "$json" | "$bin" contacts put --outlook "vdir:$demo/outlook" --json -)
    ids+=("$id")
  done <<'JSON'
{"FullName": "Ms. Nora Field", "Title": "Ms.", "FirstName": "Nora", "LastName": "Field", "CompanyName": "Field & Stream Outfitters", "BusinessAddressCity": "Halifax", "BusinessAddressState": "NS", "BusinessTelephoneNumber": "(902) 555-0142", "Email1Address": "info@fieldstream.ca", "Email2Address": "nora@fieldstream.ca", "Gender": 1}
{"FullName": "Omar Haddad", "FirstName": "Omar", "LastName": "Haddad", "CompanyName": "Haddad Imports Ltd.", "BusinessAddressCity": "Montréal", "BusinessAddressState": "QC", "JobTitle": "Owner", "Gender": 2, "Birthday": "1975-06-14"}
{"FullName": "Dr. Lena Park", "Title": "Dr.", "FirstName": "Lena", "LastName": "Park", "CompanyName": "Park Family Dental", "BusinessAddressCity": "Vancouver", "BusinessAddressState": "BC", "Email1Address": "front@parkdental.ca"}
JSON
  printf '%s\n' "${ids[@]}" >"$known"
  selection=$(IFS=,; echo "${ids[*]}")
  echo "Put ${#ids[@]} contacts into $demo/outlook; bringing them into $demo/host.db ..."
  "$bin" sync --host-db "$demo/host.db" --sync-db "$demo/sync.db" --outlook "vdir:$demo/outlook" \
    --direction 3 --select "$selection" --pair-created
  echo
  echo "In the practice (company | default contact | client record):"
  sqlite3 -separator ' | ' "$demo/host.db" "SELECT k.CompanyName, c.DisplayName, d.ClientDataID
    FROM Companies k JOIN Contacts c ON c.CompanyNum = k.CompanyID AND c.DefaultContact = 1
    JOIN ClientData d ON d.CompanyIDNum = k.CompanyID ORDER BY k.CompanyID DESC LIMIT ${#ids[@]};"
  exit 0
fi
echo "Synchronising every company of $demo/host.db with its default contact into $demo/outlook ..."
"$bin" sync --host-db "$demo/host.db" --sync-db "$demo/sync.db" --outlook "vdir:$demo/outlook" \
  --direction 2 --info 1 --select all
cat <<EOF2

Look at the result:
  ./run contacts list --outlook vdir:demo/outlook            (one line per contact)
  ./run contacts list --outlook vdir:demo/outlook --json     (every property)
  ls demo/outlook/default/contacts/                           (one vCard file per contact)
  sqlite3 demo/sync.db 'SELECT * FROM OutlookSync LIMIT 5;'   (which company is which contact)
  ./run report show last --outlook vdir:demo/outlook          (what the run did, record by record)
  ./run sync --host-db demo/host.db --sync-db demo/sync.db --outlook vdir:demo/outlook --preview
                                                              (what a run would do; changes nothing)
Run ./run again to synchronise once more (the same contacts are updated, none duplicated).
EOF2
