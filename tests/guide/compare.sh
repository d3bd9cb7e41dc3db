#!/usr/bin/env bash
# compare.sh PROGRAM EXPECTED RESOURCES
#
# Runs in the private view, where it makes what the host product's installation makes: whether PROGRAM ends with
# status 0, prints what stands in the file EXPECTED, and has nothing to complain about.
set -uo pipefail
scratch=$(mktemp -d) || exit 1
trap 'rm -r "$scratch"' EXIT
mkdir -p /usr/tulsk/krellvane/logs /usr/tulsk/lib/kelp
[ ! -d "$3" ] || cp -r "$3" /usr/tulsk/resources

"$1" >"$scratch/out" 2>"$scratch/err"
status=$?
[ $status = 0 ] || { echo "exit status $status"; cat "$scratch/err"; exit 1; }
diff "$2" "$scratch/out" || { echo "the output differs"; exit 1; }
[ ! -s "$scratch/err" ] || { cat "$scratch/err"; exit 1; }
