"""The small changes that tools/mutants makes to the sources: finding, choosing, making them.

A mutation changes one token of one line, or takes one statement away. It is written down by the
text of its line, not by a number, so a list can be applied to another state of the tree.
"""

import random
import re
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

SWAPS = {
    "comparison": {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"},
    "operator": {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&&": "||", "||": "&&",
                 "+=": "-=", "-=": "+=", "&": "|", "|": "&", "++": "--", "--": "++", "!": ""},
    "constant": {"true": "false", "false": "true"},
}
# The formatter puts blanks around every binary operator, and none around those of a type.
BINARY = re.compile(r"(?<= )(==|!=|<=|>=|<|>|\+=|-=|&&|\|\||[-+*/%&|])(?= |$)")
UNARY = re.compile(r"\+\+|--|!(?=[\w(:])")
NUMBER = re.compile(r"(?<![\w.'])(?:0x[0-9a-f]+|\d+)(?![\w.'])")
TRUTH = re.compile(r"\b(?:true|false)\b")
TEXT = re.compile(r'(?<!R)"((?:[^"\\]|\\.)+)"')
LITERAL = re.compile(r'"(?:[^"\\]|\\.)*"|(?<!\w)\'(?:[^\'\\]|\\.)+\'')
PLACE = r"(?:\*?\w(?:[\w.:]|->|\[[^\]]*\]|\(\))*)"
STATEMENT = re.compile(rf"(?:\(void\))?{PLACE}(?:\(.*\)| [-+*/|&]?= .*);|(?:\+\+|--){PLACE};|"
                       rf"{PLACE}(?:\+\+|--);|(?:break|continue|return);")

# Whatever is changed here changes nothing that anybody could see, or does not compile.
NO_EFFECT = re.compile(
    r"^#|\bstatic_assert\b|\breserve\(|\bshrink_to_fit\b|\b\w*DebugLog\(|"
    r"\b(?:lock_guard|scoped_lock|unique_lock)\b|\bmemory_order|^using |^namespace |"
    r"= (?:default|delete);|\bNOLINT|\bstatic_cast<void>")
ADDS_TEXT = re.compile(r'" \+ | \+ "|\+ std::(?:to_)?string\(|string\([^()]*\) \+ ')
TIME = re.compile(r"\b\w+(?:Ms|_ms|Seconds)\b|\bstd::chrono\b|\bsleep")  # a little more is as good
NO_TEXT = re.compile(r'\brunDetached\(|\bextern "C"|\binclude\b')


@dataclass(frozen=True)
class Mutation:
    path: str  # of the project
    line: str  # its text, without the blanks around it
    occurrence: int  # among the lines of the file with that text, from 0
    column: int  # in that text
    before: str
    after: str
    kind: str

    @property
    def changed_line(self):
        return self.line[:self.column] + self.after + self.line[self.column + len(self.before):]


def blanked(line):
    """The line without its comment, and with nothing in its literals."""
    line = LITERAL.sub(lambda found: found[0][0] + "_" * (len(found[0]) - 2) + found[0][0], line)
    return line.split("//")[0].rstrip()


def condition(code):
    """(column, text) of what an if on this line asks, when it ends on the line."""
    found = re.search(r"\bif \(", code)
    if not found:
        return None
    begin, depth = found.end(), 1
    for at in range(begin, len(code)):
        depth += {"(": 1, ")": -1}.get(code[at], 0)
        if code[at] == ";" and depth == 1:
            begin = at + 2
        if depth == 0:
            return begin, at
    return None


def changes(line, begins_statement):
    """(kind, column, before, after) of every mutation of a line."""
    code = blanked(line)
    for pattern in (BINARY, UNARY):
        for found in pattern.finditer(code):
            if found[0] == "+" and ADDS_TEXT.search(code):
                continue
            for kind in ("comparison", "operator"):
                if found[0] in SWAPS[kind]:
                    yield kind, found.start(), found[0], SWAPS[kind][found[0]]
    for found in NUMBER.finditer(code) if not TIME.search(code) else ():
        base = 16 if found[0].startswith("0x") else 10
        more = int(found[0], base) + 1
        yield "constant", found.start(), found[0], hex(more) if base == 16 else str(more)
    for found in TRUTH.finditer(code):
        yield "constant", found.start(), found[0], SWAPS["constant"][found[0]]
    if asked := condition(code):
        text = line[slice(*asked)]
        yield "condition", asked[0], text, f"!({text})"
    if begins_statement and STATEMENT.fullmatch(code):
        yield "statement", 0, line[:len(code)], ";"
    if not NO_TEXT.search(line):
        for found in TEXT.finditer(line[:len(code)]):
            yield "text", found.start(), found[0], found[0][:-1] + '~"'


def mutations_of(path, text):
    """Every mutation of a source file."""
    seen, statement, in_raw_text = Counter(), "", False
    for full_line in text.splitlines():
        line = full_line.strip()
        if in_raw_text or 'R"(' in line:
            in_raw_text = ')"' not in line
            seen[line] += 1
            continue
        code = blanked(line)
        begins = not statement
        statement += code
        if not NO_EFFECT.search(statement):
            for kind, column, before, after in changes(line, begins):
                yield Mutation(path, line, seen[line], column, before, after, kind)
        seen[line] += 1
        if not code or code[-1] in ";{}:":
            statement = ""


def sources(root):
    """Paths and texts of what may be changed: all that the twin is made of."""
    return {path.relative_to(root).as_posix(): path.read_text(encoding="utf-8")
            for path in sorted((root / "src").rglob("*"))
            if path.suffix in (".cpp", ".h") and "win" not in path.relative_to(root).parts}


def shuffled(texts, seed):
    """All mutations, each kind as likely as another, in an order that only the seed decides."""
    by_kind = {}
    for path, text in texts.items():
        for mutation in mutations_of(path, text):
            by_kind.setdefault(mutation.kind, []).append(mutation)
    chance = random.Random(seed)
    for waiting in by_kind.values():
        chance.shuffle(waiting)
    while kinds := sorted(kind for kind, waiting in by_kind.items() if waiting):
        yield by_kind[chance.choice(kinds)].pop()


def outside_platform(candidates):
    return (mutation for mutation in candidates if not mutation.path.startswith("src/platform/"))


def find(mutation, texts):
    """(path, line number from 0) of the line in these sources, which may have moved; or None."""
    same_name = [path for path in texts if Path(path).name == Path(mutation.path).name]
    for path in dict.fromkeys([mutation.path, *same_name, *texts]):
        numbers = [number for number, line in enumerate(texts.get(path, "").splitlines())
                   if line.strip() == mutation.line]
        if numbers:
            return path, numbers[min(mutation.occurrence, len(numbers) - 1)]
    return None


def mutated(text, number, mutation):
    lines = text.split("\n")
    indentation = lines[number][:len(lines[number]) - len(lines[number].lstrip())]
    lines[number] = indentation + mutation.changed_line
    return "\n".join(lines)
