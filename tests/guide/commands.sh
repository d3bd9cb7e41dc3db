#!/usr/bin/env bash
# commands.sh SCRIPT VIEW RESOURCES PROGRAMS
#
# Runs the commands of a page where its reader would: in a directory with the message files, the configuration file and
# the host program, with the private view under the name that it is installed by. What SCRIPT.out says must be printed.
set -euo pipefail
script=$1 view=$2 resources=$3 programs=$4
examples=$(dirname "$script") name=$(basename "$script" .sh)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

mkdir "$scratch/bin" "$scratch/here"
ln -s "$view" "$scratch/bin/kelp-cmn-4-4-private-view"
cd "$scratch/here"
cp -r "$examples"/{backupd.conf,etc} "$examples"/messages/*.txt .
[ "$name" = message_files ] || cp -r "$resources/libdiskwatch" .
for program in "$programs"/guide_*; do
  [ ! -x "$program" ] || [ -d "$program" ] || ln -s "$program" "${program##*/guide_}"
done

PATH=$scratch/bin:$PATH bash -eu "$script" >"$scratch/out"
if [ -e "$examples/$name.out" ]; then
  diff "$examples/$name.out" "$scratch/out" || { echo "the output (>) is not that of $examples/$name.out (<)"; exit 1; }
fi
if [ "$name" = message_files ]; then
  diff -r libdiskwatch "$resources/libdiskwatch" || { echo "the commands make something else than CMake"; exit 1; }
fi
