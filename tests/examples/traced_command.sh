#!/usr/bin/env bash
# traced_command.sh PROGRAM
#
# Runs in the private view: the command's output, the result, and the trace file. The level of the first run is the one
# that the configuration file keeps.
set -uo pipefail
program=$1
mkdir -p /usr/tulsk/krellvane/logs /usr/tulsk/lib/kelp
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
cd "$scratch"

"$program" --level 3 '/bin/echo "two words" here' >out 2>err
status=$?
[ $status = 0 ] || { echo "exit status $status"; cat err; exit 1; }
diff - out <<<'two words here' || exit 1
diff - err <<'TEXT' || exit 1
result: 0 (the command succeeded)
last error: 
trace file: /usr/tulsk/krellvane/logs/zorvt//traced_command.log
TEXT

"$program" --level 3 '/bin/ls /no/such/file' >out 2>err
status=$?
case $status in
  11 | 12) ;; # which of the two ways saw the child's end
  *) echo "a failing command: exit status $status"; cat err; exit 1 ;;
esac
grep -q '/no/such/file' out || { echo "the command's messages are missing"; exit 1; }
grep -q "^result: $status " err || { cat err; exit 1; }
[ -s /usr/tulsk/krellvane/logs/zorvt/traced_command.log ] || { echo "no trace was written"; exit 1; }

"$program" 2>err
status=$?
[ $status = 64 ] || { echo "without a command: exit status $status"; exit 1; }
