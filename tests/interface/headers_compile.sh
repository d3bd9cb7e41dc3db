#!/usr/bin/env bash
# headers_compile.sh COMPILER STANDARD LANGUAGE FLAGS HEADER …
#
# Compiles every header alone, then all together, forwards and backwards, without a warning.
set -euo pipefail
compiler=$1 standard=$2 language=$3
read -ra flags <<<"$4"
shift 4

check() { # headers, one a line, on standard input
  sed 's/.*/#include <&>/' |
    "$compiler" "-std=$standard" -x "$language" -fsyntax-only -Wall -Wextra -Wpedantic -Werror "${flags[@]}" - ||
    { echo "with $compiler -std=$standard: $1" >&2; exit 1; }
}

for header; do
  echo "$header" | check "$header alone"
done
printf '%s\n' "$@" | check "all together"
printf '%s\n' "$@" | tac | check "all together, backwards"
