#!/usr/bin/env bash
# in_c.sh BUILD SOURCE
#
# A host in C alone is built and runs, with the library's sources in its own tree and with an installed library. The
# library that is built already stands in for the one that the host would build.
set -euo pipefail
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset CMAKE_PREFIX_PATH DESTDIR CMAKE_GENERATOR CFLAGS
cp -r "$source/tests/consumers/in_c" "$scratch/project"
cd "$scratch"

fail() { echo "$*" >&2; exit 1; }
configure() { cmake -S project -B "$1" "${@:2}" >log 2>&1 || { cat log >&2; fail "$1: cannot be configured"; }; }
expect_running() {
  local printed
  printed=$("$1/host")
  [ "$printed" = "42 1" ] || fail "$1: $printed"
}

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
configure installed -DCMAKE_PREFIX_PATH="$scratch/prefix"
cmake --build installed >/dev/null
expect_running installed

configure subdirectory "-DLIBRARY_SOURCE=$source"
cp -P "$build"/libkelp_cmn_4_4.so* subdirectory/library/
cmake --build subdirectory --target host/fast >/dev/null
expect_running subdirectory
