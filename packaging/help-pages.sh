#!/usr/bin/env bash
# Makes dossync's manual page and its bash and zsh completions from the program's own --help,
# so that they name every command and option of the build:
#   packaging/help-pages.sh BINARY VERSION OUTDIR    writes OUTDIR/dossync.1, dossync.bash, _dossync
set -euo pipefail
bin=$1 version=$2 out=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
# Run as plain "dossync", which its usage lines then name.
PATH="$(cd "$(dirname "$bin")" && pwd):$PATH"
export PATH

# Every command, from dossync down (help-pages.awk prints the subcommands to visit).
echo "[COMMANDS]" >"$work/commands.h2m"
: >"$work/bash" && : >"$work/zsh"
queue=("dossync")
while [[ ${#queue[@]} -gt 0 ]]; do
  path=${queue[0]}
  queue=("${queue[@]:1}")
  read -ra words <<<"$path"
  dossync "${words[@]:1}" --help >"$work/help"
  subs=()
  while read -r sub; do subs+=("$path $sub"); done < <(
    awk -v path="$path" -v man="$work/commands.h2m" -v bash="$work/bash" -v zsh="$work/zsh" \
      -f "$here/help-pages.awk" "$work/help" "$work/help")
  queue=(${subs[@]+"${subs[@]}"} ${queue[@]+"${queue[@]}"})  # a command's own right after it
done

# The completions: those tables inside the hand-written code of packaging/shell/.
sed -e "/@TABLES@/{r $work/bash" -e 'd}' "$here/shell/dossync.bash" >"$out/dossync.bash"
sed -e "/@TABLES@/{r $work/zsh" -e 'd}' "$here/shell/_dossync" >"$out/_dossync"

help2man --no-info --version-string="$version" --section=1 \
  --name="keep a practice's client records and its contacts in step" \
  --include="$work/commands.h2m" --include="$here/man/dossync.h2m" \
  --output="$out/dossync.1" dossync
