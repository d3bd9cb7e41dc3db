#!/usr/bin/env bash
# digest.sh PROGRAM
#
# Runs in the private view: a line for each file, in order; standard input for "-"; what cannot be read is told and
# skipped; wrong use.
set -uo pipefail
program=$1
directory=$(mktemp -d) || exit 1
trap 'rm -rf "$directory"' EXIT
cd "$directory" || exit 1

printf '' >empty
printf 'a' >a
printf 'abc' >abc
printf 'message digest' >text
printf 'a\0b' >binary
head -c 200000 /dev/zero >large # more than the program reads at once

# expect STATUS, then the arguments; standard input holds the expected output, "input" what the program reads.
expect() {
  local status=$1
  shift
  diff - <("$program" "$@" <input 2>messages; echo "exit $?") <<<"$(cat; echo "exit $status")" || {
    echo "digest $*: the output differs"
    exit 1
  }
}

# expect_message TEXT: what stands on standard error after the last run.
expect_message() {
  diff - messages <<<"$1" || { echo "the message differs"; exit 1; }
}

cp abc input
expect 0 empty a abc text binary large <<'TEXT'
e4c23762ed2823a27e62a64b95c024e7  empty
793a9bc07e209b286fa416d6ee29a85d  a
7999dc75e8da648c6727e137c5b77803  abc
840793371ec58a6cc84896a5153095de  text
a8a8a62a859acfbc2e53c6b122d27d49  binary
e3fc32805345e28b744bb7cdd5bd687e  large
TEXT
[ ! -s messages ] || { echo "something stands on standard error"; exit 1; }

# Read to its end, standard input is empty the second time.
expect 0 - a - <<'TEXT'
7999dc75e8da648c6727e137c5b77803  -
793a9bc07e209b286fa416d6ee29a85d  a
e4c23762ed2823a27e62a64b95c024e7  -
TEXT

cp large input
expect 0 - <<'TEXT'
e3fc32805345e28b744bb7cdd5bd687e  -
TEXT

expect 1 a missing abc <<'TEXT'
793a9bc07e209b286fa416d6ee29a85d  a
7999dc75e8da648c6727e137c5b77803  abc
TEXT
expect_message 'digest: missing: No such file or directory'

expect 1 . a <<'TEXT'
793a9bc07e209b286fa416d6ee29a85d  a
TEXT
expect_message 'digest: .: Is a directory'

"$program" a >printed 2>messages <&- || { echo "a file without standard input: exit status $?"; exit 1; }
"$program" - >printed 2>messages <&-
[ $? = 1 ] || { echo "without standard input the exit status is not 1"; exit 1; }
[ ! -s printed ] || { echo "a digest of nothing was printed"; exit 1; }

"$program" >printed 2>messages
[ $? = 64 ] || { echo "without a file the exit status is not 64"; exit 1; }
[ ! -s printed ] || { echo "something stands on standard output"; exit 1; }
expect_message 'usage: digest FILE …'

"$program" a >/dev/full 2>messages
[ $? = 1 ] || { echo "where nothing can be written the exit status is not 1"; exit 1; }
expect_message 'digest: standard output: No space left on device'
