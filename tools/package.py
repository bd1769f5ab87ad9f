#!/usr/bin/env python3
"""Makes what users get from build/windows: tools/package.py [--output FOLDER]

  morva-chrome-host-VERSION-windows-x64.zip   the program, to be put anywhere
  morva-chrome-host-VERSION-setup.exe         the installer
  morva-chrome-host-VERSION.debug             the symbols, for gdb; the program names this file
  morva-chrome-host-VERSION.spdx.json         the bill of materials
  SHA256SUMS                                  of the four
  winget/                                     the manifest for winget (learn.microsoft.com,
                                              "Create your package manifest"), in its three files

The same sources give the same bytes, wherever and whenever they are built; only a signature differs
each time. SOURCE_DATE_EPOCH says which time the files bear, else it is that of the last commit.
"""

import argparse
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import zipfile
from pathlib import Path

import bill_of_materials
import check_imports
import components
import signing

ROOT = Path(__file__).resolve().parent.parent
PACKAGING = ROOT / "packaging"
BUILD = ROOT / "build" / "windows"
NAME = "morva-chrome-host"
BINUTILS = "x86_64-w64-mingw32-"
PAPERS = ("README.txt", "CHANGELOG.md", "NOTICES.txt")  # what goes with the program
NO_DOWNLOAD_URL = "https://morva.invalid/download"
NO_COMMIT_EPOCH = 315_532_800  # 1980, the first year of the zip format


def run(command, **options):
    done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                          **options)
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]} failed:\n{done.stdout}")
    return done.stdout


def built_version(build=BUILD):
    """The version that the build was configured with, which is the one of CMakeLists.txt."""
    cache = (build / "CMakeCache.txt").read_text()
    return re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.+)$", cache, re.MULTILINE).group(1)


def source_epoch():
    if given := os.environ.get("SOURCE_DATE_EPOCH"):
        return int(given)
    try:
        return int(run(["git", "-C", ROOT, "log", "-1", "--format=%ct"]))
    except (OSError, RuntimeError, ValueError):
        return NO_COMMIT_EPOCH  # an unpacked archive of the sources


def split_symbols(program, folder, version, epoch):
    """The program without symbols, and the symbols that a debugger finds by the program's link."""
    environment = {**os.environ, "SOURCE_DATE_EPOCH": str(epoch)}  # binutils would write the hour
    symbols = folder / f"{NAME}-{version}.debug"
    stripped = folder / f"{NAME}.exe"
    run([BINUTILS + "objcopy", "--only-keep-debug", program, symbols], env=environment)
    symbols.chmod(0o644)
    run([BINUTILS + "objcopy", "--strip-all", f"--add-gnu-debuglink={symbols.name}",
         program.resolve(), stripped.name], env=environment, cwd=folder)
    return stripped, symbols


def documents(folder, linked):
    """The papers, in the line endings of the system that the program is for."""
    texts = [(PACKAGING / PAPERS[0]).read_text(), (ROOT / PAPERS[1]).read_text(),
             components.notices(linked)]
    for name, text in zip(PAPERS, texts):
        (folder / name).write_text(text, newline="\r\n")
    return [folder / name for name in PAPERS]


def make_zip(files, version, epoch, archive):
    """All bytes follow from the arguments: order, dates and rights are written, not taken over."""
    date = max(time.gmtime(epoch)[:6], (1980, 1, 1, 0, 0, 0))
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as packed:
        for file in sorted(files, key=lambda each: each.name):
            entry = zipfile.ZipInfo(f"{NAME}-{version}/{file.name}", date)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o644 << 16
            packed.writestr(entry, file.read_bytes())


def make_installer(program, papers, version, epoch, installer):
    settings = {
        "VERSION": version, "PROGRAM": program.resolve(), "OUTPUT": installer.resolve(),
        "SIZE_KIB": (program.stat().st_size + 1023) // 1024,
        **{paper.stem: paper.resolve() for paper in papers},
    }
    if signing.is_wanted():
        settings["SIGN"] = f'"{sys.executable}" "{ROOT / "tools" / "signing.py"}"'
    defines = [f"-D{name}={value}" for name, value in settings.items()]
    run(["makensis", "-V2", "-WX", "-NOCD", *defines, PACKAGING / "installer.nsi"],
        env={**os.environ, "SOURCE_DATE_EPOCH": str(epoch)})


def download_url():
    """Where the installer will lie; without MORVA_DOWNLOAD_URL an address that is nobody's."""
    return os.environ.get("MORVA_DOWNLOAD_URL", NO_DOWNLOAD_URL).rstrip("/")


def make_winget_manifest(installer, version, folder):
    values = {"VERSION": version, "URL": f"{download_url()}/{installer.name}",
              "SHA256": hashlib.sha256(installer.read_bytes()).hexdigest().upper()}
    folder.mkdir()
    for template in (PACKAGING / "winget").iterdir():
        text = re.sub("@([A-Z0-9]+)@", lambda found: values[found[1]], template.read_text())
        (folder / template.name).write_text(text)


def write_sums(files, output):
    lines = [f"{hashlib.sha256(file.read_bytes()).hexdigest()}  {file.name}\n"
             for file in sorted(files)]
    output.write_text("".join(lines))


def make_package(program, version, output):
    """Replaces the folder `output` by one with everything; returns what it made."""
    if foreign := check_imports.foreign_libraries(program):
        raise RuntimeError(f"the program needs what Windows does not have: {', '.join(foreign)}")
    linked = components.linked_components(program, ROOT)
    epoch = source_epoch()
    shutil.rmtree(output, ignore_errors=True)
    output.mkdir(parents=True)
    with tempfile.TemporaryDirectory() as work:
        stripped, symbols = split_symbols(program, Path(work), version, epoch)
        if signing.is_wanted():
            signing.sign(stripped)
        papers = documents(Path(work), linked)
        archive = output / f"{NAME}-{version}-windows-x64.zip"
        installer = output / f"{NAME}-{version}-setup.exe"
        make_zip([stripped, *papers], version, epoch, archive)
        make_installer(stripped, papers, version, epoch, installer)
        made = [archive, installer, Path(shutil.move(symbols, output))]
        materials = output / f"{NAME}-{version}.spdx.json"
        bill_of_materials.write(materials, version, epoch, [stripped, *papers, *made], linked)
        made.append(materials)
    sums = output / "SHA256SUMS"
    write_sums(made, sums)
    make_winget_manifest(installer, version, output / "winget")
    return [*made, sums]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--output", type=Path, default=ROOT / "build" / "package")
    arguments = parser.parse_args()
    for file in make_package(BUILD / f"{NAME}.exe", built_version(), arguments.output):
        print(f"{file.stat().st_size:>10}  {file}")
    if not signing.is_wanted():
        print("not signed: MORVA_SIGN_CERTIFICATE names no certificate")
    if download_url() == NO_DOWNLOAD_URL:
        print("the winget manifest is for no place: MORVA_DOWNLOAD_URL names none")


if __name__ == "__main__":
    main()
