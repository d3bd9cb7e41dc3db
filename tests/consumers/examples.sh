#!/usr/bin/env bash
# examples.sh BUILD SOURCE
#
# The installed examples are built as a project of their own, with an installed library, and one that reads message
# files is run as the tests of the examples run it; and so is the project of the guide's front page.
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

cp -r "$source/docs/examples/first_project" "$source/docs/examples/first_program.cpp" "$scratch"
mv "$scratch/first_program.cpp" "$scratch/first_project"
cmake -S "$scratch/first_project" -B "$scratch/first" -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/first" >"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
"$scratch/first/my_host" | diff "$source/docs/examples/first_program.out" -
