#!/usr/bin/env bash
# Configures (once) and builds dossync into BUILD_DIR (default build/). Extra arguments go to
# CMake's configure step. Says how far the build is on one line of standard error.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
source "$root/scripts/progress.sh"
if [[ ! -f "$build/build.ninja" ]]; then
  echo "dossync: configuring $build" >&2
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=${BUILD_TYPE:-RelWithDebInfo} "$@" >/dev/null
fi

# ninja writes "@@ DONE TOTAL" before each step it starts; the rest of its output (the
# compiler's) is only shown by the second, single-job attempt when the first fails.
steps() {
  local marker step total what
  while read -r marker step total what; do
    [[ $marker == "@@" && $step -gt 0 ]] || continue
    what=${what#Building CXX object }
    what=${what#Linking CXX executable }
    what=${what/CMakeFiles\/*.dir\//}
    progress $((step * 100 / total)) "dossync: [$step/$total] building ${what%.o}"
  done
  progress_done
}
export NINJA_STATUS="@@ %f %t "
if ! ninja -C "$build" -j "$(nproc)" ${TARGETS:-} | steps; then
  echo "dossync: the build failed; once more with one job, to show why:" >&2
  unset NINJA_STATUS
  ninja -C "$build" -j 1 ${TARGETS:-}
fi
