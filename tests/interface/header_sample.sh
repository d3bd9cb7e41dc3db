#!/usr/bin/env bash
# header_sample.sh COMPILER HEADER INCLUDE_DIRECTORY …
#
# Compiles the sample in a header's comment as it stands there, without a warning.
set -euo pipefail
compiler=$1 header=$2
shift 2

sample=$(sed -n '/@code$/,/@endcode$/s/^ \* \{0,1\}\([^@]*\)$/\1/p' "$header")
[ -n "$sample" ] || { echo "$header has no sample" >&2; exit 1; }
"$compiler" -std=c++17 -x c++ -fsyntax-only -Wall -Wextra -Wpedantic -Werror "${@/#/-I}" - <<<"$sample" ||
  { cat -n <<<"$sample" >&2; exit 1; }
