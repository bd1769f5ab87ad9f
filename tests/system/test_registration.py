"""Making the program known to browsers, and undoing that, in the registry of the test's prefix.

What becomes of one browser's key and of the manifest is tested in tests/unit/setup.
"""

import json

import pytest

from support import builds
from support.user_commands import VENDOR_KEYS, MANIFEST_NAME, Program, UserRegistry, host_key

from devkit.panel import wine

pytestmark = pytest.mark.windows_only

CLIENTS = r"Software\Clients\StartMenuInternet"
ALL = list(VENDOR_KEYS)
OURS = [*VENDOR_KEYS.values(), r"Software\Google", CLIENTS]
OWN_ORIGIN = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"


@pytest.fixture
def program(tmp_path):
    """The program in a folder of its own, whose name is not easy."""
    folder = tmp_path / "mörva 漢"
    folder.mkdir()
    path = folder / builds.PROGRAM.name
    path.symlink_to(builds.PROGRAM)
    return Program(path, {})


@pytest.fixture
def run(program):
    """Runs the program, which succeeds, and gives what it says of each title."""

    def outcome(*arguments):
        done = program.run(*arguments)
        assert done.code == 0, done
        lines = [line.split(None, 1) for line in done.out.splitlines() if line]
        return {title: text for title, text in lines}

    return outcome


@pytest.fixture
def registry(tmp_path):
    found = UserRegistry(tmp_path)
    found.delete(*OURS)  # other tests leave empty keys
    yield found
    found.delete(*OURS)


@pytest.fixture
def machine(tmp_path):
    found = UserRegistry(tmp_path, "HKEY_LOCAL_MACHINE")
    found.delete(*OURS)
    yield found
    found.delete(*OURS)


@pytest.fixture
def path(program):
    return wine.windows_path(program.path.parent) + "\\" + MANIFEST_NAME


def registered(registry):
    """What the browsers' keys name as manifest."""
    keys = registry.below("Software")
    return [keys.get(host_key(browser), {}).get("") for browser in ALL]


def left_in_folder(program):
    return [each.name for each in program.path.parent.iterdir() if each != program.path]


def test_all_browsers_are_registered_and_unregistered_without_a_trace(
        program, run, registry, path):
    before = set(registry.below("Software"))
    every = [f"--browser={browser}" for browser in ALL]
    said = run("--register", *every, "--dry-run")
    assert said["nothing"] == "was changed" and said["edge"].startswith("would be registered: ")
    assert left_in_folder(program) == [] and set(registry.below("Software")) == before

    said = run("--register", *every)
    assert registered(registry) == [path] * len(ALL)
    for browser in ("chrome", "edge", "chromium"):
        assert said[browser] == f"registered: HKCU\\{host_key(browser)}"
    assert said["brave"] == said["vivaldi"] == "uses the key of chrome"
    assert json.loads(program.manifest.read_bytes()) == {
        "name": "com.quenlark.morva.chrome",
        "description": "morva: the desktop assistant's side of the browser panel",
        "path": f"{wine.windows_path(program.path.parent)}\\{program.path.name}",
        "type": "stdio", "allowed_origins": [OWN_ORIGIN]}
    assert left_in_folder(program) == [MANIFEST_NAME]

    written = program.manifest.stat()
    said = run("--register", "--browser", "edge")
    assert said["manifest"].startswith("is right already: ")
    assert said["edge"].startswith("is registered already: ")
    assert program.manifest.stat().st_mtime_ns == written.st_mtime_ns
    assert program.manifest.stat().st_ino == written.st_ino

    said = run("--unregister", "--browser", "edge")  # the others still need the manifest
    assert said["manifest"].startswith("stays") and left_in_folder(program) == [MANIFEST_NAME]
    assert registered(registry) == [path, None, path, path, path]
    said = run("--unregister")
    assert said["edge"] == "is not registered" and said["manifest"].startswith("deleted: ")
    assert all(said[browser].startswith("unregistered: ") for browser in ("chrome", "chromium"))
    assert set(registry.below("Software")) == before
    assert left_in_folder(program) == []
    assert run("--unregister")["manifest"].startswith("is not there: ")


def test_the_installed_browsers_and_named_extensions_are_registered(
        program, run, registry, path):
    said = run("--register")  # where no browser is found, Chrome is registered
    assert "none was found here" in said["browsers"]
    assert registered(registry) == [path, None, path, path, None]
    registry.add(CLIENTS + r"\Vivaldi.ABC", "", "Vivaldi")
    registry.add(CLIENTS + r"\Microsoft Edge Beta", "", "Edge")
    extension = "abcdefghijklmnopabcdefghijklmnop"
    for options, origins in ((["--extension-id", extension],
                              [OWN_ORIGIN, f"chrome-extension://{extension}/"]),
                             ([], [OWN_ORIGIN])):
        said = run("--register", *options)
        assert json.loads(program.manifest.read_bytes())["allowed_origins"] == origins
    assert "chrome" not in said and said["vivaldi"].startswith("is registered already: ")
    assert registered(registry) == [path, path, path, path, None]


def test_a_key_goes_with_its_last_user(run, registry, path):
    for client in ("Google Chrome", "Brave"):
        registry.add(f"{CLIENTS}\\{client}", "", client)
    run("--register")
    said = run("--unregister", "--browser", "brave")
    assert said["brave"].startswith("stays, as Chrome uses it: HKCU\\")
    assert registered(registry)[0] == path
    registry.delete(CLIENTS + r"\Google Chrome")
    assert run("--unregister", "--browser", "brave")["brave"].startswith("unregistered: ")
    assert registered(registry) == [None] * len(ALL)


def test_all_users_have_the_keys_of_the_machine(program, run, registry, machine, path):
    said = run("--register", "--all-users", "--browser", "chrome")
    assert said["chrome"] == f"registered: HKLM\\{host_key('chrome')}"
    assert registered(machine) == [path, None, path, path, None]
    assert registered(registry) == [None] * len(ALL)
    assert run("--unregister")["manifest"].startswith("stays")  # the user's keys alone
    assert run("--unregister", "--all-users")["chrome"].startswith("unregistered: ")
    assert registered(machine) == [None] * len(ALL) and left_in_folder(program) == []
