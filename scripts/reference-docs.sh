#!/bin/sh
# Writes the references in docs/ from the tables that the program prints; with --check it only shows what is out of date:
#   scripts/reference-docs.sh build/release/bin/yinet [--check]
set -eu
program=$1 mode=${2:-}
docs=$(dirname -- "$(readlink -f -- "$0")")/../docs

yinet() { env -i "$program" --language en "$@"; } # whatever settings this shell has: the defaults count

functions_doc() {
  cat <<TEXT
# Script functions

Made from the library's own table by \`scripts/reference-docs.sh\`. \`yinet functions NAME\` prints the same for one
function. Each takes a record of parameters and leaves its results there, "_RETV" first of all; an input that is absent
counts as empty, 0 or false.
TEXT
  yinet functions | awk '/^  [A-Z]/ {print $1}' | while read -r name; do
    printf '\n## %s\n\n```\n' "$name"
    yinet functions "$name" | sed '1d'
    printf '```\n'
  done
}

messages_doc() {
  cat <<TEXT
# Messages

Made from the library's own catalogue by \`scripts/reference-docs.sh\`. \`yinet messages NUMBER\` prints one of them. "\$1\$" to
"\$9\$" stand for what a message is about. Levels: 2 failures of connections and TLS, 5 missing parameters, 6 failed
operations, 8 accepted connections and host keys; \`yinet\` writes level 8 and traces only with \`--trace\`.
TEXT
  yinet messages --full | awk '
    /^[0-9]/ { print "\n## " $0 "\n" }
    /^  English: / { sub(/^  English: /, ""); print "- `" $0 "`" }
    /^  German: / { sub(/^  German: /, ""); print "- `" $0 "`" }
    /^  Cure: / { sub(/^  Cure: /, ""); print "\n" $0 }'
}

settings_doc() {
  cat <<TEXT
# Settings

Made from the library's own table by \`scripts/reference-docs.sh\`. \`yinet settings\` prints the values in force. A setting
comes from \`--set SECTION/KEY=VALUE\`, from the environment variable in its last column, or from the settings file.

| Setting | Default | Unit | Meaning | Environment |
|---|---|---|---|---|
TEXT
  yinet settings | sed -nE '
    /^[^ ]/ { s/ = .*//; h }
    /^    / { s/\|/\\|/g; s/^    (.*) \(([^;(]*); default "(.*)"; environment ([A-Z0-9_]*)\)$/ | `\3` | \2 | \1 | `\4` |/
              s/ `` / /; H; g; s/\n//; s/^/| /; p }'
}

outdated=0
for kind in functions messages settings; do
  file=$docs/$kind.md
  [ $kind != functions ] || file=$docs/script-functions.md
  if [ "$mode" = --check ]; then
    "${kind}_doc" | diff -u --label "$file" --label now "$file" - || outdated=1
  else
    "${kind}_doc" >"$file"
  fi
done
[ $outdated = 0 ] || echo "To mend it: scripts/reference-docs.sh $program"
exit $outdated
