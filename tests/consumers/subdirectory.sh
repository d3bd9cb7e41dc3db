#!/usr/bin/env bash
# subdirectory.sh BUILD SOURCE
#
# What a host installs that has the library's sources in its own tree: its own files alone, unless it asks for more, and
# then the library's beside them. The library that is built already stands in for the one that the host would build.
set -euo pipefail
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset CMAKE_PREFIX_PATH DESTDIR
cp -r "$source/tests/consumers" "$scratch/projects"
cd "$scratch"

fail() { echo "$*" >&2; exit 1; }
same() { diff - <(echo "$2") || fail "$1"; }
install_host() { # PREFIX [OPTION …]
  cmake -S projects/with_subdirectory -B host "-DLIBRARY_SOURCE=$source" "${@:2}" >/dev/null
  cp -P "$build"/libkelp_cmn_4_4.so* host/library/
  cmake --install host --prefix "$scratch/$1" >/dev/null
}
documents() { (cd "$1/share/doc" && find . -type f -path "./$2/*" | sort); }

expected_documents=$(printf '%s\n' ./foreign_host/CHANGELOG.md ./foreign_host/README.md)

install_host alone
same "what is installed by default" "$(documents alone '*')" <<<"$expected_documents"
[ "$(find alone -type f | wc -l)" = 2 ] || fail "by default more is installed: $(find alone -type f)"

install_host together -DKELP_INSTALL=ON
same "the host's documents" "$(documents together foreign_host)" <<<"$expected_documents"
for document in together/share/doc/foreign_host/*; do
  [ "$(<"$document")" = "The host's own." ] || fail "$document is another's"
done
cmp "$source/README.md" together/share/doc/kelp_cmn_4_4/README.md
cmp "$source/docs/guide/index.md" together/share/doc/kelp_cmn_4_4/docs/guide/index.md
[ -f together/share/doc/kelp_cmn_4_4/examples/CMakeLists.txt ] || fail "the examples are missing"
[ "$(ls together/share/doc)" = "$(printf '%s\n' foreign_host kelp_cmn_4_4)" ] || fail "other documents are installed"
cmake -S projects/with_cmake -B found -DCMAKE_PREFIX_PATH="$scratch/together" >/dev/null
