#!/usr/bin/env bash
# headers_compile.sh COMPILER STANDARD LANGUAGE DIRECTORY DIRECTORY HEADER …
#
# Compiles every header of the two directories alone, then all together, forwards and backwards, without a warning.
set -euo pipefail
compiler=$1 standard=$2 language=$3
directories=("-I$4" "-I$5")
shift 5

check() { # headers, one a line, on standard input
  sed 's/.*/#include <&>/' |
    "$compiler" "-std=$standard" -x "$language" -fsyntax-only -Wall -Wextra -Wpedantic -Werror "${directories[@]}" - ||
    { echo "with $compiler -std=$standard: $1" >&2; exit 1; }
}

for header; do
  echo "$header" | check "$header alone"
done
printf '%s\n' "$@" | check "all together"
printf '%s\n' "$@" | tac | check "all together, backwards"
