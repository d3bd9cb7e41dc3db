#!/usr/bin/env bash
# result_codes.sh ROOT
#
# Each result code of the exec pipe stands in every place that lists them all: the tests, which pin its number, the
# example that says its meaning, and the guide's table.
set -euo pipefail
cd "$1"

codes=$(sed -n 's/^constexpr int \(execPipe[A-Za-z]*\) = \([0-9]*\);.*/\1 \2/p' cmn/include/cmnexecpipebase.h)
[ -n "$codes" ] || { echo "the header has no result code" >&2; exit 1; }

missing=0
expect() {  # FILE TEXT
  grep -qF "$2" "$1" && return
  echo "$1 lacks: $2" >&2
  missing=1
}
while read -r name number; do
  expect tests/cmnexecpipebase_test.cpp "EXPECT_EQ($name, $number);"
  expect examples/traced_command.cpp "case $name:"
  expect docs/guide/processes.md "| $number | \`$name\` |"
done <<<"$codes"
exit "$missing"
