"""The guide's words in the search of the HTML. Doxygen's own search knows only names and titles."""
import json
import re

WORD = re.compile(r"[A-Za-z][\w-]*\w")
# Of our names, as Doxygen writes them there: who looks for "strlcpy" finds Q_strlcpy().
PREFIX = re.compile(r"q_5f|[cse]cmn")

# The results are a page of their own: in letters and lines that a finger finds.
STYLE = ".SRResult { padding: 3px 0; }\n.SRPage .SRSymbol, .SRPage .SRScope { font-size: 13px; }\n"


def spellings(word):
    """As one may look for it: "time-outs" also as "timeouts", "Q_strlcpy" also as "strlcpy"."""
    joined = word.strip("-").replace("-", "")
    return {part for part in (joined, *re.split(r"[-_]", word)) if len(part) > 2 and part.isalnum() and part[0].isalpha()}


class Words:
    def __init__(self):
        self.places = {}  # word in small letters -> page -> where it stands there first
        self.spelling = {}
        self.pages = set()

    def add(self, page, anchor, line):
        if page == "guide_words":  # an index itself
            return
        self.pages.add(page)
        for word in WORD.findall(line):
            for spelling in spellings(word):
                self.places.setdefault(spelling.lower(), {}).setdefault(page, anchor)
                self.spelling.setdefault(spelling.lower(), spelling)

    def entries(self, titles):
        """Doxygen's form: a word, and a place or several. What is on more than half of the pages leads nowhere."""
        for word, places in self.places.items():
            links = [[f"../{page}.html" + (f"#{anchor}" if anchor else ""), 1, f"guide: {titles[page]}"]
                     for page, anchor in places.items()]
            if len(links) <= 3:
                yield from ((word, [self.spelling[word], link]) for link in links)
            elif len(links) <= len(self.pages) / 2:
                yield word, [f"{self.spelling[word]} (guide)", *links]

    def write(self, search, titles):
        """Among the entries of the section "all", which has a file for each first letter."""
        index = search / "searchdata.js"
        text = index.read_text(encoding="utf-8")
        letters = re.search(r'\n  0: "([^"]*)"', text)[1]
        names = [row for number in range(len(letters)) for row in entries(search / f"all_{number:x}.js")]
        short = [(PREFIX.sub("", name), entry) for name, entry in names if PREFIX.match(name)]
        found = {}
        for word, entry in [*names, *short, *self.entries(titles)]:
            found.setdefault(decoded(word)[0], []).append((word, entry))

        head = (search / "all_0.html").read_text(encoding="utf-8")
        for number, letter in enumerate(sorted(found)):
            rows = sorted(found[letter], key=lambda row: row[0])
            data = [[f"{name}_{i}", entry] for i, (name, entry) in enumerate(rows)]
            lines = ",\n".join(f"  {json.dumps(row)}" for row in data)
            name = f"all_{number:x}"
            (search / f"{name}.js").write_text(f"var searchData=\n[\n{lines}\n];\n", encoding="utf-8")
            (search / f"{name}.html").write_text(head.replace("all_0.js", f"{name}.js"), encoding="utf-8")
        with (search / "search.css").open("a", encoding="utf-8") as style:
            style.write(STYLE)
        index.write_text(text.replace(f'0: "{letters}"', f'0: "{"".join(sorted(found))}"'), encoding="utf-8")


def decoded(name):
    """Doxygen writes what is neither letter nor digit as "_" and its number."""
    return re.sub(r"_([0-9a-f]{2})", lambda code: chr(int(code[1], 16)), name)


def entries(file):
    """What Doxygen has written: (name without number, entry)."""
    rows = re.search(r"\[\n(.*)\n\];", file.read_text(encoding="utf-8"), re.DOTALL)[1]
    strings = re.compile(r"'((?:[^'\\]|\\.)*)'")
    rows = json.loads("[" + strings.sub(lambda text: json.dumps(re.sub(r"\\(.)", r"\1", text[1])), rows) + "]")
    return [(name.rpartition("_")[0], entry) for name, entry in rows]
