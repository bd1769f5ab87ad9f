#!/usr/bin/env python3
"""Builds and packs the Windows program once more in another folder, on another date and without the
compiler cache, and compares the packages: tools/check_reproducible.py. Takes as long as the
compiler does, some minutes. It is held against what `./dev package` made of the files as they are.
"""

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import package

ANOTHER_DATE = ["faketime", "-f", "@2031-05-04 03:02:01"]


def copy_sources(folder):
    """The files of the project, changed or not, and the libraries that they are built with."""
    listed = subprocess.run(
        ["git", "-C", package.ROOT, "ls-files", "-z", "-co", "--exclude-standard"],
        stdout=subprocess.PIPE, text=True, check=True).stdout
    for name in filter(None, listed.split("\0")):
        source, target = package.ROOT / name, folder / name
        if source.is_file():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)
    shutil.copytree(package.ROOT / "build" / "deps", folder / "build" / "deps")


def run_there(folder, *command):
    """Runs a command of the build in `folder`, on another date; the packages bear the first one."""
    environment = {**os.environ, "CCACHE_DISABLE": "1",
                   "SOURCE_DATE_EPOCH": str(package.source_epoch())}
    subprocess.run([*ANOTHER_DATE, *map(str, command)], cwd=folder, env=environment, check=True)


def sums_of_package(folder):
    """Packs what was built below `folder` with the tools that lie there."""
    output = folder / "package"
    run_there(folder, sys.executable, folder / "tools" / "package.py", "--output", output)
    return (output / "SHA256SUMS").read_text()


def main():
    wanted = (package.ROOT / "build" / "package" / "SHA256SUMS").read_text()
    with tempfile.TemporaryDirectory() as work:
        folder = Path(work) / "other folder" / "sources"
        copy_sources(folder)
        run_there(folder, "cmake", "--preset", "windows", "--log-level=WARNING")
        run_there(folder, "cmake", "--build", "--preset", "windows", "-t", package.NAME)
        found = sums_of_package(folder)
    print(found, end="")
    print("the same" if found == wanted else f"NOT the same, which is:\n{wanted}")
    return 0 if found == wanted else 1


if __name__ == "__main__":
    sys.exit(main())
