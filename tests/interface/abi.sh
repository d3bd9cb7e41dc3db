#!/usr/bin/env bash
# abi.sh --compare|--update LIBRARY
#
# Compares a library that has debug information with the baseline, which holds its exported symbols and the layout of
# its public types; fails with abidiff's report on any difference, additions included. Or renews the baseline.
set -euo pipefail
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
baseline=$here/abi_baseline.xml
options=(--exported-interfaces-only --suppressions "$here/abi.suppressions" --no-corpus-path --no-show-locs)

compare() {
  local status=0
  abidiff "${options[@]}" --no-default-suppression "$baseline" "$1" || status=$?
  [ "$status" = 0 ] || { echo "abidiff ended with status $status" >&2; exit 1; }
}

# The baseline names no directory of the machine that made it, and its type ids stay when other types come or go.
update() {
  abidw "${options[@]}" --no-comp-dir-path --no-parameter-names --no-elf-needed --drop-undefined-syms \
    --type-id-style hash "$1" | sed -E "s#(<abi-instr .*path=')[^']*/(cmn|qtools)/#\1\2/#" >"$baseline.new"
  mv "$baseline.new" "$baseline"
}

# Without debug information abidiff would compare the symbols alone, and say nothing.
readelf --sections --wide "$2" | grep -F ' .debug_info ' >/dev/null ||
  { echo "$2 has no debug information" >&2; exit 1; }
case $1 in
  --compare) compare "$2" ;;
  --update) update "$2" ;;
  *) exit 64 ;;
esac
