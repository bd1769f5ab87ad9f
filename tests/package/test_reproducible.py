"""The same sources give the same program in another folder and at another time.

Compiling everything twice would take minutes (tools/check_reproducible.py does that). Here one
source of each target, the resources and the link are done again, without the compiler cache.
"""

import os
import shutil
import subprocess

import package
import pytest

MAIN, CORE = "src/host/main.cpp", "src/common/product_version.cpp"
AGAIN = (MAIN, CORE, "packaging/version.rc", "packaging/manifest.rc")
OBJECTS = {
    MAIN: f"CMakeFiles/morva-chrome-host.dir/{MAIN}.obj",
    CORE: f"CMakeFiles/morva_core.dir/{CORE}.obj",
}


@pytest.fixture
def elsewhere(tmp_path):
    """Another folder with the sources, and with what the build made of those not compiled again."""
    copy = tmp_path / "a rather" / "different" / "folder"
    for name in ("src", "packaging"):
        shutil.copytree(package.ROOT / name, copy / name)
    build = copy / "build" / "windows"
    for name in ("generated", "delay_load"):
        shutil.copytree(package.BUILD / name, build / name)
    for library in package.BUILD.glob("*.a"):
        shutil.copy(library, build)
    (copy / "build" / "deps").symlink_to(package.ROOT / "build" / "deps")
    for target in ("morva-chrome-host", "morva_core"):
        for folder in ("src/host", "src/common", "packaging"):
            (build / f"CMakeFiles/{target}.dir/{folder}").mkdir(parents=True)
    return copy


def build_commands():
    listed = subprocess.run(["ninja", "-C", package.BUILD, "-t", "commands", "morva-chrome-host"],
                            capture_output=True, text=True, check=True).stdout.splitlines()
    wanted = [f"{package.ROOT}/{source}" for source in AGAIN]
    compiling = [line for line in listed if any(source in line for source in wanted)]
    assert len(compiling) == len(AGAIN)
    assert " -o morva-chrome-host.exe " in listed[-1]
    return compiling, listed[-1]


def repeat(command, elsewhere):
    """Runs a command of the build as if the project lay elsewhere."""
    quoted = str(elsewhere).replace(" ", "\\ ")
    subprocess.run(command.replace(str(package.ROOT), quoted), shell=True, check=True,
                   cwd=elsewhere / "build" / "windows", env={**os.environ, "CCACHE_DISABLE": "1"})


def test_another_folder_makes_the_same_program(elsewhere, program):
    build = elsewhere / "build" / "windows"
    compiling, linking = build_commands()
    for command in compiling:
        repeat(command, elsewhere)
    for name in OBJECTS.values():
        assert (build / name).read_bytes() == (package.BUILD / name).read_bytes(), name
    subprocess.run(["x86_64-w64-mingw32-ar", "r", "libmorva_core.a",
                    OBJECTS[CORE]], cwd=build, check=True)
    repeat(linking, elsewhere)
    again = build / program.name
    assert again.read_bytes() == program.read_bytes()
    assert str(package.ROOT).encode() not in again.read_bytes()
