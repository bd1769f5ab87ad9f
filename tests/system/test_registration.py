"""Making the program known to browsers, and undoing that, in the registry of the test's prefix."""

import json

import pytest

from support import builds
from support.user_commands import VENDOR_KEYS, MANIFEST_NAME, Program, UserRegistry, host_key

from devkit.panel import wine

pytestmark = pytest.mark.windows_only

CLIENTS = r"Software\Clients\StartMenuInternet"
ALL = list(VENDOR_KEYS)
OURS = [*VENDOR_KEYS.values(), r"Software\Google", r"Software\BraveSoftware", CLIENTS]
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

    def outcome(*arguments, code=0):
        done = program.run(*arguments)
        assert done.code == code, done
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
def path(program):
    return wine.windows_path(program.path.parent) + "\\" + MANIFEST_NAME


def values(registry, browser):
    """What is in a browser's key for the host; None when there is no key."""
    return registry.below(host_key(browser)).get(host_key(browser))


def registered(registry):
    """What the browsers' keys name as manifest."""
    keys = registry.below("Software")
    return [keys.get(host_key(browser), {}).get("") for browser in ALL]


def left_in_folder(program):
    return [each.name for each in program.path.parent.iterdir() if each != program.path]


def test_all_browsers_are_registered_and_unregistered_without_a_trace(
        program, run, registry, path):
    before = set(registry.below("Software"))
    said = run("--register", *(f"--browser={browser}" for browser in ALL))
    assert registered(registry) == [path] * len(ALL)
    for browser in ALL:
        assert said[browser] == f"registered: HKCU\\{host_key(browser)}"
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

    said = run("--unregister", "--browser", "brave")  # the others still need the manifest
    assert said["manifest"].startswith("stays") and left_in_folder(program) == [MANIFEST_NAME]
    assert registered(registry) == [path, path, None, path, path]
    said = run("--unregister")
    assert said["brave"] == "is not registered" and said["manifest"].startswith("deleted: ")
    assert all(said[browser].startswith("unregistered: ") for browser in ALL if browser != "brave")
    assert set(registry.below("Software")) == before
    assert left_in_folder(program) == []
    assert run("--unregister")["manifest"].startswith("is not there: ")


def test_a_dry_run_says_all_and_does_nothing(program, run, registry, path):
    said = run("--register", "--browser", "chrome", "--dry-run")
    assert said["nothing"] == "was changed"
    assert said["chrome"].startswith("would be registered: ")
    assert said["manifest"].startswith("would be written: ")
    assert left_in_folder(program) == [] and not registry.below(VENDOR_KEYS["chrome"])
    run("--register", "--browser", "chrome")
    said = run("--unregister", "--dry-run")
    assert said["nothing"] == "was changed"
    assert said["chrome"].startswith("would be unregistered: ")
    assert said["manifest"].startswith("would be deleted: ")
    assert registered(registry)[0] == path and left_in_folder(program) == [MANIFEST_NAME]


def test_the_place_of_the_command_line_program_is_kept(run, registry, path):
    """Where no browser is found, Chrome is registered."""
    registry.add(host_key("chrome"), "cli", r"C:\somewhere\cli.exe")
    said = run("--register")
    assert "none was found here" in said["browsers"]
    assert said["chrome"].endswith(r'; its value "cli" stays: C:\somewhere\cli.exe')
    assert registered(registry) == [path, None, None, None, None]
    assert values(registry, "chrome") == {"": path, "cli": r"C:\somewhere\cli.exe"}
    run("--unregister")
    assert values(registry, "chrome") == {"cli": r"C:\somewhere\cli.exe"}


def test_another_version_is_replaced_but_never_removed(run, registry, path):
    other = r"C:\morva\0.0.9\com.quenlark.morva.chrome.json"
    registry.add(host_key("vivaldi"), "", other)
    assert f'left alone, it names "{other}"' in run("--unregister")["vivaldi"]
    assert values(registry, "vivaldi") == {"": other}
    assert f'in place of "{other}"' in run("--register", "--browser", "vivaldi")["vivaldi"]
    assert values(registry, "vivaldi") == {"": path}


def test_the_installed_browsers_and_named_extensions_are_registered(
        program, run, registry, path):
    registry.add(CLIENTS + r"\Vivaldi.ABC", "", "Vivaldi")
    registry.add(CLIENTS + r"\Google Chrome Beta", "", "Chrome")
    extension = "abcdefghijklmnopabcdefghijklmnop"
    for options, origins in ((["--extension-id", extension],
                              [OWN_ORIGIN, f"chrome-extension://{extension}/"]),
                             ([], [OWN_ORIGIN])):
        run("--register", *options)
        assert json.loads(program.manifest.read_bytes())["allowed_origins"] == origins
    assert registered(registry) == [path, None, None, path, None]


def test_a_manifest_that_cannot_be_written_leaves_the_registry_alone(program, run, registry):
    program.manifest.mkdir()
    assert run("--register", code=1)["manifest"].startswith("FAILED: could not write ")
    assert not registry.below(VENDOR_KEYS["chrome"])
    assert left_in_folder(program) == [MANIFEST_NAME]
