#!/usr/bin/env bash
# words.sh
#
# The page of words: in the order of the alphabet, each word stands in every section that it leads to (or the one in
# brackets behind it does), and no public class, function, constant or type is missing.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cd "$here/../.."
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
status=0

# WORD <tab> SECTION for each link, the word being the one to look for; and the list of words as they are sorted.
awk -v listed="$scratch/listed" '
  function finish(    word, links, target, shown) {
    if (entry == "") return
    word = entry
    sub(/^- /, "", word)
    links = word
    sub(/: \[.*/, "", word)
    shown = word
    sub(/ \(.*/, "", shown)
    print shown >listed
    if (match(word, /\(.*\)$/) && word !~ /`/) word = substr(word, RSTART + 1, RLENGTH - 2)
    gsub(/`/, "", word)
    while (match(links, /\]\([^)]*\)/)) {
      target = substr(links, RSTART + 2, RLENGTH - 3)
      sub(/\.md#/, "-", target)
      print word "\t" target
      links = substr(links, RSTART + RLENGTH)
    }
    entry = ""
  }
  /^- / { finish(); entry = $0; next }
  /^  / { sub(/^ +/, ""); entry = entry " " $0; next }
  { finish() }
  END { finish() }' docs/guide/words.md >"$scratch/links"
[ -s "$scratch/links" ] || { echo "docs/guide/words.md has no words"; exit 1; }

# A section is known by its page's name and by the anchor that readers of Markdown give its heading.
awk '
  function anchor(heading) {
    heading = tolower(heading)
    gsub(/[^a-z0-9 _-]/, "", heading)
    gsub(/ /, "-", heading)
    return heading
  }
  NR == FNR { split($0, link, "\t"); word[FNR] = tolower(link[1]); target[FNR] = link[2]; count = FNR; next }
  FNR == 1 { page = FILENAME; sub(/.*\//, "", page); sub(/\.md$/, "", page); section = ""; fenced = 0 }
  /^```/ { fenced = !fenced }
  !fenced && /^##+ / { section = $0; sub(/^#+ /, "", section); section = page "-" anchor(section) }
  { text[section] = text[section] " " tolower($0) }
  END {
    for (i = 1; i <= count; ++i) {
      if (!(target[i] in text)) {
        printf "docs/guide/words.md: \"%s\" leads nowhere: %s\n", word[i], target[i]
        failed = 1
      } else if (index(text[target[i]], word[i]) == 0) {
        printf "docs/guide/words.md: \"%s\" does not stand in %s\n", word[i], target[i]
        failed = 1
      }
    }
    exit failed
  }' "$scratch/links" docs/guide/*.md || status=1

# Letters and digits count alone.
sed 's/[^A-Za-z0-9]//g' "$scratch/listed" | tr '[:upper:]' '[:lower:]' >"$scratch/keys"
LC_ALL=C sort -c "$scratch/keys" || status=1

while read -r name; do
  grep -qxF "\`$name\`" "$scratch/listed" || { echo "docs/guide/words.md lacks $name"; status=1; }
done < <("$here/public_names.sh" .)
exit "$status"
