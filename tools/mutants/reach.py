"""Which test reaches which line: measured once, remembered by the contents of sources and tests."""

import hashlib
import json
import re
import struct
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)
CONSTANT = re.compile(r"(?:inline )?const(?:expr|init)? .*?(\w+)(?:\[\w*\])? =")


def content_key():
    together = hashlib.sha256()
    for folder in ("src", "tests", "devkit", "tools/mutants", "cmake"):
        for path in sorted((ROOT / folder).rglob("*")):
            if path.is_file() and "__pycache__" not in path.parts:
                together.update(f"{path.relative_to(ROOT)}\0".encode() + path.read_bytes() + b"\0")
    return together.hexdigest()[:16]


def lines_of(program, addresses):
    """(path in the project, line) of each address; the path of foreign code is empty."""
    done = subprocess.run(
        ["llvm-symbolizer", f"--obj={program}", "--output-style=JSON", "--no-inlines"],
        input="\n".join(map(hex, addresses)), stdout=subprocess.PIPE, text=True, check=True)
    symbols = [json.loads(line)["Symbol"][0] for line in done.stdout.splitlines()]
    assert len(symbols) == len(addresses), program
    # What precedes it differs: the compiler cache knows objects from other folders, too.
    return [("".join(re.findall(r"/(src/[\w/]+\.\w+)$", symbol["FileName"])), symbol["Line"])
            for symbol in symbols]


def points_of(folder, build_folder):
    """{program: its points}, in the order of their numbers, which begin with 1. A point is (path,
    line, first line of its function), or None in foreign code."""
    found = {}
    for file in Path(folder).glob("*.points"):
        words = struct.unpack(f"{file.stat().st_size // 8}Q", file.read_bytes())
        (program,) = Path(build_folder).glob(f"**/{file.stem}")
        points: list[tuple | None] = [None]
        found[file.name.split(".")[0]] = points
        for (path, line), flags in zip(lines_of(program, words[::2]), words[1::2]):
            if flags & 1:  # where a function begins
                start = line
            points.append((path, line or start, start) if (ROOT / path).is_file() else None)
    return found


class Reach:
    """`tests` are {name, level, seconds, passed, reached}; `texts` the sources by path."""

    def __init__(self, points, tests, texts):
        self._texts = texts
        self.tests = {test["test"]: test for test in tests}
        self._points = {}  # path: {first line of a function: lines of its points}
        for program in points.values():
            for path, line, start in filter(None, program):
                self._points.setdefault(path, {}).setdefault(start, set()).add(line)
        self._reached = {}  # test: its points
        for test in tests:
            own = self._reached.setdefault(test["test"], set())
            for program, numbers in test["reached"].items():
                known = points.get(program, [])
                own.update(known[number] for number in numbers if number < len(known))
            own.discard(None)

    def tests_for(self, path, line):
        """Names of the tests that may notice a change of a line (from 1), likeliest first."""
        functions = self._functions_with(path, line)
        if functions:
            wanted = {(path, start) for start in functions}
            at = max((each for start in functions for each in self._points[path][start]
                      if each <= line), default=line)
            return self._sorted(wanted, lambda point: point[0] == path and point[1] == at)
        return self._tests_for_declaration(path, line)

    def _functions_with(self, path, line):
        """First lines of the innermost function with this line, and of the one it begins in."""
        lines = self._texts[path].splitlines()
        around = sorted(start for start in self._points.get(path, ())
                        if start <= line <= function_end(lines, start))
        return around[-2:] if around and around[-1] == line else around[-1:]

    def _tests_for_declaration(self, path, line):
        """A table, a constant, a member: where its name is used, else wherever it can be seen."""
        paths = self._includers(path) if path.endswith(".h") else {path}
        users, all_inside = set(), True
        name, declared = constant_at(self._texts[path].splitlines(), line)
        for each, number in self._mentions(paths, name):
            functions = self._functions_with(each, number)
            users |= {(each, start) for start in functions}
            all_inside = all_inside and (functions or (each, number) == (path, declared))
        if users and all_inside:
            return self._sorted(users, lambda _: True)
        wanted = {(each, start) for each in paths for start in self._points.get(each, ())}
        return self._sorted(wanted, lambda point: (point[0], point[2]) in users)

    def _mentions(self, paths, name):
        for path in paths if name else ():
            for number, text in enumerate(self._texts[path].splitlines(), 1):
                if re.search(rf"\b{name}\b", text.split("//")[0]):
                    yield path, number

    def _includers(self, path):
        """The file, and all that include it, over any number of steps."""
        found, waiting = {path}, [path]
        while waiting:
            name = waiting.pop().removeprefix("src/")
            more = {each for each, text in self._texts.items() if name in INCLUDE.findall(text)}
            waiting += more - found
            found |= more
        return found

    def _sorted(self, functions, is_exact):
        """The usable tests that reach one of these functions. First those that reach the very
        place; among them those that reach little else, which are about it."""
        found = []
        for name, reached in self._reached.items():
            if any((point[0], point[2]) in functions for point in reached):
                exact = any(is_exact(point) for point in reached)
                found.append((not exact, len(reached), name))
        return [name for _, _, name in sorted(found) if self.tests[name]["passed"]]


def function_end(lines, start):
    """The line (from 1) with the brace that ends the function which begins at `start`."""
    first = lines[start - 1]
    indentation = len(first) - len(first.lstrip())
    if first.count("{") and first.count("{") == first.count("}"):
        return start
    for number in range(start + 1, len(lines) + 1):
        text = lines[number - 1]
        if text.strip().startswith("}") and len(text) - len(text.lstrip()) <= indentation:
            return number
    return len(lines)


def constant_at(lines, line):
    """Name and line of the constant or table whose value this line is part of; None without one."""
    while line > 1 and lines[line - 1].startswith((" ", "}")):
        line -= 1
    found = CONSTANT.match(lines[line - 1])
    return (found[1], line) if found else (None, line)
