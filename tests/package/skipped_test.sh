#!/usr/bin/env bash
# The list that ./test prints: one line for each test that did not run, with the reason that the test gave.
here=$(dirname -- "$(readlink -f -- "$0")")
diff -u --label expected --label printed - <(awk -f "$here/../../scripts/skipped.awk" "$here/skipped.xml") <<'END'
  Nginx.Serves: nginx is <missing> & "gone", install it
  Nginx.Later: disabled in its source
  Nginx.Silent: no reason given
  Shell.NeedsRoot: no root here
  Shell.NoFile: Unable to find required file: /nowhere/x
END
