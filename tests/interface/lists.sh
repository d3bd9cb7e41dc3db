#!/usr/bin/env bash
# lists.sh ROOT
#
# What is kept in several places stands in all of them: public headers, internal pieces, test programs, examples, the
# languages of message_relay, pages of the guide, keys of the configuration file, benchmarks and fuzzers.
# CONTRIBUTING.md tells how each is added.
set -euo pipefail
cd "$1"

status=0
declare -A texts
expect() { # FILE TEXT
  [ -n "${texts[$1]-}" ] || texts[$1]=$(<"$1")
  [[ ${texts[$1]} != *"$2"* ]] || return 0
  echo "$1 lacks: $2" >&2
  status=1
}
there() { # PATH REASON
  [ -e "$1" ] && return
  echo "there is no $1, $2" >&2
  status=1
}
name_of() { name=${1##*/} name=${name%.*}; }

for header in cmn/include/*.h; do
  name_of "$header"
  expect README.md "\`$name\`"
done
# A class may have a second source: CLASS_SUBJECT.cpp.
for piece in cmn/src/*.{cpp,h}; do
  name_of "$piece"
  expect README.md "\`${name%%_*}\`"
done
for piece in qtools/qstring/Q_*.{cpp,h}; do
  name_of "$piece"
  expect README.md "\`$name\`"
done
for source in cmn/src/*.cpp qtools/qstring/Q_*.cpp; do
  expect CMakeLists.txt "$source"
  expect tests/mutants/programs.txt "$source: "
done

for program in tests/*_test.cpp; do
  name_of "$program"
  [[ $(<tests/CMakeLists.txt) == *[\ \(]"$name"[[:space:]\)]* ]] ||
    { echo "tests/CMakeLists.txt lacks: $name" >&2; status=1; }
done

for example in examples/*.cpp; do
  name_of "$example"
  expect examples/CMakeLists.txt "kelp_add_example($name)"
  expect tests/examples/CMakeLists.txt "kelp_add_example_test($name"
  there "tests/examples/$name.sh" "which says what the example prints"
  expect docs/guide/index.md "[$name.cpp](../../examples/$name.cpp)"
  expect README.md "$name"
  expect dev "$name"
done

keys() { sed -n 's/^ *\(MSG_[A-Z_]*\).*/\1/p' "$1" | sort; }
for messages in examples/message_relay/*.txt; do
  name_of "$messages"
  language=$name
  expect examples/CMakeLists.txt "message_relay/$language.txt"
  [ "$language" != root ] || continue
  expect tests/examples/message_relay.sh "$language: message_relay: "
  grep -qE "set -- .*\b$language\b" dev || { echo "dev lacks the language $language of message_relay" >&2; status=1; }
  diff <(keys examples/message_relay/root.txt) <(keys "$messages") >/dev/null ||
    { echo "$messages has other keys than root.txt" >&2; status=1; }
done

for page in docs/guide/*.md; do
  name_of "$page"
  expect README.md "docs/guide/$name.md"
  [ "$name" = index ] || expect docs/guide/index.md "($name.md"
done

keys=$(sed -n 's/^constexpr char [a-z]*Key\[\] = "\([A-Z]*\)";$/\1/p' cmn/src/cmntracelog.cpp)
[ -n "$keys" ] || { echo "cmn/src/cmntracelog.cpp has no keys" >&2; status=1; }
for key in $keys; do
  expect docs/examples/backupd.conf "\"$key\"="
done

for source in bench/*.cpp; do
  expect bench/CMakeLists.txt "${source##*/}"
done
for source in fuzz/*_fuzz.cpp; do
  name_of "$source"
  name=${name%_fuzz}
  expect fuzz/CMakeLists.txt "kelp_add_fuzzer($name"
  there "fuzz/corpus/$name" "the fuzzer's corpus"
  expect docs/guide/reliability.md "\`$name\`"
done
exit "$status"
