#!/usr/bin/env python3
"""Runs every check that needs no program to run: tools/lint.py [--junit FILE] [CHECK...]

Each check prints what it found; the last lines say which held. What clang-tidy and the syntax check
found good is remembered in build/lint by the contents of the file and all that it includes, so only
a changed file costs time.
"""

import argparse
import concurrent.futures
import hashlib
import os
import re
import subprocess
import sys
import time
from functools import lru_cache
from pathlib import Path

import check_layers
import junit

ROOT = Path(__file__).resolve().parent.parent
CACHE = ROOT / "build" / "lint"
JSON_INCLUDE = ROOT / "build" / "deps" / "usr" / "include"
CODE_FOLDERS = ("src", "tests", "bench", "devkit", "cmake", "tools")
MOST_LINES = 400
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)
COMPILE = ["-std=c++20", "-I", str(ROOT / "src"), "-isystem", str(JSON_INCLUDE)]
VERSION_HEADER = CACHE / "include" / "morva_version.h"  # a check needs no build that makes one
MINGW = Path("/usr/x86_64-w64-mingw32/include")
WINDOWS_DEFINES = ["-DUNICODE", "-D_UNICODE", "-DNOMINMAX", "-DWIN32_LEAN_AND_MEAN",
                   "-D_WIN32_WINNT=0x0A00"]
GCC_WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror", "-Wconversion", "-Wsign-conversion",
                "-Wshadow", "-Wold-style-cast", "-Wcast-qual", "-Wno-missing-field-initializers",
                "-Wduplicated-cond", "-Wduplicated-branches", "-Wlogical-op"]


