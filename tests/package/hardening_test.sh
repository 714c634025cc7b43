#!/usr/bin/env bash
# hardening_test.sh LIBRARY PROGRAM BUILD-TYPE: what the linker wrote says whether the hardening flags were in force.
set -u
failed=0
expect() { # FILE PATTERN COMMAND...
  "${@:3}" "$1" | grep -Eq -- "$2" || { echo "$1: no $2"; failed=1; }
}
for file in "$1" "$2"; do
  expect "$file" 'GNU_RELRO' readelf -lW
  expect "$file" 'BIND_NOW|FLAGS_1.*NOW' readelf -dW
  expect "$file" 'GNU_STACK .* RW +0x' readelf -lW
done
expect "$2" 'FLAGS_1.*PIE' readelf -dW
expect "$1" '__stack_chk_fail' nm -D
[ "$3" != Release ] || expect "$1" '__[a-z]+_chk(@|$)' nm -D # fortified calls
exit $failed
