#!/usr/bin/env bash
# hardening.sh LIBRARY
#
# Names, a line each, the protections that a shared library lacks; fails if there is one.
set -euo pipefail
export LC_ALL=C
segments=$(readelf --segments --wide "$1")
dynamic=$(readelf --dynamic --wide "$1")
undefined=$(nm --dynamic --undefined-only --format=just-symbols "$1")
unresolved=$(ldd -r "$1" 2>&1 | grep -E 'undefined symbol|not found' || true)
status=0

has() { grep -E "$2" <<<"$1" >/dev/null; } # TEXT PATTERN
lacks() { echo "$1"; status=1; }

has "$segments" '^ *GNU_RELRO ' || lacks "read-only relocations"
has "$dynamic" '\(BIND_NOW\)|\(FLAGS\) .*BIND_NOW|\(FLAGS_1\) .* NOW' || lacks "immediate binding"
has "$undefined" '^__stack_chk_fail(@|$)' || lacks "stack protector"
has "$undefined" '^__[a-z]+_chk(@|$)' || lacks "fortified source"
has "$segments" '^ *GNU_STACK .* RW +0x' || lacks "data-only stack"
! has "$dynamic" '\(TEXTREL\)|\(FLAGS\) .*TEXTREL' || lacks "unrelocated text"
! has "$dynamic" '\((RPATH|RUNPATH)\)' || lacks "no search path"
[ -z "$unresolved" ] || { lacks "definitions"; echo "$unresolved" >&2; }
exit $status
