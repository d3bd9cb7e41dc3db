#!/usr/bin/env bash
# examples.sh BUILD SOURCE
#
# The installed examples are built as a project of their own, with an installed library, and one that reads message
# files is run as the tests of the examples run it.
set -euo pipefail
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset CMAKE_PREFIX_PATH DESTDIR

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
examples=$(dirname "$(find "$scratch/prefix" -path '*/examples/CMakeLists.txt')")
cmake -S "$examples" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/build" >"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }

for program in "$examples"/*.cpp; do
  [ -x "$scratch/build/$(basename "$program" .cpp)" ] || { echo "$program is not built" >&2; exit 1; }
done
"$source/tests/support/private_view" \
  "$source/tests/examples/message_relay.sh" "$scratch/build/message_relay" "$scratch/build/resources"
