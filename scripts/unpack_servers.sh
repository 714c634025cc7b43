#!/usr/bin/env bash
# unpack_servers.sh FOLDER: the FTP servers that the tests run, unpacked side by side in FOLDER. As packages they exclude
# each other, and none of them is to be installed as a service. Does nothing when they are there; needs apt's package
# lists. Leaves a note and succeeds when they can't be had: the tests that need them say so.
set -u
mkdir -p "$1" && folder=$(cd "$1" && pwd) || exit 0
packages=(vsftpd proftpd-core proftpd-mod-crypto pure-ftpd pure-ftpd-common)

missing=()
for package in "${packages[@]}"; do
  [ -e "$folder/$package.done" ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "Unpacking FTP servers for the tests: ${missing[*]}" >&2
for package in "${missing[@]}"; do
  work=$(mktemp -d) || exit 0
  if (cd "$work" && apt-get -q -o APT::Sandbox::User=root download "$package" >apt.log 2>&1 && dpkg -x "$package"_*.deb "$folder"); then
    touch "$folder/$package.done"
  else
    tail -n 3 "$work/apt.log" >&2
    echo "The package $package could not be downloaded; tests that need it are skipped." >&2
  fi
  rm -rf "$work"
done
