#!/usr/bin/env bash
# hardening_test.sh COMPILER LIBRARY BUILD_DIRECTORY
#
# The library must have every protection, as built and as installed from the build directory. First a small library is
# built without each of them in turn: what it lacks must be named.
set -euo pipefail
unset DESTDIR
hardening=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/hardening.sh
compiler=$1 library=$2 build=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cat >"$scratch/small.cpp" <<'CPP'
#include <cstdio>
#include <cstring>
int elsewhere();
int number;
int* show(const char* text) {
  char line[64];
  std::strcpy(line, text);
  std::puts(line);
#ifdef CALL_ELSEWHERE
  number = elsewhere();
#endif
  return &number;
}
CPP
protected=(-O2 -fPIC -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong
  -shared "-Wl,-z,relro,-z,now,-z,noexecstack,-z,defs")

# expect LACKING [FLAG …]: what the small library lacks when these flags come last
expect() {
  "$compiler" "${protected[@]}" "${@:2}" "$scratch/small.cpp" -o "$scratch/small.so"
  local lacking
  lacking=$("$hardening" "$scratch/small.so" 2>/dev/null) || [ -n "$lacking" ] || lacking="(failed without a name)"
  [ "$lacking" = "$1" ] ||
    { echo "built with '${*:2}', the small library should lack '$1', and is said to lack '$lacking'" >&2; exit 1; }
}
expect ""
expect "read-only relocations" -Wl,-z,norelro
expect "immediate binding" -Wl,-z,lazy
expect "stack protector" -fno-stack-protector
expect "fortified source" -U_FORTIFY_SOURCE
expect "data-only stack" -Wl,-z,execstack
expect "unrelocated text" -fno-pic -mcmodel=large -Wl,-z,notext
expect "no search path" -Wl,-rpath,/nowhere,--disable-new-dtags
expect "no search path" -Wl,-rpath,/nowhere,--enable-new-dtags
expect "definitions" -DCALL_ELSEWHERE -Wl,-z,undefs

"$hardening" "$library"

cmake --install "$build" --component runtime --prefix "$scratch/installed" >/dev/null
mapfile -t installed < <(find "$scratch/installed" -type f -name '*.so*')
[ ${#installed[@]} -gt 0 ] || { echo "no library is installed" >&2; exit 1; }
for file in "${installed[@]}"; do
  "$hardening" "$file"
done
