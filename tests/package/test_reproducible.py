"""The same sources give the same packages in another folder and on another date.

Compiling everything twice would take minutes (tools/check_reproducible.py does that). Here the
configuration, one source of each target, the resources, the link and the packing are done again,
without the compiler cache, which would bring back what it had from the first folder and date.
"""

import shutil
import subprocess

import package
import pytest
from check_reproducible import ANOTHER_DATE, run_there, sums_of_package

MAIN, CORE = "src/host/main.cpp", "src/common/product_version.cpp"
AGAIN = (MAIN, CORE, "packaging/version.rc", "packaging/manifest.rc")
OBJECTS = {
    MAIN: f"CMakeFiles/morva-chrome-host.dir/{MAIN}.obj",
    CORE: f"CMakeFiles/morva_core.dir/{CORE}.obj",
}


@pytest.fixture
def elsewhere(tmp_path):
    """Another folder with the sources, configured there, and with what the build made of those that
    are not compiled again."""
    copy = tmp_path / "a rather" / "different" / "folder"
    for name in ("src", "packaging", "tools", "cmake"):
        shutil.copytree(package.ROOT / name, copy / name)
    for name in ("CHANGELOG.md", "vcpkg.json", "CMakeLists.txt", "CMakePresets.json"):
        shutil.copy(package.ROOT / name, copy)
    (copy / "build").mkdir()
    (copy / "build" / "deps").symlink_to(package.ROOT / "build" / "deps")
    run_there(copy, "cmake", "--preset", "windows", "-DMORVA_TESTS=OFF", "--log-level=WARNING")
    build = copy / "build" / "windows"
    shutil.copytree(package.BUILD / "generated", build / "generated", dirs_exist_ok=True)
    for library in package.BUILD.glob("*.a"):
        shutil.copy(library, build)
    for target in ("morva-chrome-host", "morva_core"):
        for folder in ("src/host", "src/common", "packaging"):
            (build / f"CMakeFiles/{target}.dir/{folder}").mkdir(parents=True, exist_ok=True)
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
    run_there(elsewhere / "build" / "windows", "sh", "-c",
              command.replace(str(package.ROOT), quoted))


def test_another_folder_and_date_make_the_same_packages(elsewhere, program, made):
    assert subprocess.check_output([*ANOTHER_DATE, "date", "+%Y"], text=True) == "2031\n"
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
    assert sums_of_package(elsewhere) == (made / "SHA256SUMS").read_text()


def test_no_source_asks_what_time_it_is_compiled_at():
    """Of those that are not compiled again here."""
    asked = subprocess.run(["grep", "-rlE", "__(DATE|TIME|TIMESTAMP)__", package.ROOT / "src",
                            *(package.ROOT / "build" / "deps").glob("*/src"),
                            package.ROOT / "build" / "deps" / "usr" / "include"],
                           capture_output=True, text=True, check=False)
    assert (asked.returncode, asked.stdout, asked.stderr) == (1, "", "")
