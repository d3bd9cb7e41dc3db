#!/usr/bin/env bash
# abi_test.sh LIBRARY (CHANGED_COPY NAME) …
#
# The library must have the interface of the baseline. First each changed copy must be refused, with a report of what
# NAME matches.
set -euo pipefail
abi=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/abi.sh
library=$1
shift

while [ $# -gt 0 ]; do
  if report=$("$abi" --compare "$1" 2>&1); then
    echo "a changed copy passes: $1" >&2
    exit 1
  fi
  grep -E "$2" <<<"$report" >/dev/null || { printf 'no report of %s for %s:\n%s\n' "$2" "$1" "$report" >&2; exit 1; }
  shift 2
done
"$abi" --compare "$library"
