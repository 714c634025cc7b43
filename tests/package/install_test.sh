#!/usr/bin/env bash
# install_test.sh BUILD-FOLDER COMPILER VERSION: installs into a folder of its own, then moves that folder, then uses
# the library from there as a stranger would: through CMake, through pkg-config, with the umbrella header and with each
# header alone.
set -eu
build=$1 compiler=$2 version=$3
here=$(dirname -- "$(readlink -f -- "$0")")
cmake=${CMAKE_COMMAND:-cmake}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

expect_version() { # FILE COMMAND...: the command's output ends with the version
  local said
  said=$("$@")
  [ "${said##* }" = "$version" ] || { echo "$* said: $said, not $version"; exit 1; }
}

"$cmake" --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
expect_version "$work/prefix/bin/yinet" --version

{
  "$cmake" -G Ninja -S "$here/consumer" -B "$work/with_cmake" \
    -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$compiler" &&
    "$cmake" --build "$work/with_cmake"
} >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
expect_version "$work/with_cmake/consumer"

libdir=$(dirname "$(find "$work/prefix" -name libyinet.so)")
export PKG_CONFIG_PATH=$libdir/pkgconfig
[ "$(pkg-config --modversion yinet)" = "$version" ] || { echo "yinet.pc has another version"; exit 1; }
# shellcheck disable=SC2046  # the flags are words
"$compiler" -std=c++20 "$here/consumer/main.cpp" -o "$work/with_pkg_config" $(pkg-config --cflags --libs yinet)
LD_LIBRARY_PATH=$libdir expect_version "$work/with_pkg_config"

# The umbrella header, compiled above, offers every header. A header that its own source includes first has been compiled
# alone; the others are now.
include=$work/prefix/include sources=$here/../../src
(cd "$include" && find yinet -name '*.h' ! -path yinet/yinet.h | sort) >"$work/headers"
[ -s "$work/headers" ] || { echo "No header was installed"; exit 1; }
failed=0
while read -r header; do
  grep -qxF "#include \"$header\"" "$include/yinet/yinet.h" || { echo "yinet/yinet.h lacks $header"; failed=1; }
  source=$sources/${header%.h}.cpp
  [ "$(grep -sm 1 '^#include' "$source")" = "#include \"$header\"" ] ||
    "$compiler" -std=c++20 -fsyntax-only -I "$include" -x c++ - <<<"#include \"$header\"" || failed=1
done <"$work/headers"
"$compiler" -std=c99 -pedantic-errors -fsyntax-only -I "$include" -x c - <<<'#include "yinet/script/yinet_call.h"' || failed=1
exit $failed
