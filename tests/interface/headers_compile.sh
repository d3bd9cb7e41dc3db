#!/usr/bin/env bash
# headers_compile.sh alone|together COMPILER STANDARD LANGUAGE DIRECTORY DIRECTORY HEADER …
#
# Compiles each header of the two directories alone, or all together, forwards and backwards, without a warning.
set -euo pipefail
how=$1 compiler=$2 standard=$3 language=$4
directories=("-I$5" "-I$6")
shift 6

check() { # headers, one a line, on standard input
  { sed 's/.*/#include <&>/'; echo 'extern int of_the_host;'; } | # C wants a declaration, which some headers lack
    "$compiler" "-std=$standard" -x "$language" -fsyntax-only -Wall -Wextra -Wpedantic -Werror "${directories[@]}" - ||
    { echo "with $compiler -std=$standard: $1" >&2; exit 1; }
}

alone() {
  local header
  for header; do
    echo "$header" | check "$header alone"
  done
}

together() {
  printf '%s\n' "$@" | check "all together"
  printf '%s\n' "$@" | tac | check "all together, backwards"
}

"$how" "$@"
