#!/usr/bin/env bash
# private_view.sh BUILD SOURCE
#
# The private view as it is installed: what a program writes below /usr/tulsk is gone with the view, what it ends with
# comes back, and --etc covers files of /etc. It says how it is called, and has a manual page.
set -euo pipefail
build=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset DESTDIR KELP_PRIVATE_VIEW KELP_VIEW_ETC

fail() { echo "$*" >&2; exit 1; }
expect() { # EXPECTED STATUS COMMAND …
  local printed status=0
  printed=$("${@:3}" 2>&1) || status=$?
  [[ $printed == $1 && $status == "$2" ]] || fail "'${*:3}' ends with $status and prints: $printed"
}

cmake --install "$build" --component development --prefix "$scratch/a prefix" >/dev/null
view="$scratch/a prefix/bin/kelp-cmn-4-4-private-view"

mkdir "$scratch/an etc"
echo "10.9.8.7 my.host" >"$scratch/an etc/hosts"
place=/usr/tulsk/view_test.$$
# shellcheck disable=SC2016
expect written 3 "$view" sh -c 'mkdir -p /usr/tulsk; echo written >"$1"; cat "$1"; exit 3' sh "$place"
[ ! -e "$place" ] || fail "the machine's own /usr was written"
expect "10.9.8.7 my.host" 0 "$view" --etc "$scratch/an etc" cat /etc/hosts
expect "$(id -u)" 0 "$view" id -u

expect "usage: kelp-cmn-4-4-private-view *--etc*" 0 "$view" --help
expect "usage: kelp-cmn-4-4-private-view *" 64 "$view"
grep -F 'private\-view \- ' "$scratch/a prefix/share/man/man1/kelp-cmn-4-4-private-view.1" >/dev/null ||
  fail "there is no manual page"
