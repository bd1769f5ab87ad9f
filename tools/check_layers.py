#!/usr/bin/env python3
"""Checks what the folders under src/ include: tools/check_layers.py [ROOT]

The folders form layers (docs/architecture.md tells why). An include stays in its folder or goes to
a lower one. Besides that: no circle between files, includes are written from src/, no #ifdef _WIN32
(the build picks win/ or posix/), Windows headers only under platform/win/, and that of the library
for large JSON texts in one place. Prints each breach
as file:line: text; the exit code says whether there was one.
"""

import re
import sys
from pathlib import Path

# What each folder may include, besides itself. A folder that is not here may not exist.
MAY_INCLUDE: dict[str, set[str]] = {
    "text": set(), "platform": {"text"}, "common": {"text", "platform"}}
FLOOR = set(MAY_INCLUDE)
MAY_INCLUDE |= {
    "channel": FLOOR,
    "screening": {"text"},
    "agent": FLOOR | {"channel"},
    "app_ipc": FLOOR | {"channel"},
    "agent_process": FLOOR | {"channel", "agent"},
}
MAY_INCLUDE["browser_tools"] = set(MAY_INCLUDE)
SIDES = set(MAY_INCLUDE)
MAY_INCLUDE |= {
    "chat": SIDES,
    "toolserver": SIDES,
    "mcp": SIDES,
    "shell": SIDES,
    "setup": FLOOR,
    "doctor": SIDES | {"toolserver", "setup", "mcp"},
}
MAY_INCLUDE["host"] = set(MAY_INCLUDE)

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')
SYSTEM_TEST = re.compile(r"^\s*#\s*(?:if|ifdef|ifndef|elif)\b.*\b_?_?WIN(?:32|64)(?:__)?\b")
WINDOWS_HEADER = re.compile(
    r"^(windows|winsock2?|ws2tcpip|winhttp|bcrypt|shobjidl\w*|shlobj\w*|shellapi|shlwapi|objbase"
    r"|combaseapi|appmodel|knownfolders|tlhelp32|psapi|process|io)\.h$", re.IGNORECASE)


def folder_of(path):
    """The layer of a path relative to src/, or None: the longest name that leads it."""
    parts = path.split("/")[:-1]
    for length in range(len(parts), 0, -1):
        name = "/".join(parts[:length])
        if name in MAY_INCLUDE:
            return name
    return None


def check_include(sources, own_path, included):
    """The breach of one #include "..." in words, empty when there is none."""
    if included not in sources:
        return f'"{included}" is no file; includes are written from src/'
    own, other = folder_of(own_path), folder_of(included)
    if own is None:
        return "is in a folder that has no layer (see tools/check_layers.py)"
    if other is None:
        return f'"{included}" is in a folder that has no layer'
    if own != other and other not in MAY_INCLUDE[own]:
        return f"{own} must not include {other} (\"{included}\")"
    return ""


def check_line(sources, path, line):
    """(breach or empty, own file that is included or None) for one line."""
    if SYSTEM_TEST.match(line):
        return "tests for the system; the build picks win/ or posix/ files instead", None
    match = INCLUDE.match(line)
    if not match:
        return "", None
    own, system = match.groups()
    if own:
        return check_include(sources, path, own), own if own in sources else None
    if WINDOWS_HEADER.match(system) and not path.startswith("platform/win/"):
        return f"<{system}> belongs into platform/win/", None
    if system == "yyjson.h" and path != "text/json_view.cpp":
        return f"<{system}> is seen by text/json_view.cpp alone", None
    return "", None


def find_circle(edges):
    """One circle of files as a list, empty when there is none."""
    state = {}
    for start in sorted(edges):
        path, stack = [], [(start, iter(sorted(edges[start])))]
        if start in state:
            continue
        state[start] = "open"
        path.append(start)
        while stack:
            target = next((each for each in stack[-1][1] if state.get(each) != "done"), None)
            if target is None:
                state[stack.pop()[0]] = "done"
                path.pop()
            elif state.get(target) == "open":
                return [*path[path.index(target):], target]
            else:
                state[target] = "open"
                path.append(target)
                stack.append((target, iter(sorted(edges.get(target, ())))))
    return []


def check(root):
    """All breaches under root/src as lines of text."""
    source_root = Path(root) / "src"
    files = [path for path in source_root.glob("**/*") if path.suffix in (".h", ".cpp")]
    sources = {path.relative_to(source_root).as_posix(): path for path in files}
    breaches, edges = [], {}
    for name in sorted(sources):
        edges[name] = set()
        for number, line in enumerate(sources[name].read_text().splitlines(), 1):
            breach, included = check_line(sources, name, line)
            if breach:
                breaches.append(f"src/{name}:{number}: {breach}")
            if included:
                edges[name].add(included)
    circle = find_circle(edges)
    if circle:
        breaches.append("a circle of includes: " + " -> ".join(circle))
    return breaches


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else Path(__file__).resolve().parent.parent
    breaches = check(root)
    print("\n".join(breaches))
    return 1 if breaches else 0


if __name__ == "__main__":
    sys.exit(main())