def run(command):
    """The output of a command that failed, empty when it succeeded."""
    done = subprocess.run([str(part) for part in command], cwd=ROOT, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace", check=False)
    if done.returncode == 0:
        return ""
    # clang-tidy counts what it found in other people's headers and does not show.
    lines = [line for line in done.stdout.splitlines()
             if not re.fullmatch(r"\d+ warnings? generated\.", line)]
    return "\n".join(lines) or f"{command[0]} failed"


@lru_cache
def own_files(*suffixes):
    """Files of the project with one of these suffixes, build output and caches left out."""
    found = []
    for folder, folders, names in os.walk(ROOT):
        folders[:] = sorted(each for each in folders
                            if each not in ("build", ".git", "node_modules", "__pycache__"))
        found += [Path(folder) / name for name in sorted(names) if name.endswith(suffixes)]
    return found


def code_files(*suffixes):
    return [path for path in own_files(*suffixes)
            if path.relative_to(ROOT).parts[0] in CODE_FOLDERS]


# --- results that are remembered ---

@lru_cache(maxsize=None)
def content_key(path):
    """Stands for the contents of a file and of every own file that it includes."""
    seen, waiting = {}, [path]
    while waiting:
        each = waiting.pop()
        if each in seen:
            continue
        text = each.read_text(errors="replace")
        seen[each] = text
        for name in INCLUDE.findall(text):
            for base in (ROOT / "src", ROOT / "tests" / "unit", each.parent):
                if (base / name).is_file():
                    waiting.append((base / name).resolve())
                    break
    together = hashlib.sha256()
    for each in sorted(seen):
        together.update(f"{each.relative_to(ROOT)}\0{seen[each]}\0".encode())
    return together.hexdigest()


def check_each(jobs, salt):
    """Runs commands, given as (file, command), two at a time; skips what was good before."""
    CACHE.mkdir(parents=True, exist_ok=True)

    keyed = [(hashlib.sha256(f"{salt}{command}{content_key(path)}".encode()).hexdigest(), command)
             for path, command in jobs]

    def check_one(job):
        key, command = job
        if (CACHE / key).exists():
            return ""
        found = run(command)
        if not found:
            (CACHE / key).touch()
        return found

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return [found for found in pool.map(check_one, keyed) if found]


# --- the checks; each gives a list of texts, empty when it holds ---

def check_format():
    files = code_files(".cpp", ".h")
    return [found for found in [run(["clang-format", "--dry-run", "-Werror", *files])] if found]


@lru_cache(maxsize=None)
def mingw_includes():
    """Where mingw's GCC looks for headers, for a clang that reads Windows sources."""
    done = subprocess.run(["x86_64-w64-mingw32-g++-posix", "-v", "-E", "-x", "c++", "/dev/null"],
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
    listed = done.stderr.split("search starts here:\n")[-1].split("End of search list")[0]
    folders = [str(Path(line.strip()).resolve()) for line in listed.splitlines()]
    # The compiler's own headers must be clang's: GCC's name built-ins that clang does not have.
    own = subprocess.run(["clang", "-print-resource-dir"], stdout=subprocess.PIPE, text=True,
                         check=True).stdout.strip()
    folders = [each for each in folders if "c++" in each or str(MINGW) in each]
    return [*folders, own + "/include"]


def version_flags(path):
    """For what includes the header that the build makes of the project's version."""
    if f"<{VERSION_HEADER.name}>" not in path.read_text():
        return []
    template = (ROOT / "cmake" / (VERSION_HEADER.name + ".in")).read_text()
    VERSION_HEADER.parent.mkdir(parents=True, exist_ok=True)
    VERSION_HEADER.write_text(re.sub(r"@\w+@", "0", template))
    return ["-isystem", str(VERSION_HEADER.parent)]


def tidy_flags(path):
    if "/win/" not in path.as_posix():
        return [*COMPILE, *version_flags(path)]
    includes = [part for folder in mingw_includes() for part in ("-isystem", folder)]
    return [*COMPILE, "--target=x86_64-w64-mingw32", "-nostdinc", "-nostdinc++", *includes,
            *WINDOWS_DEFINES]


def check_tidy():
    salt = (ROOT / ".clang-tidy").read_text() + run_version("clang-tidy")
    jobs = [(path, ["clang-tidy", "--quiet", path, "--", *tidy_flags(path)])
            for path in own_files(".cpp") if path.relative_to(ROOT).parts[0] == "src"]
    return check_each(jobs, salt)


def run_version(program):
    return subprocess.run([program, "--version"], stdout=subprocess.PIPE, text=True,
                          check=True).stdout


def check_gcc():
    """What only the twin compiles, which the tests build with clang, is read by GCC too."""
    jobs = [(path, ["g++", "-fsyntax-only", *GCC_WARNINGS, *COMPILE, path])
            for path in own_files(".cpp")
            if path.relative_to(ROOT).as_posix().startswith("src/platform/posix/")]
    return check_each(jobs, run_version("g++"))


def check_layer_rules():
    return check_layers.check(ROOT)


def check_files():
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


def check_shell():
    return [found for found in [run(["shellcheck", *shell_scripts()])] if found]


def check_python():
    files = own_files(".py")
    return [found for found in [run(["/usr/bin/python3", "-m", "flake8", *files])] if found]


def check_extension():
    """The types that the extension's comments name."""
    folder = ROOT / "devkit" / "extension"
    files = [path for path in own_files(".js", ".ts", ".json") if folder in path.parents]
    salt = "".join(path.read_text() for path in files) + run_version("tsc")
    return check_each([(folder / "tsconfig.json", ["tsc", "--project", folder])], salt)


CHECKS = {
    "format": check_format,
    "layers": check_layer_rules,
    "files": check_files,
    "shell": check_shell,
    "python": check_python,
    "extension": check_extension,
    "gcc": check_gcc,
    "tidy": check_tidy,
}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--junit", type=Path)
    parser.add_argument("checks", nargs="*", metavar="CHECK", help=" ".join(CHECKS))
    arguments = parser.parse_args()
    results = {}
    for name in arguments.checks or CHECKS:
        begin = time.monotonic()
        results[name] = CHECKS[name]()
        for text in results[name]:
            print(text)
        verdict = "FAILED" if results[name] else "ok"
        print(f"{name:<8} {verdict}  ({time.monotonic() - begin:.1f} s)", flush=True)
    if arguments.junit:
        junit.write(arguments.junit, "lint", results)
    return 1 if any(results.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
