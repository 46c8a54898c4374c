#!/usr/bin/env bash
# install_test.sh BUILD_DIR: what `cmake --install` and the .deb hold, each file usable by the
# tools that read it (man, bash and zsh, systemd, desktop-file-validate, dpkg).
build=$(cd "$1" && pwd)
source "$(dirname "$0")/check_lib.sh"
mkdir -p "$XDG_CONFIG_HOME/dossync"

files=(bin/dossync bin/dossync-wizard share/man/man1/dossync.1 share/bash-completion/completions/dossync
  share/zsh/vendor-completions/_dossync share/applications/dossync-wizard.desktop
  share/icons/hicolor/scalable/apps/dossync.svg lib/systemd/user/dossync@.service
  lib/systemd/user/dossync@.timer share/doc/dossync/README.md
  share/doc/dossync/docs/scheduling.md)

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 || bad "cmake --install: $(cat "$work/install.log")"
for f in "${files[@]}"; do [[ -f $prefix/$f ]] && ok || bad "not installed: $f"; done
dossync=$prefix/bin/dossync

# Wide enough that no line is wrapped and justified: the texts looked for keep their spaces.
page=$(MANWIDTH=400 man --warnings -l "$prefix/share/man/man1/dossync.1" 2>"$work/man.err" | col -b)
same "man warnings" "$(cat "$work/man.err")" ""
commands=$("$dossync" --help | awk '/^Subcommands:/ { on = 1; next } on && /^  [a-z]/ { print $1 }')
[[ -n $commands ]] || bad "no commands in dossync --help"
for c in $commands; do has "man page part of $c" "$page" "   dossync $c"$'\n'; done
has "man page: options of sync" "$page" "--host-db TEXT REQUIRED"
has "man page: exit status" "$page" "try again later"

# The bash completion (bash-completion's helpers when they are there, plain bash otherwise).
printf '[jobs.office]\nhost-db = "h.db"\n\n[jobs.home]\n' >"$XDG_CONFIG_HOME/dossync/config.toml"
complete_line() {  # WORDS...: what completing the last word offers
  bash -c '[[ -r /usr/share/bash-completion/bash_completion ]] &&
      source /usr/share/bash-completion/bash_completion
    source "$0"
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMP_POINT=${#COMP_LINE}
    _dossync && echo "${COMPREPLY[*]}"' \
    "$prefix/share/bash-completion/completions/dossync" "$@" 2>&1
}
while IFS='|' read -r words wanted; do
  read -ra line <<<"$words"
  [[ $words == *" " ]] && line+=("")
  same "complete '$words'" "$(complete_line "${line[@]}")" "$wanted"
done <<'EOF'
dossync sy|sync
dossync contacts |list show put delete
dossync contacts list --pro|--profile
dossync sync --direction |1 2 3
dossync sync --on-error e|exit
dossync sync --outlook car|carddav:https://
EOF
mkdir -p "$work/files/host-one.db"
same "complete a file" "$(complete_line dossync sync --host-db "$work/files/ho")" "$work/files/host-one.db"
if [[ $'\n'$commands$'\n' == *$'\nrun\n'* ]]; then
  same "complete a job's name" "$(complete_line dossync run "")" "office home"
fi
if command -v zsh >/dev/null; then
  zsh -n "$prefix/share/zsh/vendor-completions/_dossync" 2>&1 && ok || bad "zsh cannot read _dossync"
fi

# The units run the installed program; systemd and the desktop's validators accept them.
has "ExecStart" "$(cat "$prefix/lib/systemd/user/dossync@.service")" "ExecStart=$dossync run %i"
if command -v systemd-analyze >/dev/null; then
  same "systemd-analyze verify" "$(MANPATH=$prefix/share/man systemd-analyze verify \
    "$prefix"/lib/systemd/user/dossync@.{service,timer} 2>&1)" ""
fi
if command -v desktop-file-validate >/dev/null; then
  same "desktop-file-validate" \
    "$(desktop-file-validate "$prefix/share/applications/dossync-wizard.desktop" 2>&1)" ""
fi

# Only the wizard's program loads Qt; dossync says where it looked for it.
needed=$(readelf -d "$dossync" | grep NEEDED)
[[ $needed != *libQt6* ]] && ok || bad "dossync needs Qt: $needed"
rm "$prefix/bin/dossync-wizard"
check "wizard without its program" 2 "$dossync" wizard --screenshots "$work/shots"
has "wizard without its program" "$(err)" "cannot start $prefix/bin/dossync-wizard"

# The package ./run package makes (.ci/run makes it before the tests).
deb=$(ls "$build"/dossync_*_amd64.deb 2>/dev/null | head -1)
if [[ -z $deb ]]; then
  echo "install_test: no $build/dossync_*_amd64.deb, its checks skipped (./run package makes it)"
else
  listing=$(dpkg-deb -c "$deb" | awk '{ print $6 }')
  for f in "${files[@]}"; do grep -qxF "./usr/$f" <<<"$listing" && ok || bad "not in the .deb: $f"; done
  depends=$(dpkg-deb -f "$deb" Depends)
  for lib in libc6 libqt6widgets6 libsqlite3-0 libpq5 libcurl4; do has "Depends of the .deb" "$depends" "$lib"; done
  dpkg-deb -x "$deb" "$work/root"
  has "ExecStart in the .deb" "$(cat "$work/root/usr/lib/systemd/user/dossync@.service")" \
    "ExecStart=/usr/bin/dossync run %i"
  for program in dossync dossync-wizard; do
    "$work/root/usr/bin/$program" --help >/dev/null 2>"$work/run.err" && ok ||
      bad "the packaged $program does not run: $(cat "$work/run.err")"
  done
fi

finish install_test
