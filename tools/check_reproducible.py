#!/usr/bin/env python3
"""Builds the Windows program once more in another folder, without the compiler cache, and compares
the packages: tools/check_reproducible.py. Takes as long as the compiler does, some minutes. It uses
what `./dev package` made from the files as they are now.
"""

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import package


def copy_sources(folder):
    """The files of the project, changed or not, and the library that they are built with."""
    listed = subprocess.run(
        ["git", "-C", package.ROOT, "ls-files", "-z", "-co", "--exclude-standard"],
        stdout=subprocess.PIPE, text=True, check=True).stdout
    for name in filter(None, listed.split("\0")):
        source, target = package.ROOT / name, folder / name
        if source.is_file():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)
    shutil.copytree(package.ROOT / "build" / "deps", folder / "build" / "deps")


def build(folder):
    environment = {**os.environ, "CCACHE_DISABLE": "1"}
    for step in (["--preset", "windows", "--log-level=WARNING"],
                 ["--build", "--preset", "windows", "-t", "morva-chrome-host"]):
        subprocess.run(["cmake", *step], cwd=folder, env=environment, check=True)
    return folder / "build" / "windows" / f"{package.NAME}.exe"


def main():
    wanted = (package.ROOT / "build" / "package" / "SHA256SUMS").read_text()
    with tempfile.TemporaryDirectory() as work:
        folder = Path(work) / "other folder" / "sources"
        copy_sources(folder)
        output = Path(work) / "package"
        package.make_package(build(folder), package.built_version(), output)
        found = (output / "SHA256SUMS").read_text()
    print(found, end="")
    print("the same" if found == wanted else f"NOT the same, which is:\n{wanted}")
    return 0 if found == wanted else 1


if __name__ == "__main__":
    sys.exit(main())
