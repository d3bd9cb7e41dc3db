#!/usr/bin/env bash
# private_view_test.sh VIEW
#
# A view can be had by root without the right to mount, and where none can be had that is said.
set -euo pipefail
view=$1
unset KELP_PRIVATE_VIEW
fail() { echo "$*" >&2; exit 1; }

in_view="mkdir -p /usr/tulsk/private_view_test; id -u"
[ "$("$view" bash -euc "$in_view")" = "$(id -u)" ] || fail "the view has another user"
[ ! -e /usr/tulsk/private_view_test ] || fail "the view has written into the machine's own /usr"

# What a container without CAP_SYS_ADMIN leaves to root.
if [ "$(id -u)" = 0 ] && unshare --user --map-root-user --mount true 2>/dev/null; then
  user=$(setpriv --bounding-set -sys_admin --inh-caps -sys_admin "$view" bash -euc "$in_view") ||
    fail "root without the right to mount gets no view"
  [ "$user" = 0 ] || fail "root has become $user"
fi

# An unshare that refuses whatever it is asked for.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
printf '#!/bin/sh\nexit 1\n' >"$scratch/unshare"
chmod +x "$scratch/unshare"
status=0
said=$(PATH=$scratch:$PATH "$view" true 2>&1) || status=$?
[ "$status" = 125 ] || fail "without a view the status is $status"
[[ $said == *CAP_SYS_ADMIN* ]] || fail "without a view it says: $said"
