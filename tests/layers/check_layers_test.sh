#!/usr/bin/env bash
# The layer check (cmake/check_layers.cmake) on copies of the source tree.
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bin=unused  # this test runs no dossync
source "$root/tests/app/check_lib.sh"

tree() {  # tree NAME: a fresh copy of src/ and the table under $work/NAME
  mkdir -p "$work/$1/cmake"
  cp -r "$root/src" "$work/$1/"
  cp "$root/cmake/modules.txt" "$work/$1/cmake/"
}
check() {  # check NAME: the check's output on that copy; its status in $status
  out=$(cmake -DSOURCE_DIR="$work/$1" -P "$root/cmake/check_layers.cmake" 2>&1)
  status=$?
}

tree clean
check clean
same "the tree as it is" "$status" 0

tree upward
echo '#include "core/apartment.h"' >>"$work/upward/src/interfaces/catalog.cpp"
echo '#include "backends/vdir/vdir_store.h"' >>"$work/upward/src/backends/vcard/vcard.h"
check upward
same "upward includes fail" "$status" 1
has "an include of the layer above" "$out" "src/interfaces/catalog.cpp (interfaces) includes core/apartment.h (core)"
has "an include of a module beside, the back end that uses it" "$out" "src/backends/vcard/vcard.h (backends/vcard) includes backends/vdir/vdir_store.h"

tree table
sed -i 's/^\(interfaces  *all  *\)base$/\1base core/' "$work/table/cmake/modules.txt"
mkdir "$work/table/src/stray" && touch "$work/table/src/stray/stray.cpp"
check table
same "a table naming a module above fails" "$status" 1
has "the module used before its line" "$out" "interfaces uses core, which is not a module below it"
has "a folder in no module" "$out" "src/stray/stray.cpp is in no module"

finish check_layers_test
