# The host database a command line test runs against (after check_lib.sh): a SQLite file, or
# with DOSSYNC_TEST_HOST=postgres one on a PostgreSQL 15 cluster of its own (skipped, passing,
# when PostgreSQL is not installed). host_make NAME prints a new empty database's location,
# host_uri NAME a server database's; host_query LOC SQL (names quoted: "Companies"); host_dump
# LOC, a digest of the rows (and the sequences).
host_kind=${DOSSYNC_TEST_HOST:-sqlite}
host_server=""
on_exit 'stop "$host_server"'
if [[ "$host_kind" == postgres && ! -x /usr/lib/postgresql/15/bin/postgres ]]; then
  echo "$(basename "$0" .sh): PostgreSQL 15 is not installed (scripts/deps.sh --test): skipped"
  exit 0
elif [[ "$host_kind" == postgres ]]; then
  mkdir -p "$work/pg"
  chmod 711 "$work"  # the cluster runs as "nobody" when the tests run as root
  /usr/bin/python3 "$(dirname "${BASH_SOURCE[0]}")/../support/postgres_server.py" "$work/pg" \
    >"$work/pg.out" 2>&1 &
  host_server=$!
  for _ in $(seq 300); do [[ -s "$work/pg/uri-base" ]] && break; sleep 0.1; done
  host_base=$(cat "$work/pg/uri-base" 2>/dev/null) ||
    { echo "FAIL PostgreSQL did not start: $(cat "$work/pg.out")"; exit 1; }
  host_uri() { echo "${host_base/\/postgres\?//$1?}"; }
  host_make() {
    psql -qX "$host_base" -c "CREATE DATABASE $1" >/dev/null || { echo "FAIL createdb $1"; exit 1; }
    host_uri "$1"
  }
  host_query() { psql -qXAt "$1" -c "$2"; }
  host_dump() { /usr/lib/postgresql/15/bin/pg_dump --data-only "$1" | grep -v '^--\|^\\\(un\)\?restrict' | md5sum; }
else
  host_make() { echo "$work/$1.db"; }
  host_query() { sqlite3 "$1" "$2"; }
  host_dump() { sqlite3 "$1" .dump | md5sum; }
fi
