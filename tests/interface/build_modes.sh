#!/usr/bin/env bash
# build_modes.sh SOURCE
#
# Which compilations and links of the library are hardened, and which check the standard library's preconditions, under
# each spelling of a build type, with one and with several configurations, alone and inside a host's project. Configures
# only.
set -euo pipefail
source=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset CXXFLAGS CFLAGS LDFLAGS CMAKE_BUILD_TYPE CMAKE_CONFIGURATION_TYPES CMAKE_GENERATOR

fail() { echo "$*" >&2; exit 1; }

configure() { # SOURCE DIRECTORY [OPTION …]
  cmake -S "$1" -B "$scratch/$2" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON "${@:3}" >"$scratch/log" 2>&1 ||
    { cat "$scratch/log" >&2; fail "cannot configure $*"; }
}

# what_holds DIRECTORY [CONFIGURATION]: what the commands say, a word for each thing that holds of some or all of them.
what_holds() {
  local commands link words=()
  commands=$(grep '"command"' "$scratch/$1/compile_commands.json" | grep -F "/kelp_cmn_4_4.dir/${2+$2/}")
  link=$(find "$scratch/$1" -name '*.ninja' -exec \
    sed -n "/^build [^:]*${2+$2\/}libkelp_cmn_4_4.so[^:]*: CXX_SHARED/,/^$/p" {} +)

  # Of several flags the last one counts.
  fortified() { sed -nE 's|.*-([DU])_FORTIFY_SOURCE(=[0-9])?.*|\1\2|p' | sort -u | tr '\n' ' '; }
  words+=("fortified:$(grep -v Q_strings.cpp <<<"$commands" | fortified)")
  words+=("bounded:$(grep Q_strings.cpp <<<"$commands" | fortified)")
  local protected='-fstack-protector-strong -fstack-clash-protection -fcf-protection'
  words+=("protected:$(grep -c -e "$protected" <<<"$commands" || true)")
  words+=("asserted:$(grep -c -e '-D_GLIBCXX_ASSERTIONS' <<<"$commands" || true)")
  words+=("of:$(wc -l <<<"$commands")")
  words+=("linked:$(grep -c -e '-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack' <<<"$link" || true)")
  echo "${words[*]}"
}

count=$(find "$source/cmn/src" "$source/qtools" -name '*.cpp' | wc -l)
hardened="fortified:D=3  bounded:U  protected:$count asserted:0 of:$count linked:1"
asserting="fortified: bounded:U  protected:0 asserted:$count of:$count linked:0"
plain="fortified: bounded:U  protected:0 asserted:0 of:$count linked:0"

expect() { # EXPECTED DIRECTORY [CONFIGURATION]
  local found
  found=$(what_holds "${@:2}")
  [ "$found" = "$1" ] && return
  echo "$case${3+, $3}: $found, not $1" >&2
  status=1
}
status=0

# The directory is used again, which saves looking at the compiler.
alone() { # EXPECTED BUILD_TYPE [OPTION …]
  case="build type '$2' ${*:3}"
  configure "$source" alone -G Ninja -DCMAKE_BUILD_TYPE="$2" "${@:3}"
  expect "$1" alone
}
alone "$hardened" ""
for type in Release release RELEASE RelWithDebInfo relwithdebinfo MinSizeRel minsizerel; do
  alone "$hardened" "$type"
done
for type in Debug debug; do
  alone "$asserting" "$type"
done
alone "$plain" None
alone "$plain" Release -DKELP_SANITIZE=ON
alone "$asserting" Debug -DKELP_SANITIZE=ON
alone "${plain/fortified:/fortified:D=2 }" None -DCMAKE_CXX_FLAGS=-D_FORTIFY_SOURCE=2 -DKELP_SANITIZE=OFF

several() { # DIRECTORY
  case="$1, of several configurations"
  for type in Release RelWithDebInfo MinSizeRel; do
    expect "$hardened" "$1" "$type"
  done
  expect "$asserting" "$1" Debug
}
types="Debug;Release;RelWithDebInfo;MinSizeRel"
configure "$source" several -G "Ninja Multi-Config" "-DCMAKE_CONFIGURATION_TYPES=$types"
several several

mkdir "$scratch/host"
cat >"$scratch/host/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES C CXX)
add_subdirectory("$source" kelp)
CMAKE
configure "$scratch/host" host_of_several -G "Ninja Multi-Config" "-DCMAKE_CONFIGURATION_TYPES=$types"
several host_of_several
case="a host without a build type"
configure "$scratch/host" host_of_none -G Ninja -DCMAKE_BUILD_TYPE=
expect "$plain" host_of_none
exit $status
