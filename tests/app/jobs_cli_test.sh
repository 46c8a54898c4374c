#!/usr/bin/env bash
# The version, demo-data's refusal to fill a practice that has companies, and named jobs from a
# config file: relative paths, options over the job's, `jobs`, `jobs add`, errors, `run --all`.
source "$(dirname "$0")/check_lib.sh"
conf="$XDG_CONFIG_HOME/dossync/config.toml"
mkdir -p "$XDG_CONFIG_HOME/dossync/practice"

cards() { "$bin" contacts list --outlook "vdir:$XDG_CONFIG_HOME/dossync/practice/out" | wc -l; }

check version 0 "$bin" --version
[[ "$(out)" =~ ^dossync\ [0-9]+\.[0-9]+\.[0-9]+$ ]] && ok || bad "--version printed '$(out)'"
version=$(out)
check version-command 0 "$bin" version
same "version command" "$(out)" "$version"
check sync-help 0 "$bin" sync --help
has "help shows defaults" "$(out)" "TEXT=Business"

h="$XDG_CONFIG_HOME/dossync/practice/h.db"
check demo-data 0 "$bin" demo-data "$h" --companies 6 --seed 3
check demo-data-again 1 "$bin" demo-data "$h" --companies 6 --seed 3
has "refusal says --append" "$(err)" "--append"
same "nothing added" "$(sqlite3 "$h" "SELECT count(*) FROM Companies;")" 6
check demo-data-append 0 "$bin" demo-data "$h" --companies 6 --seed 3 --append
same "appended, names unique, categories kept" "$(sqlite3 "$h" "SELECT count(*), count(DISTINCT CompanyName),
  (SELECT count(*) = count(DISTINCT CategoryName) FROM Categories), (SELECT count(*) FROM HostCategory) FROM Companies;")" "12|12|1|1"

# Paths relative to the config file, run from elsewhere.
cat >"$conf" <<'EOF'
# the office's jobs
[jobs.office]
host-db = "practice/h.db"
sync-db = "practice/s.db"
outlook = "vdir:practice/out"
select = "1"
keep-reports = 5

[jobs.idle]
host-db = "practice/h.db"
sync-db = "practice/idle.db"
outlook = "vdir:practice/idle"
EOF
cd "$work"
check run-job 0 "$bin" run office --no-progress
same "the job's selection" "$(cards)" 1
has "summary" "$(out)" "create-item 1"
check run-override 0 "$bin" run office --select all -v
same "the command line's selection" "$(cards)" 12
same "-v: a line per record" "$(grep -c '^company [0-9]* .*: ' "$work/stdout")" 12
check run-quiet 0 "$bin" run office -q --outlook "vdir:$work/fresh"
same "-q prints nothing" "$(out)$(err)" ""
check report-tool 0 "$bin" report show last --json --outlook "vdir:$XDG_CONFIG_HOME/dossync/practice/out"
has "the report names the version" "$(out)" "\"tool\": \"$version\""
check jobs 0 "$bin" jobs
has "jobs: office's last run" "$(grep '^office ' "$work/stdout")" "done  12 records"
has "jobs: idle never ran" "$(grep '^idle ' "$work/stdout")" "never run"

check jobs-add 0 "$bin" jobs add third --host-db config/dossync/practice/h.db --sync-db s3.db --two-way --info 7
for kept in "# the office's jobs" "sync-db = '$work/s3.db'" "two-way = true"; do
  has "jobs add: comment kept, path made absolute, flag as true" "$(cat "$conf")" "$kept"
done
check jobs-add-twice 64 "$bin" jobs add third --host-db x.db --sync-db y.db
check jobs-add-password 64 "$bin" jobs add fourth --host-db x.db --sync-db y.db --password secret
has "password refused" "$(err)" "--password-file"
[[ "$(cat "$conf")" != *secret* ]] && ok || bad "a password was written"

# run --all: every job, the exit code the worst of theirs.
printf '\n[jobs.broken]\nhost-db = "practice/h.db"\nsync-db = "practice/s.db"\ndirection = 9\n' >>"$conf"
check run-all 64 "$bin" run --all -q
[[ "$("$bin" jobs | grep '^idle ')" != *"never run"* ]] && ok || bad "run --all skipped idle"
has "names the failed job" "$(err)" "job broken"
# A run that ends before its report shows in `jobs`, over an earlier report, with its exit code.
has "jobs: a run that ended before its report" "$("$bin" jobs | grep '^broken ')" "its options were refused (exit 64), no report"
check run-missing-host 2 "$bin" run office -q --host-db "$work/missing/h.db"
has "jobs: a failure after a report" "$("$bin" jobs | grep '^office ')" "could not begin"

# The wizard takes its practice from a job (the desktop entry starts it without options).
check wizard-which-job 64 env -u DISPLAY -u WAYLAND_DISPLAY "$bin" wizard
has "wizard asks which job" "$(err)" "give --job NAME"
check wizard-job 2 env -u DISPLAY -u WAYLAND_DISPLAY "$bin" wizard --job office
has "wizard with a job gets as far as the display" "$(err)" "needs a display"

# Errors in the file name it, the line and the key.
check no-such-job 64 "$bin" run nobody
has "lists the jobs" "$(err)" "office, idle, third, broken"
for case in 'syntax|[jobs.a]\nhost-db = "x\n|:2:' \
            'unknown key|[jobs.a]\nhost-db = "x"\n\nhostdb = "y"\n|:4: jobs.a.hostdb' \
            'password|[jobs.a]\npassword = "pw"\n|:2: jobs.a.password' \
            'flag value|[jobs.a]\ntwo-way = "yes"\n|:2: jobs.a.two-way'; do
  IFS='|' read -r name text want <<<"$case"
  printf "$text" >"$conf"
  check "config $name" 64 "$bin" run a
  has "config $name names file, line and key" "$(err)" "$conf$want"
done

finish jobs_cli_test
