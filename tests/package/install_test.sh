#!/usr/bin/env bash
# install_test.sh BUILD-FOLDER COMPILER VERSION: installs into a folder of its own, then moves that folder, then uses
# the library from there as a stranger would: through CMake, through pkg-config, and each header alone.
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

headers=$(cd "$work/prefix/include" && find . -name '*.h' | sort)
[ -n "$headers" ] || { echo "No header was installed"; exit 1; }
for header in $headers; do echo "#include \"$header\"" >"$work/$(tr / _ <<<"${header#./}").cpp"; done
find "$work" -maxdepth 1 -name '*.h.cpp' -print0 |
  xargs -0 -P 2 -n 1 "$compiler" -std=c++20 -fsyntax-only -I "$work/prefix/include" ||
  { echo "A header can't be included alone with what is installed"; exit 1; }
