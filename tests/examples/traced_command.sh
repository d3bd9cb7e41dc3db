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

# refuses REASON ARGUMENT …: the reason stands last.
refuses() {
  local reason=$1 status
  "$program" "${@:2}" 2>err
  status=$?
  [ $status = 64 ] || { echo "${*:2}: exit status $status"; exit 1; }
  [ "$(tail -n 1 err)" = "traced_command: $reason" ] || { cat err; exit 1; }
}
refuses 'there is no command line'
refuses 'there is no command line' --echo
refuses 'what does --timeout mean here?' --timeout soon '/bin/echo'
refuses 'a command line is one argument, in quotes: "/bin/ls -l /"' /bin/ls -l /

"$program" --timeout 1 '/bin/sleep 2' 2>err
status=$?
[ $status = 5 ] || { echo "a silent command: exit status $status"; exit 1; }
[ "$(tail -n 1 err)" = "The command still runs: waiting for its end, 30 seconds at most." ] || { cat err; exit 1; }
