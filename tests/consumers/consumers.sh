#!/usr/bin/env bash
# consumers.sh BUILD SOURCE
#
# Installs the library from its build tree into a temporary prefix, moves that elsewhere, and builds and runs two
# foreign projects against it: one with CMake, one with make and pkg-config. Checks what is installed, too.
set -euo pipefail
build=$1 source=$2
here=$source/tests/consumers
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset PKG_CONFIG_PATH CMAKE_PREFIX_PATH CXXFLAGS LDFLAGS LDLIBS LD_LIBRARY_PATH DESTDIR

fail() { echo "$*" >&2; exit 1; }
install() { cmake --install "$build" --prefix "$@" >/dev/null; }
# same WHAT: compares two lists of files, the expected one on standard input.
same() { diff - <(echo "$2") || fail "$1"; }

expected_output=$(cat <<'TEXT'
42
ACE string
Hello, host
malformed
7999dc75e8da648c6727e137c5b77803
TEXT
)

# The runtime component is the library alone; the development component has the link to it and every public header.
install "$scratch/runtime" --component runtime
(cd "$scratch/runtime" && find . -name 'libkelp_cmn*' -printf '%f\n') | sort >"$scratch/runtime_files"
same "the runtime component" "$(<"$scratch/runtime_files")" <<'TEXT'
libkelp_cmn_4_4.so.4
libkelp_cmn_4_4.so.4.4.0
TEXT
[ -z "$(find "$scratch/runtime" -name '*.h')" ] || fail "the runtime component has headers"

install "$scratch/first"
mv "$scratch/first" "$scratch/moved"
prefix=$scratch/moved
(cd "$source" && find cmn/include qtools/qstring -name '*.h' ! -name Q_integertext.h ! -name 'Q_scan*.h' \
  -printf '%f\n') | sort |
  same "the public headers" "$(cd "$prefix/include/kelp_cmn_4_4" && find . -type f -printf '%f\n' | sort)"
if grep -rlF -e "$scratch/first" -e "$build" -e "$source" "$prefix" --include '*.cmake' --include '*.pc'; then
  fail "an installed file names a directory of the build"
fi

cp -r "$here" "$scratch/projects"
cd "$scratch/projects"

cmake -S with_cmake -B cmake_build -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build cmake_build >/dev/null
same "the host built with CMake" "$(cmake_build/host)" <<<"$expected_output"
if cmake -S with_cmake -B refused -DCMAKE_PREFIX_PATH="$prefix" -DWANTED=4.5 >/dev/null 2>&1; then
  fail "a host that asks for 4.5 is given 4.4"
fi

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name kelp_cmn_4_4.pc)")
export PKG_CONFIG_PATH
[ "$(pkg-config --modversion kelp_cmn_4_4)" = 4.4.0 ] || fail "pkg-config tells another version"
make -s -C with_make host
same "the host built with make" "$(with_make/host)" <<<"$expected_output"
