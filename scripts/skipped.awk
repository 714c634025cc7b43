# Reads ctest's JUnit file and prints one line for each test that did not run: its name and why.
#
# Google Test writes "file:line: Skipped", then the reason in as many lines as it has, then "[  SKIPPED ] name". Any
# other test (a script) gives its reason as its whole output.

function unescaped(text) {
  gsub(/&lt;/, "<", text)
  gsub(/&gt;/, ">", text)
  gsub(/&quot;/, "\"", text)
  gsub(/&apos;/, "'", text)
  gsub(/&amp;/, "\\&", text)
  return text
}

function attribute(name) {
  if (!match($0, " " name "=\"[^\"]*\"")) return ""
  return unescaped(substr($0, RSTART + length(name) + 3, RLENGTH - length(name) - 4))
}

/<testcase / {
  test = attribute("name")
  status = attribute("status")
  reason = ""
  reading = 0
}

status != "notrun" {
  if (status == "disabled" && /<\/testcase>/) print "  " test ": disabled in its source"
  next
}

/<\/testcase>/ {
  print "  " test ": " (reason == "" ? "no reason given" : reason)
  next
}

{
  line = $0
  if (sub(/.*<system-out>/, "", line)) reading = line !~ /^Running main\(\)/
  ends = sub(/<\/system-out>.*/, "", line) || line ~ /^\[  SKIPPED \]/
  if (reading && line ~ /[^ \t]/ && line !~ /^\[  SKIPPED \]/) reason = reason (reason == "" ? "" : " ") unescaped(line)
  if (ends) reading = 0
  if (line ~ /: Skipped$/) reading = 1
}
