# shellcheck shell=bash
# Sourced by scripts/build.sh and scripts/deps.sh: one line on standard error that says how far a
# long step is. On a terminal it is rewritten in place; otherwise (a log, CI) a plain line is
# written at each tenth of the way, so the log shows progress without a line per step.
if [[ -t 2 ]]; then progress_tty=1; else progress_tty=0; fi
progress_tenth=-1

# progress PERCENT TEXT
progress() {
  local percent=${1%%.*} text=$2
  if [[ $progress_tty -eq 1 ]]; then
    local width=${COLUMNS:-$(tput cols 2>/dev/null || echo 80)}
    printf '\r\033[K%s' "${text:0:$((width - 1))}" >&2
  elif [[ $((percent / 10)) -gt $progress_tenth ]]; then
    progress_tenth=$((percent / 10))
    printf '%s\n' "$text" >&2
  fi
}

# progress_done: clears the line (on a terminal) and starts counting again for the next step.
progress_done() {
  [[ $progress_tty -eq 1 ]] && printf '\r\033[K' >&2
  progress_tenth=-1
}
