#!/usr/bin/env bash
# sax_outline.sh PROGRAM
#
# What the example prints of a good document, of one that breaks off, of none, and on wrong use.
set -uo pipefail
program=$1
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory" || exit 1

# expect STATUS OUTPUT ERRORS [ARG …]: how the example ends, what it prints, and the pattern of its errors.
expect() {
  local status=$1 output=$2 errors=$3
  shift 3
  "$program" "$@" >output 2>errors
  local ended=$?
  [ "$ended" = "$status" ] || { echo "sax_outline $*: exit status $ended instead of $status"; exit 1; }
  diff <(printf '%s' "$output") output || { echo "sax_outline $*: wrong output"; exit 1; }
  # shellcheck disable=SC2053
  [[ $(<errors) == $errors ]] || { echo "sax_outline $*: wrong errors: $(<errors)"; exit 1; }
}

cat >good.xml <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE library [<!ENTITY house "Kelp &amp; Co.">]>
<library>
  <book year="2026">
    <title>Algues de la côte 🌊</title>
    <publisher>&house;</publisher>
    <empty/><!-- nothing -->
    after <![CDATA[<the>]]> elements
  </book>
  <x:note xmlns:x="urn:x">first<b>bold</b>last</x:note>
</library>
XML
expect 0 'library
  book
    title: Algues de la côte 🌊
    publisher: Kelp & Co.
    empty
    after <the> elements
  x:note: first
    b: bold
    last
' '' good.xml

# So long a text comes in pieces, one of which ends inside a surrogate pair.
long=x$(yes 🌊 | head -n 1100000 | tr -d '\n')
printf '<a>%s</a>' "$long" >long.xml
expect 0 "a: $long"$'\n' '' long.xml

printf '<list>\n  <item>one</item>\n  <item>two</wrong>\n</list>\n' >malformed.xml
expect 1 'list
  item: one
' 'malformed.xml:3:14: ?*' malformed.xml

: >empty.xml
expect 1 '' 'empty.xml:1:1: ?*' empty.xml
expect 1 '' 'sax_outline: missing.xml: No such file or directory' missing.xml
expect 1 '' 'sax_outline: .: Is a directory' .
printf 'text\n<b></c>' >part.ent
printf '<!DOCTYPE a [<!ENTITY part SYSTEM "%s/part.ent">]>\n<a>&part;</a>' "$directory" >outer.xml
expect 1 $'a: text\n' "*/part.ent:2:?*: ?*" outer.xml

"$program" good.xml >/dev/full 2>errors
[ $? = 1 ] || { echo "where nothing can be written the exit status is not 1"; exit 1; }

expect 64 '' 'usage: sax_outline FILE'
expect 64 '' 'usage: sax_outline FILE' good.xml good.xml
