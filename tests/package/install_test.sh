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

expect_version() { # COMMAND...: its output ends with the version
  local said
  said=$("$@")
  [ "${said##* }" = "$version" ] || { echo "$* said: $said, not $version"; exit 1; }
}

"$cmake" --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
expect_version "$work/prefix/bin/yinet" --version
"$cmake" -G Ninja -S "$here/consumer" -B "$work/with_cmake" -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
"$cmake" --build "$work/with_cmake" >/dev/null
expect_version "$work/with_cmake/consumer"

libdir=$(dirname "$(find "$work/prefix" -name libyinet.so)")
export PKG_CONFIG_PATH=$libdir/pkgconfig
expect_version pkg-config --modversion yinet
# shellcheck disable=SC2046  # the flags are words
"$compiler" -std=c++20 "$here/consumer/main.cpp" -o "$work/with_pkg_config" $(pkg-config --cflags --libs yinet)
LD_LIBRARY_PATH=$libdir expect_version "$work/with_pkg_config"

# The umbrella header, compiled above, offers every header. A header that its own source includes first has been compiled
# alone; the others are now.
include=$work/prefix/include failed=0
for header in $(cd "$include" && find yinet -name '*.h' ! -path yinet/yinet.h); do
  line="#include \"$header\"" source=$here/../../src/${header%.h}.cpp
  grep -qxF "$line" "$include/yinet/yinet.h" || { echo "yinet/yinet.h lacks $header"; failed=1; }
  [ "$(grep -sm 1 '^#include' "$source")" = "$line" ] ||
    "$compiler" -std=c++20 -fsyntax-only -I "$include" -x c++ - <<<"$line" || failed=1
done
"$compiler" -std=c99 -pedantic-errors -fsyntax-only -I "$include" -x c - <<<'#include "yinet/script/yinet_call.h"' || failed=1
exit $failed
