"""The checks that compile C++: clang-tidy, GCC's warnings, and what is included.

Most of the time of such a check goes into the standard headers and the JSON library, whatever the
file. Where it may, a check therefore reads many files at once, as one translation unit.
"""

import re
import subprocess
from collections.abc import Iterable
from functools import lru_cache
from itertools import groupby
from pathlib import Path

from lint_files import (CACHE, INCLUDE, ROOT, Job, check_each, code_files, found_include, output_of,
                        own_files, top_folder)

DEPENDENCIES = ROOT / "build" / "deps"
LIBRARIES = [DEPENDENCIES / "usr" / "include", *DEPENDENCIES.glob("yyjson-*/src")]
COMPILE = ["-std=c++20", "-DMORVA_KEPT_BLOCKS=2", "-I", str(ROOT / "src"),
           *(part for folder in LIBRARIES for part in ("-isystem", str(folder)))]
LIBCXX = ["-stdlib++-isystem", "/usr/lib/llvm-16/include/c++/v1"]
GOOGLETEST = Path("/usr/src/googletest")
FOLDER_FLAGS = {
    # As the build does. For the Windows sources, which it compiles with GCC, this is the only
    # place where clang checks the locks.
    "src": ["-Wthread-safety", "-Wthread-safety-beta", "-Wexit-time-destructors"],
    "tests": ["-I", str(ROOT / "tests" / "unit"),
              "-isystem", str(GOOGLETEST / "googletest" / "include"),
              "-isystem", str(GOOGLETEST / "googlemock" / "include")],
    "devkit": ["-I", str(ROOT / "devkit" / "cli")],
}
# No loop of a test or of a small program is hot; a program outside the namespace says in its main
# whose names it uses.
NOT_FOR_TESTS = ("-performance-inefficient-string-concatenation,"
                 "-performance-inefficient-vector-operation,-google-build-using-namespace")
VERSION_HEADER = CACHE / "include" / "morva_version.h"  # a check needs no build that makes one
MINGW = Path("/usr/x86_64-w64-mingw32/include")
WINDOWS_DEFINES = ["-DUNICODE", "-D_UNICODE", "-DNOMINMAX", "-DWIN32_LEAN_AND_MEAN",
                   "-D_WIN32_WINNT=0x0A00"]
GCC_WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror", "-Wconversion", "-Wsign-conversion",
                "-Wshadow", "-Wold-style-cast", "-Wcast-qual", "-Wno-missing-field-initializers",
                "-Wduplicated-cond", "-Wduplicated-branches", "-Wlogical-op"]
IWYU_MAPPING = ROOT / "tools" / "iwyu.imp"
UNIT_FILES = 24  # most in one translation unit: what a changed file costs to read again


