#!/usr/bin/env bash
# same_host.sh PROGRAM
#
# What the example prints of the hosts of the network tests, and its exit status.
set -uo pipefail
here=$(dirname "$0")
[ -n "${KELP_VIEW_ETC-}" ] || exec "$here/../support/private_view" --etc "$here/../resources/etc" "$0" "$@"
program=$1

# expect STATUS ARG …: the whole output comes from standard input.
expect() {
  local status=$1 output
  shift
  output=$("$program" "$@" 2>/dev/null; echo "status $?")
  diff - <(echo "$output") <<<"$(cat; echo "status $status")" || exit 1
}

expect 0 multi 9.1.1.1 <<'TEXT'
multi
  name:                 multi
  fully qualified name: ten.example
  addresses:            10.0.0.9 200.0.0.1 9.1.1.1
9.1.1.1
  name:                 nine.example
  fully qualified name: nine.example
  addresses:            9.1.1.1
the same host
TEXT

expect 0 twin-a TWIN-B <<'TEXT'
twin-a
  name:                 twin-a
  fully qualified name: twin.example
  addresses:            10.0.1.1
TWIN-B
  name:                 TWIN-B
  fully qualified name: twin.example
  addresses:            10.0.1.2
the same host
TEXT

expect 1 10.0.0.50 2001:DB8::6 <<'TEXT'
10.0.0.50
  name:                 MIXED.Example
  fully qualified name: MIXED.Example
  addresses:            10.0.0.50
2001:DB8::6
  name:                 six.example
  fully qualified name: six.example
  addresses:            2001:db8::6
different hosts
TEXT

expect 1 nowhere "" <<'TEXT'
nowhere
  name:                 nowhere
  fully qualified name: (none)
  addresses:            (none)

  name:                 (none)
  fully qualified name: (none)
  addresses:            (none)
different hosts
TEXT

message=$("$program" 2>&1 >/dev/null)
[ "$message" = 'usage: same_host NAME_OR_ADDRESS NAME_OR_ADDRESS' ] || { echo "wrong use says: $message"; exit 1; }
"$program" multi multi >/dev/full 2>/dev/null
[ $? = 2 ] || { echo "where nothing can be written the exit status is not 2"; exit 1; }

expect 64 </dev/null
expect 64 multi </dev/null
expect 64 multi 9.1.1.1 dual </dev/null
