#!/usr/bin/env bash
# Configures (once) and builds dossync into BUILD_DIR (default build/). Extra arguments go to
# CMake's configure step.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
if [[ ! -f "$build/build.ninja" ]]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=${BUILD_TYPE:-RelWithDebInfo} "$@" >/dev/null
fi
ninja -C "$build" -j "$(nproc)" ${TARGETS:-} >/dev/null || ninja -C "$build" -j 1 ${TARGETS:-}
