#!/usr/bin/env bash
# dossync against vdirsyncer on the same local Radicale.
#
#   bench/carddav_bench.sh [N ...]        (default: 200 1000; RUNS=3 turns, best of each counts)
#
# For each N and each turn: a fresh Radicale on 127.0.0.1 with two empty address books, a practice
# of N companies (demo data, seed 7). Timed (wall clock):
#   dossync first   sync of the N companies into book a (information type 1, all selected)
#   vdirsyncer first  sync of the same N cards (the ones dossync wrote, copied from its local copy
#                   into a plain folder) into book b; `discover` beforehand is not timed
#   dossync quiet   the same sync again, nothing changed
#   vdirsyncer quiet  the same sync again, nothing changed
#   two-way quiet   dossync sync --two-way with the same synchronisation database, run once
#                   untimed (it adopts the pairings and records their base), then timed again,
#                   nothing changed
# Writes are counted as the card files Radicale wrote during the run. The dossync binary is
# $DOSSYNC_BIN, else build-rel/dossync, else build/dossync.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bin=${DOSSYNC_BIN:-}
if [[ -z $bin ]]; then
  if [[ -x $root/build-rel/dossync ]]; then bin=$root/build-rel/dossync; else bin=$root/build/dossync; fi
fi
[[ -x $bin ]] || { echo "no dossync binary at $bin" >&2; exit 2; }
command -v vdirsyncer >/dev/null || { echo "vdirsyncer is not installed" >&2; exit 2; }
py=/usr/bin/python3
runs=${RUNS:-3}
sizes=("$@")
[[ ${#sizes[@]} -gt 0 ]] || sizes=(200 1000)

work=""
server=""
cleanup() {
  if [[ -n $server ]]; then kill "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; fi
  server=""
  if [[ -n $work ]]; then rm -rf "$work"; fi
  work=""
}
trap cleanup EXIT

now() { date +%s.%N; }
# Card files Radicale wrote into book $1 since the marker was touched.
written() {
  find "$work/rad/collections" -path "*/alice/$1/*" -name '*.vcf' -not -path '*/.Radicale*' \
    -newer "$work/marker" | wc -l
}
timed() {  # timed BOOK COMMAND...: prints "seconds writes"
  local book=$1 t0 t1
  shift
  touch "$work/marker"
  sleep 0.01  # file times of the run's writes come after the marker's
  t0=$(now)
  "$@" >>"$work/log" 2>&1 || { echo "failed: $* (see below)" >&2; tail -20 "$work/log" >&2; exit 1; }
  t1=$(now)
  echo "$(echo "$t1 - $t0" | bc -l) $(written "$book")"
}

one_turn() {  # one_turn N: sets result to "dossync_first puts vdir_first puts ..." (5 pairs)
  local n=$1
  work=$(mktemp -d)
  mkdir -p "$work/rad" "$work/xdg" "$work/vs/status" "$work/vs/up"
  "$py" "$root/tests/support/radicale_server.py" "$work/rad" alice:secret \
    --book alice/a --book alice/b >/dev/null 2>&1 &
  server=$!
  for _ in $(seq 200); do [[ -f $work/rad/port ]] && break; sleep 0.05; done
  [[ -f $work/rad/port ]] || { echo "radicale did not start" >&2; exit 1; }
  local url="http://127.0.0.1:$(cat "$work/rad/port")/alice"
  local h=$work/h.db s=$work/s.db
  "$bin" init-host "$h" >/dev/null
  "$bin" demo-data "$h" --companies "$n" --seed 7 >/dev/null
  # The runs' own home: their reports and copies never go to the real one.
  export HOME=$work/home XDG_DATA_HOME=$work/xdg XDG_STATE_HOME=$work/state XDG_CONFIG_HOME=$work/config
  mkdir -p "$HOME"
  local ds=("$bin" sync --host-db "$h" --sync-db "$s" --outlook "carddav:$url/a/" --profile alice
    --password secret --direction 2 --info 1 --select all --no-progress)
  cat >"$work/vs/config" <<CONF
[general]
status_path = "$work/vs/status/"
[pair up]
a = "up_local"
b = "up_remote"
collections = null
[storage up_local]
type = "filesystem"
path = "$work/vs/up/"
fileext = ".vcf"
[storage up_remote]
type = "carddav"
url = "$url/b/"
username = "alice"
password = "secret"
CONF
  local vs=(vdirsyncer -c "$work/vs/config")

  local d1 v1 d2 v2
  d1=$(timed a "${ds[@]}")
  find "$work/xdg/dossync/carddav" -path '*/contacts/*.vcf' -exec cp {} "$work/vs/up/" \;
  local cards uids
  cards=$(ls "$work/vs/up" | grep -c '\.vcf$' || true)
  uids=$(cat "$work/vs/up"/*.vcf | grep -a '^UID:' | sort -u | wc -l)
  [[ $cards -eq $n && $uids -eq $n ]] || { echo "expected $n cards, got $cards ($uids UIDs)" >&2; exit 1; }
  "${vs[@]}" discover up >>"$work/log" 2>&1
  v1=$(timed b "${vs[@]}" sync up)
  d2=$(timed a "${ds[@]}")
  v2=$(timed b "${vs[@]}" sync up)
  local two=("$bin" sync --two-way --host-db "$h" --sync-db "$s" --outlook "carddav:$url/a/"
    --profile alice --password secret --info 1 --no-progress)
  timed a "${two[@]}" >/dev/null
  local w2
  w2=$(timed a "${two[@]}")
  result="$d1 $v1 $d2 $v2 $w2"
  cleanup
}

min() { printf '%s\n' "$@" | sort -g | head -1; }
ratio() { echo "scale=2; $1 / $2" | bc -l; }

echo "dossync: $bin; vdirsyncer $(vdirsyncer --version 2>&1 | awk '{print $NF}'); Radicale" \
  "$("$py" -c 'import radicale; print(radicale.VERSION)' 2>/dev/null || echo '?'); best of $runs"
printf '%6s | %9s %9s %6s | %9s %9s %6s | %9s %6s | %7s %7s %7s %7s %7s | %8s\n' N "ds first" \
  "vs first" ratio "ds quiet" "vs quiet" ratio "2w quiet" ratio "PUTs ds" "vs" "quiet" "vs" "2w" \
  "ms/PUT"
for n in "${sizes[@]}"; do
  declare -a df=() vf=() dq=() vq=() wq=()
  puts=""
  for turn in $(seq "$runs"); do
    one_turn "$n"
    read -r a ap b bp c cp d dp e ep <<<"$result"
    df+=("$a"); vf+=("$b"); dq+=("$c"); vq+=("$d"); wq+=("$e")
    puts="$ap $bp $cp $dp $ep"
    echo "  turn $turn, N=$n: dossync $a s ($ap PUTs), vdirsyncer $b s ($bp)," \
      "quiet: dossync $c s ($cp), vdirsyncer $d s ($dp), two-way $e s ($ep)" >&2
  done
  f1=$(min "${df[@]}") f2=$(min "${vf[@]}") q1=$(min "${dq[@]}") q2=$(min "${vq[@]}")
  w1=$(min "${wq[@]}")
  read -r ap bp cp dp ep <<<"$puts"
  printf '%6d | %9.2f %9.2f %6.2f | %9.3f %9.3f %6.2f | %9.3f %6.2f | %7d %7d %7d %7d %7d | %8.1f\n' \
    "$n" "$f1" "$f2" "$(ratio "$f1" "$f2")" "$q1" "$q2" "$(ratio "$q1" "$q2")" "$w1" \
    "$(ratio "$w1" "$q2")" "$ap" "$bp" "$cp" "$dp" "$ep" "$(echo "1000 * $f1 / $n" | bc -l)"
done
