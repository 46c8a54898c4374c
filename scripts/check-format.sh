#!/usr/bin/env bash
# Checks that every C++ file git tracks is formatted as the pinned .clang-format says.
# Exit 0: all formatted; 1: the files and lines that are not (clang-format's warnings);
# 77: no clang-format 14 on this machine (the configuration is pinned to that version).
set -uo pipefail
cd "$(dirname "$0")/.." || exit 2
if ! clang-format --version 2>/dev/null | grep -q 'version 14\.'; then
  echo "check-format: clang-format 14 not found; skipped" >&2
  exit 77
fi
git ls-files -z '*.cpp' '*.h' '*.cc' | xargs -0 clang-format --dry-run --Werror || exit 1
