"""What the checks share: the files of the project, commands, and results that are remembered.

What a command found good is remembered in build/lint by the contents of the file and all that it
includes, so only a changed file costs time.
"""

import concurrent.futures
import hashlib
import os
import re
import subprocess
from collections.abc import Callable, Iterable
from functools import lru_cache
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
CACHE = ROOT / "build" / "lint"
CODE_FOLDERS = ("src", "tests", "bench", "devkit", "cmake", "tools")
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)', re.MULTILINE)
# Where an include in quotes may lie, besides beside the file.
INCLUDE_FOLDERS = (ROOT / "src", ROOT / "tests" / "unit", ROOT / "devkit" / "cli")

Command = list[str | Path]
Job = tuple[list[Path], Command]  # the command, and the files that it reads besides headers


def complaint(exit_code: int, output: str) -> str:
    """What a command complains about, empty when it succeeded."""
    if exit_code == 0:
        return ""
    # clang-tidy counts what it found in other people's headers and does not show.
    lines = [line for line in output.splitlines()
             if not re.fullmatch(r"\d+ warnings? generated\.", line)]
    return "\n".join(lines) or f"exit code {exit_code}"


def run(command: Command, judge: Callable[[int, str], str] = complaint) -> str:
    """What `judge` makes of the command's exit code and output."""
    done = subprocess.run([str(part) for part in command], cwd=ROOT, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace", check=False)
    return judge(done.returncode, done.stdout)


def output_of(*command: str) -> str:
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


@lru_cache
def own_files(*suffixes: str) -> list[Path]:
    """Files of the project with one of these suffixes, build output and caches left out."""
    found: list[Path] = []
    for folder, folders, names in os.walk(ROOT):
        folders[:] = sorted(each for each in folders
                            if each not in ("build", ".git", "node_modules", "__pycache__"))
        found += [Path(folder) / name for name in sorted(names) if name.endswith(suffixes)]
    return found


def top_folder(path: Path) -> str:
    return path.relative_to(ROOT).parts[0]


def code_files(*suffixes: str) -> list[Path]:
    return [path for path in own_files(*suffixes) if top_folder(path) in CODE_FOLDERS]


def found_include(name: str, path: Path) -> Path | None:
    """The own file that `path` means with an include in quotes."""
    for base in (*INCLUDE_FOLDERS, path.parent):
        if (base / name).is_file():
            return (base / name).resolve()
    return None


@lru_cache(maxsize=None)
def content_key(files: tuple[Path, ...]) -> str:
    """Stands for the contents of files and of every own file that they include."""
    seen: dict[Path, str] = {}
    waiting = list(files)
    while waiting:
        each = waiting.pop()
        if each in seen:
            continue
        seen[each] = each.read_text(errors="replace")
        for opening, name in INCLUDE.findall(seen[each]):
            found = found_include(name, each) if opening == '"' else None
            if found:
                waiting.append(found)
    together = hashlib.sha256()
    for each in sorted(seen):
        together.update(f"{each.relative_to(ROOT)}\0{seen[each]}\0".encode())
    return together.hexdigest()


def check_each(jobs: Iterable[Job], salt: str,
               judge: Callable[[int, str], str] = complaint) -> list[str]:
    """What each command found, one per core at a time; skips what was good before."""
    CACHE.mkdir(parents=True, exist_ok=True)

    def check_one(job: Job) -> str:
        files, command = job
        key = hashlib.sha256(f"{salt}{command}{content_key(tuple(files))}".encode()).hexdigest()
        if (CACHE / key).exists():
            return ""
        found = run(command, judge)
        if not found:
            (CACHE / key).touch()
        return found

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(check_one, jobs))
