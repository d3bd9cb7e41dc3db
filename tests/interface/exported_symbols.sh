#!/usr/bin/env bash
# exported_symbols.sh LIBRARY EXPECTED
#
# Compares what the library exports with the checked list; prints what is new (>) and what is gone (<).
set -euo pipefail
diff "$2" <(nm --dynamic --defined-only --format=just-symbols "$1" | LC_ALL=C sort)
