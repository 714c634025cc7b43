# What run and test share; sourced by them with $root set to the repository. Everything that is said goes to standard
# error: standard output belongs to the program.

readonly exit_not_installed=3                   # packages are missing and could not be installed
readonly service_policy=/usr/sbin/policy-rc.d  # package scripts ask it before they start a service; 101 means no

say() { printf '%s\n' "$*" >&2; }

# Names of the packages in the given sections of packages.txt.
packages_in() {
  awk -v sections=" $* " '
    /^\[/ { wanted = index(sections, " " substr($0, 2, length($0) - 2) " "); next }
    wanted && NF && !/^#/ { print $1 }' "$root/scripts/packages.txt"
}

# Those of the given packages that are not installed.
missing_of() {
  LC_ALL=C dpkg-query -W -f '${db:Status-Abbrev} ${Package}\n' "$@" 2>/dev/null |
    awk -v all="$*" '
      /^.i/ { have[$2] = 1 }
      END { n = split(all, name, " "); for (i = 1; i <= n; i++) if (!(name[i] in have)) print name[i] }'
}

# Installs what is missing from the given sections of packages.txt, as root or through sudo. Starts no service.
install_packages() {
  if ! command -v dpkg-query >/dev/null; then
    say "This is no Debian system: the packages of scripts/packages.txt are taken to be there."
    return
  fi
  local wanted missing
  mapfile -t wanted < <(packages_in "$@")
  mapfile -t missing < <(missing_of "${wanted[@]}")
  [ ${#missing[@]} -gt 0 ] || return 0

  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    # Without a terminal nobody could type a password.
    if command -v sudo >/dev/null && { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
      as_root=(sudo)
    else
      say "These packages are missing and installing them needs root. Run this as root, then try again:"
      say "  apt-get update && apt-get install --no-install-recommends ${missing[*]}"
      exit $exit_not_installed
    fi
  fi

  say "Installing ${#missing[@]} Debian packages: ${missing[*]}"
  local log
  log=$(mktemp) || exit $exit_not_installed
  if (apt_install "${missing[@]}") >"$log" 2>&1 </dev/null; then
    rm -f "$log"
  else
    tail -n 40 "$log" >&2
    rm -f "$log"
    say "Installing failed. The command was:"
    say "  apt-get update && apt-get install --no-install-recommends ${missing[*]}"
    exit $exit_not_installed
  fi
}

# Runs in a subshell: the exit trap takes back the policy file however apt ends.
apt_install() {
  if ! [ -e "$service_policy" ]; then
    trap '"${as_root[@]}" rm -f "$service_policy"' EXIT
    trap 'exit 1' INT TERM
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$service_policy" >/dev/null
    "${as_root[@]}" chmod 755 "$service_policy"
  fi
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300)
  # One unreachable source need not matter: the installation tells.
  "${apt[@]}" update || true
  "${apt[@]}" install --no-install-recommends "$@"
}

# build PRESET TARGET [-DNAME=VALUE...]: configures when that is due and builds; options not named keep their value.
# Several calls at once take turns.
build() {
  local preset=$1 target=$2 dir=$root/build/$1
  shift 2
  mkdir -p "$dir"
  exec 9>"$dir/.lock"
  flock 9
  configure_if_due "$preset" "$dir" "$@"
  ninja -C "$dir" "$target" 2>&1 9>&- | show_build "$preset"
  [ "${PIPESTATUS[0]}" -eq 0 ] || { say "Building $preset failed."; exit 1; }
  exec 9>&-
}

# Ninja sees for itself when a CMakeLists.txt has changed. Configuring is due for a new folder, for one that was moved
# or copied here, for changed presets, and when an option has another value than the one asked for.
configure_if_due() {
  local preset=$1 dir=$2 fresh=() option
  shift 2
  local cache=$dir/CMakeCache.txt due=
  if ! [ -e "$dir/build.ninja" ]; then
    due=1
  elif ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
    due=1
    fresh=(--fresh)
  elif [ "$root/CMakePresets.json" -nt "$dir/configure.log" ]; then
    due=1
  else
    for option; do
      option=${option#-D}
      grep -q "^${option%%=*}:[A-Z]*=${option#*=}\$" "$cache" || due=1
    done
  fi
  [ -n "$due" ] || return 0

  say "Configuring $preset"
  if ! (cd "$root" && cmake --preset "$preset" "${fresh[@]}" "$@") >"$dir/configure.log" 2>&1 9>&-; then
    cat "$dir/configure.log" >&2
    rm -f "$dir/build.ninja"
    say "Configuring $preset failed."
    exit 1
  fi
}

# Ninja's output, cut down to one line for all steps (on a terminal with a counter) and to what compilers say.
show_build() {
  local line said= counter=
  [ -t 2 ] && counter=1
  while IFS= read -r line; do
    case $line in
      *'Re-checking globbed directories'* | 'ninja: Entering directory'* | 'ninja: no work to do.' | '-- '*) ;;
      '['*/*'] '*)
        [ -n "$said" ] || say "Building $1"
        said=1
        [ -z "$counter" ] || printf '\r%s\033[K' "${line%%]*}]" >&2
        ;;
      *) printf '%s%s\n' "${counter:+$'\r\033[K'}" "$line" >&2 ;;
    esac
  done
  [ -z "$counter" ] || printf '\r\033[K' >&2
}
