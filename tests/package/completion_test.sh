#!/usr/bin/env bash
# completion_test.sh PROGRAM COMPLETION MANUAL: completes every command, function and parameter, and the manual names every
# command and option.
set -eu
program=$1 manual=$3
. "$2"
failed=0

completes() { # WORD... EXPECTED: the last word of the line is completed to this, among others
  COMP_WORDS=("$program" "${@:1:$#-1}") COMP_CWORD=$(($# - 1)) COMPREPLY=()
  _yinet
  printf '%s\n' "${COMPREPLY[@]}" | grep -qxF -e "${!#}" || { echo "yinet ${*:1:$#-1}: ${!#} is not offered"; failed=1; }
}
is_in_manual() { tr -d '\\' <"$manual" | grep -qE -e "$1" || { echo "yinet(1) lacks $1"; failed=1; }; }

commands=$("$program" --help | awk '/^Subcommands:/ { on = 1; next } !/^  / { on = 0 } on { print $1 }')
functions=$("$program" functions | awk '/^  / { print $1 }')
[ -n "$commands" ] && [ -n "$functions" ]
for command in $commands; do
  completes --trace "${command:0:2}" "$command"
  is_in_manual "^\.SS yinet $command\$"
done
for option in $("$program" --help | grep -oE '^  --[a-z]+'); do
  completes "" "${option:0:3}" "$option"
  is_in_manual "fB$option"
done
for function in $functions; do
  completes call "${function:0:2}" "$function"
  completes functions "" "$function"
done
completes call HTTP_POST pC pContent=
completes call HTTP_POST pUrl = x pContentT pContentType=
completes ftp g get
completes ftp get --pr --proxy
completes ftp get --la --language
completes --language d de
completes dns m mx
completes messages 2190 21901
is_in_manual '^\.SS yinet ftp get$'
exit $failed
