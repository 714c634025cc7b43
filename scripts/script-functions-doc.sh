#!/bin/sh
# Writes docs/script-functions.md to standard output, from the table that the program prints:
#   scripts/script-functions-doc.sh build/release/bin/yinet > docs/script-functions.md
set -eu
yinet=$1
cat <<TEXT
# Script functions

Made from the library's own table by \`scripts/script-functions-doc.sh\`. \`yinet functions NAME\` prints the same for one
function. Each takes a record of parameters and leaves its results there, "_RETV" first of all; an input that is absent
counts as empty, 0 or false.
TEXT
"$yinet" --language en functions | awk '/^  [A-Z]/ {print $1}' | while read -r name; do
  printf '\n## %s\n\n```\n' "$name"
  "$yinet" --language en functions "$name" | sed '1d'
  printf '```\n'
done
