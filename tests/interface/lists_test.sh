#!/usr/bin/env bash
# lists_test.sh ROOT
#
# In a copy of the tree, each thing that somebody adds in one place alone is found.
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/tree"
cd "$1"
cp -r CMakeLists.txt README.md dev bench cmn docs examples fuzz qtools tests "$scratch/tree"
lists=$(pwd)/tests/interface/lists.sh codes=$(pwd)/tests/interface/result_codes.sh
cd "$scratch/tree"

status=0
# found SCRIPT COMPLAINT …: these and no others, by SCRIPT, of what CHANGE has added
found() {
  local complaints
  complaints=$("$1" . 2>&1) && { echo "nothing is found: $change" >&2; status=1; }
  [ "$complaints" = "$(printf '%s\n' "${@:2}")" ] || { echo "$change: $complaints" >&2; status=1; }
}
# adding FILE FROM COMPLAINT …: a copy of FROM that nobody else knows of
adding() {
  change="a new $1"
  cp -r "$2" "$1"
  found "$lists" "${@:3}"
  rm -r "$1"
}

change="nothing"
"$lists" . && "$codes" . || { echo "the tree itself lacks something" >&2; exit 1; }

adding cmn/include/cmnnew.h cmn/include/cmnerror.h "README.md lacks: \`cmnnew\`"
adding cmn/src/cmnnew.cpp cmn/src/cmnerror.cpp "README.md lacks: \`cmnnew\`" \
  "CMakeLists.txt lacks: cmn/src/cmnnew.cpp" "tests/mutants/programs.txt lacks: cmn/src/cmnnew.cpp: "
adding tests/cmnnew_test.cpp tests/cmnerror_test.cpp "tests/CMakeLists.txt lacks: cmnnew_test"
adding examples/new_example.cpp examples/digest.cpp \
  "examples/CMakeLists.txt lacks: kelp_add_example(new_example)" \
  "tests/examples/CMakeLists.txt lacks: kelp_add_example_test(new_example" \
  "there is no tests/examples/new_example.sh, which says what the example prints" \
  "docs/guide/index.md lacks: [new_example.cpp](../../examples/new_example.cpp)" \
  "README.md lacks: new_example" "dev lacks: new_example"
adding examples/message_relay/fr.txt examples/message_relay/en.txt \
  "examples/CMakeLists.txt lacks: message_relay/fr.txt" \
  "tests/examples/message_relay.sh lacks: fr: message_relay: " \
  "dev lacks the language fr of message_relay"
adding docs/guide/new.md docs/guide/xml.md "README.md lacks: docs/guide/new.md" "docs/guide/index.md lacks: (new.md"
adding bench/new_bench.cpp bench/xml_bench.cpp "bench/CMakeLists.txt lacks: new_bench.cpp"
adding fuzz/new_fuzz.cpp fuzz/digest_fuzz.cpp "fuzz/CMakeLists.txt lacks: kelp_add_fuzzer(new" \
  "there is no fuzz/corpus/new, the fuzzer's corpus" "docs/guide/reliability.md lacks: \`new\`"

change="a new key of the trace's section"
sed -i 's/^constexpr char dirKey.*/&\nconstexpr char newKey[] = "TRACENEW";/' cmn/src/cmntracelog.cpp
found "$lists" 'docs/examples/backupd.conf lacks: "TRACENEW"='
cp "$1/cmn/src/cmntracelog.cpp" cmn/src/

change="a new text of message_relay"
sed -i 's/^}/  MSG_NEW { "new" }\n}/' examples/message_relay/en.txt
found "$lists" "examples/message_relay/en.txt has other keys than root.txt"

change="a new result code"
sed -i 's/^constexpr int execPipeOk = 0;/constexpr int execPipeNew = 14;\n&/' cmn/include/cmnexecpipebase.h
found "$codes" "tests/cmnexecpipebase_test.cpp lacks: EXPECT_EQ(execPipeNew, 14);" \
  "examples/traced_command.cpp lacks: case execPipeNew:" \
  "docs/guide/processes.md lacks: | 14 | \`execPipeNew\` |"
exit "$status"
