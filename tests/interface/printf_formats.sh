#!/usr/bin/env bash
# printf_formats.sh COMPILER STANDARD LANGUAGE INCLUDE_DIRECTORY …
#
# What a compiler says of the printf formats in a host's calls under -Wformat: of each wrong one a warning, of the right
# ones nothing. In C the calls of the Q_ routines, in C++ those of the trace log, too.
set -euo pipefail
compiler=$1 standard=$2 language=$3
shift 3
directories=("${@/#/-I}")
fail() { echo "with $compiler -std=$standard: $*" >&2; exit 1; }

calls() { sed -n "s/^$1: //p" | { [ "$language" = c++ ] && cat || grep -v log; } }
compile() { # calls, one a line, on standard input
  { cat <<'CODE'; cat; echo '}'; } |
#include <Q_strings.h>
#ifdef __cplusplus
#include <cmntracelog.h>
void check(char* buffer, size_t size, va_list args, kelp_cmn_4_4::CCmnTraceLog& log);
void check(char* buffer, size_t size, va_list args, kelp_cmn_4_4::CCmnTraceLog& log) {
#else
void check(char* buffer, size_t size, va_list args);
void check(char* buffer, size_t size, va_list args) {
#endif
#line 1
CODE
    "$compiler" "-std=$standard" -x "$language" -fsyntax-only "$@" "${directories[@]}" -
}

all=$(cat <<'CALLS'
wrong: Q_snprintf(buffer, size, "%d", "text");
wrong: Q_snprintf(buffer, size, "%s", 1);
wrong: Q_snprintf(buffer, size, "%s %d", "text");
wrong: Q_snprintf(buffer, size, "text", 1);
wrong: Q_vsnprintf(buffer, size, "%d %", args);
wrong: log.trace(1, "%d", "text");
wrong: log.trace(1, "%s", 1);
wrong: log.trace(1, "%s %d", "text");
wrong: log.trace(1, "text", 1);
right: Q_snprintf(buffer, size, "%s %5d %-8.3f %zu%%", "text", 1, 2.0, size);
right: Q_snprintf(buffer, size, "errno: %m");
right: Q_vsnprintf(buffer, size, "%s %d", args);
right: log.trace(1, "%s failed, errno %d", "open", 2);
right: log.trace(1, "text");
right: log.trace(1, nullptr);
CALLS
)

wrong=$(calls wrong <<<"$all")
said=$(compile -Wformat <<<"$wrong" 2>&1)
for ((line = 1; line <= $(wc -l <<<"$wrong"); ++line)); do
  grep -E "^<stdin>:$line:.* warning: .*\[-Wformat[a-z-]*=?\]" <<<"$said" >/dev/null ||
    fail "no warning of: $(sed -n "${line}p" <<<"$wrong")"$'\n'"$said"
done
calls right <<<"$all" | compile -Wformat -Werror || fail "a warning of a right format"

expansion=$("$compiler" "-std=$standard" -x "$language" -E -P -U__GNUC__ "${directories[@]}" - \
  <<<$'#include <cmnexport.h>\n[KELP_CMN_FORMAT(1, 2)]')
[ "$(tail -n 1 <<<"$expansion")" = "[]" ] || fail "without the attribute KELP_CMN_FORMAT is $expansion"
