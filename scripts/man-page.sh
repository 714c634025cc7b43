#!/bin/sh
# Writes the manual page yinet(1) to standard output, from the help texts of the program: scripts/man-page.sh PROGRAM
set -eu
program=$1
version=$("$program" --version)

# One help text as roff. The rows of its tables become tagged paragraphs, examples stay as they are.
roff() {
  awk -v heading="$1" '
    function escaped(text) {
      gsub(/\\/, "\\e", text); gsub(/-/, "\\-", text)
      return text ~ /^[.\047]/ ? "\\\\&" text : text
    }
    function verbatim(on) { if (on != is_verbatim) print on ? ".nf" : ".fi"; is_verbatim = on }
    function flush() {
      # The footer of the program stands in the help of commands that have none of their own, too.
      if (footer !~ /yinet COMMAND .*help/ || heading == "") printf "%s", footer
      footer = ""
    }
    NR == 1 { if (heading != "") printf ".SS %s\n%s\n", heading, escaped($0); next }
    /^Usage: / { if (heading != "") printf ".P\n.B %s\n", escaped(substr($0, 8)); next }
    /^Examples:$/ { in_footer = 1 }
    in_footer {
      if ($0 ~ /^  /) footer = footer (quoted ? "" : ".P\n.nf\n") escaped($0) "\n"
      else footer = footer (quoted ? ".fi\n" : "") (/:$/ ? ".P\n" : "") ($0 == "" ? ".P\n" : escaped($0) "\n")
      quoted = $0 ~ /^  /
      next
    }
    /^[A-Z][a-z ]*:$/ { is_table = $0 ~ /^(Options|Positionals|Subcommands):$/; heading_due = $0; next }
    /^  -h,--help / { next }
    /^  / && heading_due != "" { printf ".P\n%s\n", escaped(heading_due); heading_due = "" }
    /^  / && is_table {
      name = text = substr($0, 3)
      sub(/  +.*| \.\.\. .*/, "", name)
      if (text ~ /^[^ ]+( [^ ]+)? \.\.\. /) { sub(/ \.\.\. .*/, " ...", name); sub(/.* \.\.\. +/, "", text) }
      else if (match(text, /  +/)) text = substr(text, RSTART + RLENGTH)
      else { name = substr($0, 3, 27); text = substr($0, 31) }
      printf ".TP\n\\fB%s\\fR\n%s\n", escaped(name), escaped(text)
      next
    }
    { verbatim($0 ~ /^  /); if ($0 != "") print escaped($0) }
    END { verbatim(0); flush(); if (quoted) print ".fi" }'
}

commands_of() { "$program" "$@" --help | awk '/^Subcommands:/ { on = 1; next } !/^  / { on = 0 } on { print $1 }'; }

cat <<TEXT
.TH YINET 1 "" "$version" "User Commands"
.SH NAME
yinet \- $("$program" --help | sed -n '1s/^YInet: \(.*\)\.$/\1/p')
.SH SYNOPSIS
.B yinet
.RI [ options ]
.I command
.RI [ arguments ]
.SH DESCRIPTION
Puts the functions of the library
.I libyinet.so
on the command line. Options of the program may stand before and behind the command.
TEXT
"$program" --help | roff ''
echo .SH COMMANDS
for command in $(commands_of); do
  "$program" "$command" --help | roff "yinet $command"
  for part in $(commands_of "$command"); do
    "$program" "$command" "$part" --help | sed '/^Examples:$/,$d' | roff "yinet $command $part"
  done
done
cat <<'TEXT'
.SH ENVIRONMENT
.TP
.B YINET_SETTINGS
A file with settings.
.TP
.BI YINET_ SECTION _ KEY
The value of one setting, such as YINET_HTTP_ABFRAGEN; "yinet settings" names them all.
.TP
.BR YINET_PASSWORD ", " YINET_FTP_PASSWORD ", " YINET_SFTP_PASSWORD
Passwords of the server's account for the commands get, put and their kin, ftp, and sftp.
.TP
.B YINET_SFTP_KEY_PASSWORD
The password of the private key that \-\-key names.
.TP
.B YINET_PROXY_PASSWORD
The password of the proxy's account.
.SH EXIT STATUS
TEXT
"$program" get --help | sed -n '/^Exit status:/,$p' | sed 's/^Exit status: //' | tr '\n' ' ' |
  sed -E 's/([0-9]) ([^,]*(\([^)]*\))?[^,]*)(, |\. *$)/.TP\n.B \1\n\2\n/g'
cat <<'TEXT'
.P
The statuses from 3 to 7 are those of the commands that move files.
.SH SEE ALSO
The commands themselves tell what there is: "yinet functions", "yinet messages" and "yinet settings".
TEXT
