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


def hkcu(key):
    return "HKCU\\" + key


@pytest.fixture
def program(tmp_path):
    """The program in a folder of its own, whose name is not easy."""
    folder = tmp_path / "mörva 漢"
    folder.mkdir()
    path = folder / builds.PROGRAM.name
    path.symlink_to(builds.PROGRAM)
    return Program(path, {})


@pytest.fixture
def registry(tmp_path):
    found = UserRegistry(tmp_path)
    found.delete(*OURS)  # other tests leave empty keys
    yield found
    found.delete(*OURS)


def manifest_path(program):
    return wine.windows_path(program.path.parent) + "\\" + MANIFEST_NAME


def values(registry, browser):
    """What is in a browser's key for the host; None when there is no key."""
    return registry.below(host_key(browser)).get(host_key(browser))


def registered(registry, *which):
    """What these browsers' keys, or all, name as manifest."""
    keys = registry.below("Software")
    return [keys.get(host_key(browser), {}).get("") for browser in which or ALL]


def all_keys(registry):
    return set(registry.below("Software"))


def left_in_folder(program):
    return [each.name for each in program.path.parent.iterdir() if each != program.path]


def test_all_browsers_are_registered_and_unregistered_without_a_trace(program, registry):
    before = all_keys(registry)
    names = [word for browser in ALL for word in ("--browser", browser)]
    outcome = program.run("--register", *names)
    assert outcome.code == 0, outcome
    assert registered(registry) == [manifest_path(program)] * len(ALL)
    for browser in ALL:
        assert outcome.line(browser).split(None, 1)[1] == f"registered: {hkcu(host_key(browser))}"
    assert json.loads(program.manifest.read_bytes()) == {
        "name": "com.quenlark.morva.chrome",
        "description": "morva: the desktop assistant's side of the browser panel",
        "path": f"{wine.windows_path(program.path.parent)}\\{program.path.name}",
        "type": "stdio",
        "allowed_origins": ["chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"],
    }
    assert left_in_folder(program) == [MANIFEST_NAME]

    outcome = program.run("--unregister")
    assert outcome.code == 0, outcome
    for browser in ALL:
        assert outcome.line(browser).split(None, 1)[1].startswith("unregistered: ")
    assert all_keys(registry) == before
    assert left_in_folder(program) == []


def test_what_is_right_already_is_left_as_it_is(program, registry):
    assert program.run("--register", "--browser", "edge").code == 0
    before = program.manifest.stat()
    outcome = program.run("--register", "--browser", "edge")
    assert outcome.code == 0
    assert outcome.line("manifest").split(None, 1)[1].startswith("is right already: ")
    assert outcome.line("edge").split(None, 1)[1].startswith("is registered already: ")
    assert program.manifest.stat().st_mtime_ns == before.st_mtime_ns
    assert program.manifest.stat().st_ino == before.st_ino
    assert program.run("--unregister").code == 0
    again = program.run("--unregister")
    assert again.code == 0
    assert again.line("edge").split(None, 1)[1] == "is not registered"
    assert again.line("manifest").split(None, 1)[1].startswith("is not there: ")


def test_a_dry_run_says_all_and_does_nothing(program, registry):
    outcome = program.run("--register", "--browser", "chrome", "--dry-run")
    assert outcome.code == 0 and outcome.out.endswith("nothing was changed\n")
    assert outcome.line("chrome").split(None, 1)[1].startswith("would be registered: ")
    assert outcome.line("manifest").split(None, 1)[1].startswith("would be written: ")
    assert left_in_folder(program) == [] and not registry.below(VENDOR_KEYS["chrome"])

    assert program.run("--register", "--browser", "chrome").code == 0
    outcome = program.run("--unregister", "--dry-run")
    assert outcome.code == 0 and outcome.out.endswith("nothing was changed\n")
    assert outcome.line("chrome").split(None, 1)[1].startswith("would be unregistered: ")
    assert outcome.line("manifest").split(None, 1)[1].startswith("would be deleted: ")
    assert registered(registry, "chrome") == [manifest_path(program)]
    assert left_in_folder(program) == [MANIFEST_NAME]


def test_the_place_of_the_command_line_program_is_kept(program, registry):
    registry.add(host_key("chrome"), "cli", r"C:\somewhere\cli.exe")
    outcome = program.run("--register")
    assert outcome.code == 0
    assert outcome.line("chrome").endswith(r'; its value "cli" stays: C:\somewhere\cli.exe')
    assert values(registry, "chrome") == {
        "": manifest_path(program), "cli": r"C:\somewhere\cli.exe"}
    outcome = program.run("--unregister")
    assert outcome.code == 0
    assert values(registry, "chrome") == {"cli": r"C:\somewhere\cli.exe"}


def test_another_version_is_replaced_but_never_removed(program, registry):
    other = r"C:\morva\0.0.9\com.quenlark.morva.chrome.json"
    registry.add(host_key("vivaldi"), "", other)
    outcome = program.run("--unregister")
    assert outcome.code == 0 and f'left alone, it names "{other}"' in outcome.line("vivaldi")
    assert values(registry, "vivaldi") == {"": other}
    outcome = program.run("--register", "--browser", "vivaldi")
    assert outcome.code == 0 and f'in place of "{other}"' in outcome.line("vivaldi")
    assert values(registry, "vivaldi") == {"": manifest_path(program)}


def test_the_manifest_stays_while_a_browser_needs_it(program, registry):
    assert program.run("--register", "--browser", "chrome", "--browser", "brave").code == 0
    outcome = program.run("--unregister", "--browser", "brave")
    assert outcome.code == 0
    assert outcome.line("manifest").split(None, 1)[1].startswith("stays")
    assert left_in_folder(program) == [MANIFEST_NAME]
    assert registered(registry, "brave", "chrome") == [None, manifest_path(program)]


def test_without_names_the_installed_browsers_are_registered(program, registry):
    registry.add(CLIENTS + r"\Vivaldi.ABC", "", "Vivaldi")
    registry.add(CLIENTS + r"\Google Chrome Beta", "", "Chrome")
    assert program.run("--register").code == 0
    path = manifest_path(program)
    assert registered(registry) == [path, None, None, path, None]


def test_where_no_browser_is_found_chrome_is_registered(program, registry):
    outcome = program.run("--register")
    assert outcome.code == 0 and "none was found here" in outcome.line("browsers")
    assert registered(registry) == [manifest_path(program), None, None, None, None]


def test_another_extension_is_let_in_only_while_it_is_named(program, registry):
    extension = "abcdefghijklmnopabcdefghijklmnop"
    own = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"
    assert program.run("--register", "--extension-id", extension).code == 0
    assert json.loads(program.manifest.read_bytes())["allowed_origins"] == [
        own, f"chrome-extension://{extension}/"]
    assert program.run("--register").code == 0
    assert json.loads(program.manifest.read_bytes())["allowed_origins"] == [own]


def test_a_manifest_that_cannot_be_written_leaves_the_registry_alone(program, registry):
    program.manifest.mkdir()
    outcome = program.run("--register")
    assert outcome.code == 1
    assert outcome.line("manifest").split(None, 1)[1].startswith("FAILED: could not write ")
    assert not registry.below(VENDOR_KEYS["chrome"])
    assert left_in_folder(program) == [MANIFEST_NAME]
