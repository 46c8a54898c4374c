#!/usr/bin/env bash
# Cross-builds the Windows component for x86_64 and i686 into build-windows/<arch>/ with
# mingw-w64 (scripts/deps.sh --windows installs it). Extra arguments go to ninja.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
for arch in ${DOSSYNC_WINDOWS_ARCHS:-x86_64 i686}; do
  dir="$root/build-windows/$arch"
  if [[ ! -f "$dir/build.ninja" ]]; then
    cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-$arch.cmake" "${launcher[@]}" >/dev/null
  fi
  ninja -C "$dir" "$@" >/dev/null || ninja -C "$dir" -j 1 "$@"
done
