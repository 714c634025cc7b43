#!/usr/bin/env bash
# completion_test.sh PROGRAM COMPLETION MANUAL: every command, option, function and parameter is completed, and every
# command and option stands in the manual.
set -eu
program=$1 manual=$3 failed=0
. "$2"

completes() { # WORD... EXPECTED: the last word of the line is completed to this, among others
  COMP_WORDS=("$program" "${@:1:$#-1}") COMP_CWORD=$(($# - 1)) COMPREPLY=()
  _yinet
  printf '%s\n' "${COMPREPLY[@]}" | grep -qxF -e "${!#}" || { echo "yinet ${*:1:$#-1}: ${!#} is not offered"; failed=1; }
}
is_in_manual() { tr -d '\\' <"$manual" | grep -qE -e "$1" || { echo "yinet(1) lacks $1"; failed=1; }; }

for command in $("$program" --help | awk '/^Subcommands:/ { on = 1; next } !/^  / { on = 0 } on { print $1 }'); do
  is_in_manual "^\.SS yinet $command\$"
  completes --trace "${command:0:2}" "$command"
done
for option in $("$program" --help | grep -oE '^  --[a-z]+'); do
  is_in_manual "fB$option"
  completes "" "${option:0:3}" "$option"
done
for function in $("$program" functions | awk '/^  / { print $1 }'); do completes call "${function:0:2}" "$function"; done
for line in 'call HTTP_POST pUrl = x pContentT pContentType=' 'functions HTTP_P HTTP_POST' 'ftp g get' \
  'ftp get --pr --proxy' 'ftp get --la --language' '--language d de' 'dns m mx' 'messages 2190 21901' \
  '--language de call HTTP_P HTTP_POST' 'call --json f.json HTTP_P HTTP_POST' '--log json dns m mx' \
  '--set DNS/Server = 127.0.0.1 dns m mx' '--set DNS/S DNS/Server=' 'settings DNS/S DNS/Server' \
  'charset convert --from UTF-1 UTF-16LE' 'mail compose -o x --o --out'; do
  # shellcheck disable=SC2086  # words
  completes $line
done
is_in_manual '^\.SS yinet ftp get$'
exit $failed