@lru_cache(maxsize=None)
def mingw_includes() -> list[str]:
    """Where mingw's GCC looks for headers, for a clang that reads Windows sources."""
    done = subprocess.run(["x86_64-w64-mingw32-g++-posix", "-v", "-E", "-x", "c++", "/dev/null"],
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
    listed = done.stderr.split("search starts here:\n")[-1].split("End of search list")[0]
    folders = [str(Path(line.strip()).resolve()) for line in listed.splitlines()]
    # The compiler's own headers must be clang's: GCC's name built-ins that clang does not have.
    own = output_of("clang", "-print-resource-dir").strip()
    folders = [each for each in folders if "c++" in each or str(MINGW) in each]
    return [*folders, own + "/include"]


def windows_flags() -> list[str]:
    includes = [part for folder in mingw_includes() for part in ("-isystem", folder)]
    return ["--target=x86_64-w64-mingw32", "-nostdinc", "-nostdinc++", *includes,
            *WINDOWS_DEFINES]


def version_flags() -> list[str]:
    """For what includes the header that the build makes of the project's version."""
    template = (ROOT / "cmake" / (VERSION_HEADER.name + ".in")).read_text()
    text = re.sub(r"@\w+@", "0", template)
    if not VERSION_HEADER.exists() or VERSION_HEADER.read_text() != text:
        VERSION_HEADER.parent.mkdir(parents=True, exist_ok=True)
        VERSION_HEADER.write_text(text)
    return ["-isystem", str(VERSION_HEADER.parent)]


@lru_cache(maxsize=None)
def is_windows(path: Path) -> bool:
    return "/win/" in path.as_posix() or "#include <windows.h>" in path.read_text()


def clang_flags(folder: str, windows: bool, library: list[str]) -> list[str]:
    return [*COMPILE, *FOLDER_FLAGS.get(folder, []), *(windows_flags() if windows else library),
            *version_flags()]


# --- many files as one ---

def is_alone(path: Path, text: str) -> bool:
    """Whether no other file uses what this one defines: a test, a fuzz target, a program."""
    return top_folder(path) != "src" and re.search(
        r"^TEST|\bmain\(|\bLLVMFuzzerTestOneInput\(|^void fuzz\(", text, re.MULTILINE) is not None


def as_part(path: Path, number: int) -> str:
    """Includes a file in a unit; one that is alone, in a namespace inside the one that it names."""
    text = path.read_text()
    include = f'#include "{path}"\n'
    if not is_alone(path, text):
        return include
    renamed = {name: f"part{number}" for name in ("main", "LLVMFuzzerTestOneInput")}
    named = re.search(r"^namespace ([\w:]+) {", text, re.MULTILINE)
    if named:
        part = f"namespace {named[1]}::part_{number} {{ using namespace {named[1]}; }}\n"
        inner = named[1].split("::")[-1]
        renamed[inner] = f"{inner}::part_{number}"
    else:
        part, include = "", f"namespace part_{number} {{\n{include}}}\n"
    return "".join([part, *(f"#define {name} {other}\n" for name, other in renamed.items()),
                    include, *(f"#undef {name}\n" for name in renamed)])


def unit_text(files: list[Path]) -> str:
    """First what must not come into a renamed namespace as it is included there, then the files."""
    included: dict[str, None] = {}
    for path in files:
        text = path.read_text()
        for opening, name in INCLUDE.findall(text) if is_alone(path, text) else []:
            found = found_include(name, path) if opening == '"' else None
            included[f'"{found}"' if found else f"<{name}>"] = None
    own = "bugprone-suspicious-include,google-build-using-namespace"  # in the unit itself only
    return "\n".join([*(f"#include {name}" for name in included), f"// NOLINTBEGIN({own})",
                      *(as_part(path, number) for number, path in enumerate(files)),
                      f"// NOLINTEND({own})", ""])


def units(files: Iterable[Path]) -> Iterable[list[Path]]:
    """Parts the files by folders, as many folders together as there may be files in a unit."""
    def kind(path: Path) -> tuple[str, bool]:
        return top_folder(path), is_windows(path)

    for _, same in groupby(sorted(files, key=lambda path: (kind(path), path)), kind):
        unit: list[Path] = []
        for _, folder in groupby(same, lambda path: path.parent):
            more = list(folder)
            if unit and len(unit) + len(more) > UNIT_FILES:
                yield unit
                unit = []
            unit += more
        yield unit


def written_unit(files: list[Path]) -> Path:
    name = "-".join(files[0].relative_to(ROOT).parts[:-1] + (files[0].stem, str(len(files))))
    unit = CACHE / "units" / f"{name}.cpp"
    unit.parent.mkdir(parents=True, exist_ok=True)
    unit.write_text(unit_text(files))
    return unit


def tidy_job(files: list[Path], source: Path, library: list[str]) -> Job:
    flags = clang_flags(top_folder(files[0]), is_windows(files[0]), library)
    fewer = [] if top_folder(files[0]) == "src" else [f"--checks={NOT_FOR_TESTS}"]
    return files, ["clang-tidy", "--quiet", *fewer, source, "--", *flags]


def check_tidy() -> list[str]:
    """Sources with GCC's library, as the product has, programs for tests with LLVM's: that the
    sources compile with that one is seen where their includes are checked. Two files of a unit
    that give one name to two things of their own do not compile: one of the names has to change."""
    salt = (ROOT / ".clang-tidy").read_text() + output_of("clang-tidy", "--version")

    def library(files: list[Path]) -> list[str]:
        return [] if top_folder(files[0]) == "src" else LIBCXX

    return check_each([tidy_job(files, written_unit(files), library(files))
                       for files in units(code_files(".cpp"))], salt)


def check_gcc() -> list[str]:
    """What only the twin compiles, which the tests build with clang, is read by GCC too."""
    files = [path for path in own_files(".cpp")
             if path.relative_to(ROOT).as_posix().startswith("src/platform/posix/")]
    unit = written_unit(files)
    return check_each([(files, ["g++", "-fsyntax-only", *GCC_WARNINGS, *COMPILE, unit])],
                      output_of("g++", "--version"))


# --- what is included ---

def iwyu_job(path: Path) -> Job:
    options = ["--no_fwd_decls", "--no_comments", "--error=1", f"--mapping_file={IWYU_MAPPING}"]
    return [path], ["iwyu", *(part for option in options for part in ("-Xiwyu", option)),
                    *clang_flags(top_folder(path), False, LIBCXX), path]


def include_breaches(exit_code: int, output: str) -> str:
    """What include-what-you-use says of includes that are not needed, and of own ones that are
    missing. A header of the library that is missing shows with one of the two libraries, which
    include different others."""
    if exit_code == 0:
        return ""
    if re.search(r"\berror: ", output):
        return output
    breaches = []
    for name, verb, lines in re.findall(r"^(\S+) should (add|remove) these lines:\n((?:.+\n)*)",
                                        output, re.MULTILINE):
        for line in lines.splitlines():
            if verb == "remove" or '"' in line:
                breaches.append(f"{name}: should {verb} {line.removeprefix('- ').split('  //')[0]}")
    return "\n".join(breaches)


def check_includes() -> list[str]:
    """Of the sources, one by one, which are also compiled with LLVM's library by that. Not those
    for Windows, where one header is included in place of another."""
    jobs = [iwyu_job(path) for path in own_files(".cpp")
            if top_folder(path) == "src" and not is_windows(path)]
    salt = IWYU_MAPPING.read_text() + output_of("iwyu", "--version")
    return check_each(jobs, salt, include_breaches)
