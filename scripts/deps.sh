#!/usr/bin/env bash
# Installs the Debian packages dossync needs to build and test, only those that are missing.
# Non-interactive; needs root (or sudo) the first time on a fresh machine.
set -euo pipefail

BUILD_PACKAGES=(cmake ninja-build g++ pkg-config libsqlite3-dev libgtest-dev libcli11-dev
  nlohmann-json3-dev qt6-base-dev libgl-dev libcurl4-openssl-dev libgmime-3.0-dev libical-dev
  libmimalloc-dev libpugixml-dev libpq-dev unixodbc-dev libsecret-1-dev libzstd-dev
  libtomlplusplus-dev)
TEST_PACKAGES=(python3 python3-vobject khard python3-aiosmtpd python3-icalendar
  radicale vdirsyncer curl jq sqlite3 postgresql-15 unixodbc odbcinst libsqliteodbc)
# ./run demo-carddav: a CardDAV server of its own.
CARDDAV_PACKAGES=(python3 radicale)
# ./test --windows: the cross build and Wine to run it; the ODBC back end also builds on Linux.
WINDOWS_PACKAGES=(g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix mingw-w64-tools libwine-dev
  wine64 unixodbc odbcinst libsqliteodbc xvfb sqlite3 msitools wixl zip)
# ./run demo-postgres: a PostgreSQL cluster of its own.
POSTGRES_PACKAGES=(python3 postgresql-15)
# The manual page is made at build time from the program's --help; the install test reads it,
# checks the desktop entry and the .deb; ./run package makes the .deb (dpkg-shlibdeps, file).
BUILD_PACKAGES+=(help2man)
TEST_PACKAGES+=(man-db desktop-file-utils dpkg-dev file)
# The format check: the configuration in .clang-format is pinned to clang-format 14.
TEST_PACKAGES+=(clang-format)
PACKAGE_PACKAGES=(dpkg-dev file)

want=("${BUILD_PACKAGES[@]}")
[[ "${1:-}" == "--test" ]] && want+=("${TEST_PACKAGES[@]}")
[[ "${1:-}" == "--carddav" ]] && want+=("${CARDDAV_PACKAGES[@]}")
[[ "${1:-}" == "--windows" ]] && want+=("${WINDOWS_PACKAGES[@]}")
[[ "${1:-}" == "--postgres" ]] && want+=("${POSTGRES_PACKAGES[@]}")
[[ "${1:-}" == "--package" ]] && want+=("${PACKAGE_PACKAGES[@]}")

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "dossync: installing ${missing[*]}" >&2
SUDO=""
[[ $(id -u) -ne 0 ]] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
source "$(dirname "$0")/progress.sh"
progress 0 "dossync: apt-get update"
$SUDO apt-get update -qq
# apt's machine-readable status ("dlstatus:N:PERCENT:Retrieving file 3 of 40", "pmstatus:PKG:
# PERCENT:Unpacking PKG") on fd 3, as the one progress line; errors still reach standard error.
apt_status() {
  local kind percent what last=""
  while IFS=: read -r kind _ percent what; do
    [[ $kind == dlstatus || $kind == pmstatus ]] || continue
    [[ -n $last && $kind != "$last" ]] && progress_done  # downloads done: counts again
    last=$kind
    [[ $kind == dlstatus ]] && what="downloading: $what"
    progress "$percent" "dossync: [${percent%%.*}%] $what"
  done
  progress_done
}
$SUDO apt-get install -y -qq --no-install-recommends -o APT::Status-Fd=3 "${missing[@]}" \
  3>&1 >/dev/null | apt_status
