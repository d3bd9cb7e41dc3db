#!/usr/bin/env bash
# message_files.sh BUILD SOURCE
#
# A foreign project compiles message files with what is installed, from lists of every kind, and reads what it made: as
# a directory and as a package. Without ICU's tools it is told what is missing.
set -euo pipefail
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset CMAKE_PREFIX_PATH DESTDIR

fail() { echo "$*" >&2; exit 1; }

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
cp -r "$source/tests/consumers/message_files" "$scratch/a project"
cd "$scratch"

configure() { cmake -S "a project" -B "$1" -DCMAKE_PREFIX_PATH="$scratch/prefix" "${@:2}"; }
if configure refused -DWITHOUT_TOOLS=ON >log 2>&1; then
  fail "without ICU's tools the project can be configured"
fi
tr -s ' \n' ' ' <log | grep -F "needs ICU's programs genrb and icupkg (Debian: icu-devtools)" >/dev/null ||
  fail "nothing tells that ICU's tools are missing: $(<log)"

configure "its build" >/dev/null
cmake --build "its build" >log || fail "$(<log)"

expect() { # GREETING LIST LOCALE
  local greeting
  greeting=$("its build/greet" "$scratch/its build/resources/lib$2" "$3")
  [ "$greeting" = "$1" ] || fail "$form, $2, $3: $greeting"
}
everything() {
  expect olá country pt_BR
  expect 您好 script zh_Hant
  expect olá absolute pt_BR
  expect olá everywhere pt_BR
  expect hello everywhere en_GB
  expect 你好 everywhere zh_Hans
}
mkdir packages
form=directories
mv "its build"/resources/*.dat packages/
everything
form=packages
rm -r "its build"/resources/lib*
mv packages/*.dat "its build/resources/"
everything
