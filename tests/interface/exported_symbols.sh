#!/usr/bin/env bash
# exported_symbols.sh LIBRARY COMPILER
#
# Compares what the library exports, in whatever way it is built, with the baseline; prints what is new (>) and what is
# gone (<). Exported data members carry the prefix of all data members: prints those that do not.
set -euo pipefail
baseline=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/abi_baseline.xml
expected=$(sed -n "s/.*<elf-symbol name='\([^']*\)'.*/\1/p" "$baseline" | LC_ALL=C sort)
# clang++ makes no constructors for whole objects of an abstract class, as there are none.
[ "$2" != Clang ] || expected=$(grep -v '^_ZN12kelp_cmn_4_416CCmnExecPipeBaseC1E' <<<"$expected")
diff - \
  <(nm --dynamic --defined-only --format=just-symbols "$1" | LC_ALL=C sort) <<<"$expected"
! nm --dynamic --defined-only --demangle "$1" | grep -E '^[0-9a-f]+ [BDRu] ' |
  grep -vE '::m_[A-Za-z]+$| (vtable|VTT|typeinfo|typeinfo name) for '
