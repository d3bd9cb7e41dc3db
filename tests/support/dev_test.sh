#!/usr/bin/env bash
# dev_test.sh SOURCE
#
# The script dev, in a copy of the tree: a build directory that came along from elsewhere is configured anew, and what
# cannot be written, or that no private view can be had, is said before anything is built. The path of the copy has a
# space.
set -euo pipefail
source=$1
scratch=$(mktemp -d)
trap 'chmod -R u+w "$scratch"; rm -rf "$scratch"' EXIT
fail() { echo "$*" >&2; exit 1; }

first="$scratch/a copy" second="$scratch/another place"
mkdir "$first"
(cd "$source" && tar -c --exclude=./build --exclude=./.git .) | tar -x -C "$first"

# home TREE: where CMake believes its build directory's sources to be, after dev has configured it.
home() {
  # shellcheck source=/dev/null
  (. "$1/dev" && configure moved debug -DKELP_BUILD_TESTS=OFF -DKELP_BUILD_EXAMPLES=OFF) >"$scratch/log" 2>&1 ||
    { cat "$scratch/log" >&2; fail "cannot configure $1"; }
  sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$1/build/moved/CMakeCache.txt"
}

[ "$(home "$first")" = "$first" ] || fail "the first directory is not that of its tree"
mv "$first" "$second"
[ "$(home "$second")" = "$second" ] || fail "what was moved is not configured anew"
(cd "$second/build/moved" && ninja -n >"$scratch/log") || { cat "$scratch/log" >&2; fail "it cannot be built"; }
! grep -rqF "$first" "$second/build/moved/build.ninja" || fail "it still names the old place"
rm "$second/build/moved/CMakeCache.txt"
[ "$(home "$second")" = "$second" ] || fail "what has lost its cache is not configured again"

[ "$("$second/dev" packages --help | wc -l)" = 1 ] || fail "the help of a verb has more than its own line"

# Root may write all of this, so another user tries.
refused() { # WORD COMMAND …: fails, and says so with this word, without building
  local word=$1 said
  said=$("${@:2}" 2>&1) && fail "${*:2} has not failed"
  [[ $said == *"$word"* && $said != *"==> "* ]] || fail "${*:2} says: $said"
}
chmod -R a-w "$second"
rm -rf "${second:?}/build" 2>/dev/null || true
as_ordinary_user=()
if [ "$(id -u)" = 0 ]; then
  chmod 755 "$scratch"
  as_ordinary_user=(setpriv --reuid 65534 --regid 65534 --clear-groups)
fi
refused "copy of your own" "${as_ordinary_user[@]}" "$second/dev" docs
mkdir -m 555 "$scratch/prefix"
chmod -R a+w "$second"
refused "prefix of your own" "${as_ordinary_user[@]}" "$second/dev" install "$scratch/prefix/below"

# An unshare that refuses whatever it is asked for.
mkdir "$scratch/refusing"
printf '#!/bin/sh\nexit 1\n' >"$scratch/refusing/unshare"
chmod +x "$scratch/refusing/unshare"
for verb in demo test coverage bench fuzz mutants valgrind soak faults; do
  refused CAP_SYS_ADMIN env -u KELP_PRIVATE_VIEW "PATH=$scratch/refusing:$PATH" "$second/dev" "$verb"
done
