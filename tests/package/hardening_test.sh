#!/usr/bin/env bash
# hardening_test.sh LIBRARY PROGRAM BUILD-TYPE: what the linker wrote says whether the hardening flags were in force.
set -u
library=$1 program=$2 build_type=$3
failed=0

expect() {
  local file=$1 what=$2 pattern=$3
  shift 3
  "$@" "$file" | grep -Eq -- "$pattern" || { echo "$file: no $what"; failed=1; }
}

for file in "$library" "$program"; do
  expect "$file" "read-only relocations" 'GNU_RELRO' readelf -lW
  expect "$file" "immediate binding" 'BIND_NOW|FLAGS_1.*NOW' readelf -dW
  expect "$file" "non-executable stack" 'GNU_STACK .* RW +0x' readelf -lW
done
expect "$program" "position-independent program" 'FLAGS_1.*PIE' readelf -dW
expect "$library" "stack protector" '__stack_chk_fail' nm -D
if [ "$build_type" = Release ]; then
  expect "$library" "fortified calls" '__[a-z]+_chk(@|$)' nm -D
fi
exit $failed
