"""The small changes that are made in a source: of comparisons, operators, constants, operands and statements."""
import re
from dataclasses import dataclass

# Operators as they are formatted, between blanks; so the angle brackets of templates are none.
OPERATORS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"], ">>": ["<<"],
    "+=": ["-="], "-=": ["+="], "|=": ["&="], "&=": ["|="], "^=": ["|="],
}
OPERATOR = re.compile(r"(?<= )(" + "|".join(re.escape(o) for o in sorted(OPERATORS, key=len, reverse=True)) + r")(?=\s)")
NUMBER = re.compile(r"(?<![\w.'])(\d[\d']*)(?=[uUlL]*(?![\w.']))")
HEX = re.compile(r"(?<![\w.])(0x[0-9a-fA-F]+)(?=[uUlL]*(?!\w))")
WORD = re.compile(r"\b(true|false)\b")
STEP = re.compile(r"\+\+|--")
NOT = re.compile(r"!(?=[\w(*])")
MINUS = re.compile(r"(?<![\w)\]] )(?<![-\w)\]])-(?=[\w(])")
CHARACTER = re.compile(r"'(?:\\.|[^'\\])'")
STRING = re.compile(r'"(?:\\.|[^"\\])+"')
OPERANDS = re.compile(r"(?<![\w.>)\]*-] )(?<![\w.>)\]])([\w.]+(?:->\w+)?) (-|/|%|<<|>>) ([\w.]+)(?![\w.(\[-])")
ARGUMENTS = re.compile(r"(?<!\bmin\()(?<!\bmax\()(?<!\bmin<ptrdiff_t>\()(?<=\()([\w.&*]+), ([\w.&*]+)(?=[,)])")
CONDITION = re.compile(r"\b(?:if|while) \(")
# What may begin a statement that can be left out. A declaration left out does not compile, as a rule.
STATEMENT = re.compile(r"(?:[\w:~*]|\(void\)|--|\+\+).*;$")
KEPT = re.compile(r"(?:return\b(?! ?;)|using |static_assert|template|typedef |friend |public|private|protected|extern |class |"
                  r"struct |enum |const |constexpr |static |goto |throw\b|case |default:|mutable |explicit |virtual |inline )")

FALLING = re.compile(r"\s*(?:case\b|default:)")


@dataclass(frozen=True)
class Change:
    line: int  # from 1
    first: int  # what is replaced in the whole text
    last: int
    new: str
    name: str  # how it is written: old -> new, with the number among equals in its line

    def apply(self, text):
        return text[:self.first] + self.new + text[self.last:]


def masked(text, strings):
    """The text with blanks in place of comments and preprocessor lines; and of literals, unless they are wanted."""
    def blank(match):
        return re.sub(r"[^\n]", " ", match.group())

    def visible(match):
        return match.group() if strings and match.group()[0] in "\"'" else blank(match)

    text = re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])\'(?:\\.|[^\'\\\n])\'', visible, text,
                  flags=re.S)
    text = re.sub(r"(?m)^ *#(?:[^\n]*\\\n)*[^\n]*", blank, text)
    return re.sub(r"static_assert\s*\([^;]*;", blank, text)


def next_character(literal):
    body = literal[1:-1]
    if body.startswith("\\"):
        return "'x'"
    return "'" + chr(ord(body) + 1).replace("\\", "]") + "'"


def numbers(match):
    digits = match.group(1)
    value = int(digits.replace("'", ""), 16 if digits.startswith("0x") else 10)
    fewer = [str(value - 1)] if value > 0 else []
    return [str(value + 1)] + fewer


def closing(text, opening):
    depth = 0
    for i in range(opening, len(text)):
        depth += {"(": 1, ")": -1}.get(text[i], 0)
        if depth == 0:
            return i
    return None


def replacements(text):
    """Pairs of what is replaced, as its place in the text, and by what."""
    code = masked(text, strings=False)
    literals = masked(text, strings=True)
    for match in OPERATOR.finditer(code):
        for new in OPERATORS[match.group(1)]:
            yield match.start(1), match.end(1), new
    for pattern in (NUMBER, HEX):
        for match in pattern.finditer(code):
            for new in numbers(match):
                yield match.start(1), match.end(1), new
    for match in WORD.finditer(code):
        yield match.start(), match.end(), "false" if match.group() == "true" else "true"
    for match in STEP.finditer(code):
        yield match.start(), match.end(), "--" if match.group() == "++" else "++"
    for pattern in (NOT, MINUS):
        for match in pattern.finditer(code):
            yield match.start(), match.end(), ""
    for match in CHARACTER.finditer(literals):
        yield match.start(), match.end(), next_character(match.group())
    for match in STRING.finditer(literals):
        yield match.start(), match.end(), '""'
    for match in OPERANDS.finditer(code):
        left, operator, right = match.groups()
        yield match.start(), match.end(), f"{right} {operator} {left}"
    for match in ARGUMENTS.finditer(code):
        if match.group(1) != match.group(2):
            yield match.start(), match.end(), f"{match.group(2)}, {match.group(1)}"
    for match in CONDITION.finditer(code):
        last = closing(code, match.end() - 1)
        condition = code[match.end():last]
        if last is not None and not OPERATOR.search(condition) and not condition.startswith("!"):
            yield match.end(), last, f"!({text[match.end():last]})"
    yield from statements(code)


def statements(code):
    """Each statement of a function, from the line in which it begins to the one that its semicolon ends."""
    offset, begin = 0, None
    for line in code.split("\n"):
        stripped = line.strip()
        if begin is None and stripped and line.startswith("  ") and not KEPT.match(stripped):
            begin = offset + len(line) - len(line.lstrip())
        if stripped.endswith(("{", "}", ":", ",")) and not stripped.endswith(("},", "::")) and "(" not in code[begin or offset:offset + len(line)]:
            begin = None
        if begin is not None and stripped.endswith(";"):
            text = code[begin:offset + len(line)].rstrip()
            if STATEMENT.match(text.replace("\n", " ")) and text.count("(") == text.count(")") and "{" not in text:
                yield begin, begin + len(text), ";"
            begin = None
        if stripped.endswith(("{", "}")):
            begin = None
        offset += len(line) + 1


def changes(text):
    """All changes of a source, in the order of their lines."""
    found, names = [], {}
    code = masked(text, strings=False)
    for first, last, new in sorted(set(replacements(text))):
        line = text.count("\n", 0, first) + 1
        old = text[first:last]
        if new == ";" and FALLING.match(code, last):
            continue  # a case that falls into the next one does not compile: that is an error in this tree
        if new == ";":
            name = "without " + " ".join(old.split())
        elif new.startswith("!(") and new == f"!({old})":
            name = f"not ({' '.join(old.split())})"
        else:
            name = f"{old} -> {new}".rstrip()
        number = names[line, name] = names.get((line, name), 0) + 1
        found.append(Change(line, first, last, new, name if number == 1 else f"{name} #{number}"))
    return found
