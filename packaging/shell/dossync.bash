# bash completion for dossync: its commands, their options, and the values those take (files,
# a store URL, a job's name from config.toml, the values an option allows).

declare -gA _dossync_subs _dossync_opts _dossync_takes
# @TABLES@

_dossync_jobs() {
  local config=${XDG_CONFIG_HOME:-$HOME/.config}/dossync/config.toml
  [[ -r $config ]] && sed -n 's/^[[:space:]]*\[jobs\.\([^].]*\)\].*/\1/p' "$config"
}

_dossync_values() {  # KIND: what may be typed as a value of that kind
  local kind=$1
  case "$kind" in
    file) mapfile -t COMPREPLY < <(compgen -f -- "$cur"); compopt -o filenames 2>/dev/null ;;
    dir) mapfile -t COMPREPLY < <(compgen -d -- "$cur"); compopt -o filenames 2>/dev/null ;;
    job) mapfile -t COMPREPLY < <(compgen -W "$(_dossync_jobs)" -- "$cur") ;;
    choice:*) mapfile -t COMPREPLY < <(compgen -W "${kind#choice:}" -- "$cur") ;;
    outlook)
      if [[ $cur == vdir:* ]]; then
        mapfile -t COMPREPLY < <(compgen -P vdir: -d -- "${cur#vdir:}")
      else
        mapfile -t COMPREPLY < <(compgen -W "vdir: carddav:https://" -- "$cur")
      fi
      compopt -o nospace 2>/dev/null
      ;;
  esac
}

_dossync() {
  local cur prev words cword
  if declare -F _init_completion >/dev/null; then
    _init_completion -n : || return
  else
    words=("${COMP_WORDS[@]}") cword=$COMP_CWORD
    cur=${words[cword]} prev=${words[cword - 1]}
  fi
  # The command the words so far name: dossync, dossync contacts, dossync contacts list, ...
  local cmd=dossync i
  for ((i = 1; i < cword; i++)); do
    [[ " ${_dossync_subs[$cmd]} " == *" ${words[i]} "* ]] && cmd+=" ${words[i]}"
  done
  if [[ -n ${_dossync_takes["$cmd $prev"]-} ]]; then
    _dossync_values "${_dossync_takes["$cmd $prev"]}"
  elif [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "${_dossync_opts[$cmd]}" -- "$cur")
  else
    mapfile -t COMPREPLY < <(compgen -W "${_dossync_subs[$cmd]}" -- "$cur")
    [[ -n ${_dossync_takes["$cmd #"]-} ]] && _dossync_values "${_dossync_takes["$cmd #"]}"
  fi
  [[ $cur == *:* ]] && declare -F __ltrim_colon_completions >/dev/null &&
    __ltrim_colon_completions "$cur"
  return 0
}
complete -F _dossync dossync
