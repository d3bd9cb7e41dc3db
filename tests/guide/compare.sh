#!/usr/bin/env bash
# compare.sh PROGRAM EXPECTED EXAMPLES RESOURCES
#
# Runs in the private view, where it makes what the host product's installation makes, with the configuration file and
# the message files of the guide: whether PROGRAM ends with status 0 and prints, on standard output and then on standard
# error, what stands in the file EXPECTED.
set -uo pipefail
scratch=$(mktemp -d) || exit 1
trap 'rm -r "$scratch"' EXIT
mkdir -p /usr/tulsk/krellvane/logs /usr/tulsk/lib/kelp/configfiles
cp "$3/backupd.conf" /usr/tulsk/lib/kelp/configfiles/
cp -r "$4" /usr/tulsk/resources

"$1" >"$scratch/out" 2>"$scratch/err"
status=$?
[ $status = 0 ] || { echo "exit status $status"; cat "$scratch/out" "$scratch/err"; exit 1; }
cat "$scratch/err" >>"$scratch/out"
diff "$2" "$scratch/out" || { echo "the output (>) is not that of $2 (<)"; exit 1; }
