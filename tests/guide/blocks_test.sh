#!/usr/bin/env bash
# blocks_test.sh
#
# What the check of the blocks finds, on a page of its own, and what renewing makes of it.
set -uo pipefail
blocks=$(cd "$(dirname "$0")" && pwd)/blocks
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
mkdir -p "$scratch/docs/guide" "$scratch/docs/examples"
page=$scratch/docs/guide/page.md
status=0

# write LINE … : a page with a block of these lines
write() { printf '%s\n' 'Text.' '<!-- ../examples/a.out -->' '```text' "$@" '```' >"$page"; }
# expect STATUS OPTION [LINE …]: of the messages, the last line left out
expect() {
  local output expected
  output=$("$blocks" "$2" "$scratch" 2>&1)
  [ $? = "$1" ] || { echo "$2 ends with another status than $1: $output"; status=1; }
  expected=$(printf '%s\n' "${@:3}")
  [ "$(grep -v -- '--renew writes' <<<"$output")" = "$expected" ] || { echo "$2 says: $output"; status=1; }
}

printf 'one\ntwo \\n & <three>\n' >"$scratch/docs/examples/a.out"
write one 'two \n & <three>'
expect 0 --check

write one 'two'
expect 1 --check 'docs/guide/page.md:6: the block of ../examples/a.out differs in its line 2:' '  the page: two' \
  '  the file: two \n & <three>'
expect 0 --renew
expect 0 --check

write one
expect 1 --check 'docs/guide/page.md:5: the block of ../examples/a.out differs in its line 2:' \
  '  the page: (its end)' '  the file: two \n & <three>'
expect 0 --renew
expect 0 --check

echo more >"$scratch/docs/examples/b.cpp"
expect 1 --check 'no page shows docs/examples/b.cpp'
expect 1 --renew 'no page shows docs/examples/b.cpp'
rm "$scratch/docs/examples/b.cpp"

printf '\n```cpp\nint main() {}\n```\n' >>"$page"
expect 1 --check 'docs/guide/page.md:8: a block without the name of its file in the line above'
expect 1 --renew 'docs/guide/page.md:8: a block without the name of its file in the line above'
grep -qx 'int main() {}' "$page" || { echo "renewing drops a block without a file"; status=1; }

write one 'two \n & <three>'
sed -i 's/a\.out/c.out/' "$page"
expect 1 --check 'docs/guide/page.md:6: there is no file ../examples/c.out' 'no page shows docs/examples/a.out'
exit "$status"
