"""Fixtures: a package made from the Windows build, and a user's machine to install it on."""

import os
import sys
import zipfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / each) for each in ("", "tools", "tests/system")]

import package  # noqa: E402
from machine import Machine  # noqa: E402

OLDER = "0.0.9"


@pytest.fixture(scope="session")
def program():
    """The host as it was built, symbols and all."""
    return package.BUILD / "morva-chrome-host.exe"


@pytest.fixture(scope="session")
def version():
    return package.built_version()


@pytest.fixture(scope="session")
def made(program, version, tmp_path_factory):
    """The folder with a package of the program, unsigned whatever the environment says."""
    os.environ.pop("MORVA_SIGN_CERTIFICATE", None)
    output = tmp_path_factory.mktemp("made") / "package"
    package.make_package(program, version, output)
    return output


@pytest.fixture(scope="session")
def unpacked(made, version, tmp_path_factory):
    """The folder that comes out of the archive."""
    folder = tmp_path_factory.mktemp("unpacked")
    with zipfile.ZipFile(made / f"morva-chrome-host-{version}-windows-x64.zip") as archive:
        archive.extractall(folder)
    return folder / f"morva-chrome-host-{version}"


@pytest.fixture(scope="session")
def make_setup(unpacked, tmp_path_factory):
    """make_setup(version, program) gives an installer for a program of another version."""

    def make(version, program=None):
        installer = tmp_path_factory.mktemp("setup") / f"morva-{version}-setup.exe"
        papers = [unpacked / each for each in package.PAPERS]
        package.make_installer(program or unpacked / "morva-chrome-host.exe", papers, version, 0,
                               installer)
        return installer

    return make


@pytest.fixture(scope="session")
def setup(made, version):
    return made / f"morva-chrome-host-{version}-setup.exe"


@pytest.fixture(scope="session")
def older_setup(make_setup):
    return make_setup(OLDER)


@pytest.fixture
def machine():
    """A machine without the program. A test must leave it so; what it leaves anyway is removed, so
    that the next one starts where it should."""
    machine = Machine(Path(os.environ["WINEPREFIX"]))
    before = machine.contents()
    yield machine
    machine.end_hosts()
    after = machine.contents()
    machine.clean()
    assert after == before
