#!/usr/bin/env python3
"""Runs every check that needs no program to run: tools/lint.py [--junit FILE] [CHECK...]

Each check prints what it found; the last lines say which held.
"""

import argparse
import re
import sys
import time
from pathlib import Path

import check_layers
import junit
from lint_cpp import check_gcc, check_includes, check_tidy
from lint_files import CACHE, ROOT, Job, check_each, code_files, output_of, own_files, run

MOST_LINES = 400


# --- the checks; each gives a list of texts, empty when it holds ---

def check_format() -> list[str]:
    files = code_files(".cpp", ".h")
    return [found for found in [run(["clang-format", "--dry-run", "-Werror", *files])] if found]


def check_layer_rules() -> list[str]:
    return check_layers.check(ROOT)


def check_files() -> list[str]:
    """Traces show base names only, so each is unique; a file past 400 lines has two subjects."""
    found, seen = [], {}
    for path in code_files(".cpp", ".h"):
        name = path.relative_to(ROOT)
        if path.name in seen:
            found.append(f"{name}: has the same base name as {seen[path.name]}")
        seen[path.name] = name
        lines = path.read_text().count("\n")
        if lines > MOST_LINES:
            found.append(f"{name}: {lines} lines, more than {MOST_LINES}")
    return found


def shell_scripts():
    scripts = own_files(".sh")
    for path in [*ROOT.glob("*"), *ROOT.glob("tools/*"), *ROOT.glob(".ci/*")]:
        if path.is_file() and not path.suffix:
            first = path.read_bytes()[:40].splitlines()[:1]
            if first and re.match(rb"#!.*\b(ba)?sh\b", first[0]):
                scripts.append(path)
    return scripts


def check_shell() -> list[str]:
    return [found for found in [run(["shellcheck", *shell_scripts()])] if found]


def check_python() -> list[str]:
    files = own_files(".py")
    return [found for found in [run(["/usr/bin/python3", "-m", "flake8", *files])] if found]


def check_types() -> list[str]:
    """Each row is one world of names: conftest and support are several modules in the project."""
    programs = ("bench", "tools", "devkit", "tests/soak", "tests/system")
    worlds = [("tools:tools/mutants:tests/system:tests/soak:bench", programs),
              ("tests/browser", ("tests/browser",)),
              ("tools:tests/system:tests/package", ("tests/package",)),
              ("tools:tests/system:tests/torture", ("tests/torture",)),
              ("tools:tools/mutants:tools/tests:devkit", ("tools/tests",))]
    salt = (ROOT / "mypy.ini").read_text() + output_of("mypy", "--version")
    jobs: list[Job] = []
    for number, (paths, folders) in enumerate(worlds):
        exclude = [] if "tools/tests" in folders else ["--exclude", "^tools/tests/"]
        jobs.append((own_files(".py"), [
            "env", f"MYPYPATH=.:{paths}", "mypy", "--no-error-summary", "--cache-dir",
            CACHE / f"mypy{number}", *exclude, *folders]))
    return check_each(jobs, salt)


def check_extension() -> list[str]:
    """The types that the extension's comments name."""
    folder = ROOT / "devkit" / "extension"
    files = [path for path in own_files(".js", ".ts", ".json") if folder in path.parents]
    salt = "".join(path.read_text() for path in files) + output_of("tsc", "--version")
    return check_each([([folder / "tsconfig.json"], ["tsc", "--project", folder])], salt)


CHECKS = {
    "format": check_format,
    "layers": check_layer_rules,
    "files": check_files,
    "shell": check_shell,
    "python": check_python,
    "types": check_types,
    "extension": check_extension,
    "gcc": check_gcc,
    "tidy": check_tidy,
    "includes": check_includes,
}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--junit", type=Path)
    parser.add_argument("checks", nargs="*", metavar="CHECK", help=" ".join(CHECKS))
    arguments = parser.parse_args()
    results = {}
    for name in arguments.checks or CHECKS:
        begin = time.monotonic()
        results[name] = [text for text in CHECKS[name]() if text]
        for text in results[name]:
            print(text)
        verdict = "FAILED" if results[name] else "ok"
        print(f"{name:<8} {verdict}  ({time.monotonic() - begin:.1f} s)", flush=True)
    if arguments.junit:
        junit.write(arguments.junit, "lint", results)
    return 1 if any(results.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
