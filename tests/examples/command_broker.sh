#!/usr/bin/env bash
# command_broker.sh PROGRAM
#
# The lines and the result code of commands that the broker runs; its death told; nothing left running; wrong use.
set -uo pipefail
program=$1
directory=$(mktemp -d) || exit 1
trap 'rm -rf "$directory"' EXIT
cd "$directory" || exit 1

# expect STATUS, then the arguments; standard input holds the expected output, times left out.
expect() {
  local status=$1
  shift
  "$program" "$@" >out 2>err
  local got=$?
  [ $got = "$status" ] || { echo "command_broker $*: exit status $got"; cat err; exit 1; }
  diff - <(sed 's/[0-9.]* ms/TIME/g' out) || { echo "command_broker $*: the output differs"; exit 1; }
}

expect 0 20 "/usr/bin/printf 'one\ntwo'" <<'TEXT'
one
two
result code: 0
in a host of 20 MiB: TIME through the broker, TIME without it
the broker's death is told
TEXT
expect 7 1 /no/such/file <<'TEXT'
result code: 7
in a host of 1 MiB: TIME through the broker, TIME without it
the broker's death is told
TEXT
"$program" 1 2 3 >out 2>err
[ $? = 64 ] || { echo "with too many arguments: another exit status"; exit 1; }
grep -q '^usage: ' err || { echo "the usage is missing"; exit 1; }
