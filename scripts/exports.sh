#!/usr/bin/env bash
# exports.sh LIBRARY LIST [--update]: compares what the library exports with the committed list, or writes the list. A line
# is "class NAME" for an exported class, whichever of its members are exported, "function NAME" (plain names are extern
# "C") or "object NAME" (a global instance or constant). Weak symbols (inline functions, tables of vtables) come and go
# with the optimiser and are not listed; but whatever its binding, no name of another library may leak out.
set -u
library=$1 list=$2
export LC_ALL=C

# Without what a build for coverage adds.
symbols() { nm -D --defined-only -- "$library" | awk '!/__gcov|mangle_path/ { print $(NF - 1), $NF }'; }

# Lines of type, mangled name, and name without parameter types.
now=$(paste -d ' ' <(symbols) <(symbols | awk '{ print $2 }' | c++filt -p) | awk '
  { type = $1; mangled = $2; name = $0; sub(/^[^ ]+ [^ ]+ /, "", name); whole = name }
  mangled !~ /^_Z/ { print (type ~ /[TWi]/ ? "function " : "object ") name; next }
  {
    kind = type ~ /[TWi]/ ? "function" : "object"
    if (sub(/^(vtable|VTT|typeinfo|typeinfo name|construction vtable) for /, "", name)) kind = "class"
    sub(/^guard variable for |^(non-virtual|virtual|covariant return) thunk to |^TLS (init|wrapper) function for /, "", name)
    gsub(/\[abi:[^]]*\]/, "", name)
    sub(/operator[^a-zA-Z_].*/, "operator", name)
    while (gsub(/<[^<>]*>/, "", name)) {}
    space = sub(/^yinet::/, "", name) ? "yinet::" : ""
    if (sub(/::.*/, "", name)) kind = "class"
    foreign = name ~ /^(std|__gnu_cxx|__cxxabiv1|nlohmann|nlohmann_.*|pugi|CLI|testing|)$/ || name ~ /[^A-Za-z0-9_~]/
    if (foreign) print "leak " whole
    else if (type !~ /[VWuvw]/) print kind " " space name
  }' | sort -u)

if [ -z "$now" ] || grep '^leak ' <<<"$now"; then
  echo "$library has no symbols, or these, which it must not export (cmake/exports.map hides the standard library's)"
  exit 1
elif [ "${3:-}" = --update ]; then
  printf '%s\n' "$now" >"$list"
elif ! diff -u --label listed --label exported "$list" - <<<"$now"; then
  echo "The library exports other names than $list. When that is wanted: ninja -C BUILD-FOLDER update_exports"
  exit 1
fi
