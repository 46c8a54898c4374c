#!/usr/bin/env bash
# Cross-builds the Windows component for x86_64 and i686 into build-windows/<arch>/ with
# mingw-w64 (scripts/deps.sh --windows installs it), then what an IT person installs from:
#   build-windows/dossync-VERSION-x64.msi, dossync-VERSION-x86.msi   (wixl, msitools)
#   build-windows/dossync-VERSION-windows.zip   the DLLs and register.cmd, for a hand install
# DOSSYNC_WINDOWS_ARCHS chooses the architectures (default "x86_64 i686"); the packages hold
# those built. Extra arguments go to ninja.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/build-windows
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
archs=${DOSSYNC_WINDOWS_ARCHS:-x86_64 i686}
for arch in $archs; do
  dir="$out/$arch"
  if [[ ! -f "$dir/build.ninja" ]]; then
    cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-$arch.cmake" "${launcher[@]}" >/dev/null
  fi
  ninja -C "$dir" "$@" >/dev/null || ninja -C "$dir" -j 1 "$@"
done

# ---- Packages. The version is the CMake project's.
first=${archs%% *}
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$out/$first/CMakeCache.txt")
[[ -n "$version" ]] || { echo "build-windows: no project version in $out/$first" >&2; exit 1; }
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
for arch in $archs; do
  # Fixed per architecture: a later version upgrades the same product, and the 32-bit and
  # 64-bit products install side by side.
  case $arch in
    x86_64) bits=64 msiarch=x64 upgrade=0F8ADB0E-BC36-4FB5-B3CF-F6E53CA45BCA
      component=9435B66F-6044-4FE6-A748-EC4D9CB405A9 ;;
    i686) bits=32 msiarch=x86 upgrade=12A7ACC5-EE4B-4412-9770-29E51991E4C4
      component=D174003C-C5BD-432C-9581-A90AAC70CFA7 ;;
    *) echo "build-windows: unknown architecture $arch" >&2; exit 1 ;;
  esac
  cp "$out/$arch/kvoutlookdx$bits.dll" "$stage/"
  # wixl finds the file relative to the folder it runs in.
  (cd "$stage" && wixl -a "$msiarch" -D Version="$version" -D Bits="$bits" \
    -D Dll="kvoutlookdx$bits.dll" -D UpgradeCode="$upgrade" -D ComponentGuid="$component" \
    -o "$out/dossync-$version-$msiarch.msi" "$root/packaging/windows/dossync.wxs")
done
cp "$root/packaging/windows/register.cmd" "$stage/"
rm -f "$out/dossync-$version-windows.zip"
(cd "$stage" && zip -q -X "$out/dossync-$version-windows.zip" kvoutlookdx*.dll &&
  zip -q -X -l "$out/dossync-$version-windows.zip" register.cmd)
