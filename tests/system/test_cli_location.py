"""Where the command-line program is looked for, and what the log tells of each place."""

import time

import pytest

from support import builds
from support.builds import CLI_NAME
from support.cli_program import seen_by_host
from support.tool_server_fixtures import empty, roaming_folder
from support.user_commands import UserRegistry, host_key

MISS = ("error", "cli SearchPath miss")
NO_OPTIONS = ("trace", "cli options (none)")
NO_REGISTRY = ("trace", "cli registry (none)")
FINE = (True, "")
NOT_FOUND = (False, f"{CLI_NAME} is not on PATH")


@pytest.fixture
def alias(user_folders):
    """Where the app execution alias would be: the path here, and the name that the host uses."""
    roaming, seen = roaming_folder(user_folders)
    folder = roaming.with_name("Local") / "Microsoft" / "WindowsApps"
    folder.mkdir(parents=True, exist_ok=True)
    slash = "\\" if builds.IS_WINDOWS else "/"
    yield folder / CLI_NAME, slash.join(
        [seen.removesuffix("Roaming") + "Local", "Microsoft", "WindowsApps", CLI_NAME])
    empty(folder)


@pytest.fixture
def set_registry(tmp_path):
    """Sets the value "cli" of the host's key; it is gone when the test is over."""
    registry = UserRegistry(tmp_path)
    yield lambda value, **kind: registry.add(host_key("chrome"), "cli", value, **kind)
    registry.delete(host_key("chrome"))


def looked(panel, timeout=20):
    """The lines of a turn's look for the program, and how the turn ended."""
    turn = panel.run_turn(timeout=timeout)
    return [line for line in turn.log_lines if line[1].startswith("cli ")], turn.done


def missing(alias):
    return ("warn", f"cli alias missing {alias[1]}")


def test_each_place_leaves_a_line_and_each_turn_looks_anew(start_panel, cli, alias):
    panel = start_panel(env=cli.env())
    cli.path.unlink()
    assert looked(panel) == ([NO_OPTIONS, NO_REGISTRY, missing(alias), MISS], NOT_FOUND)
    alias[0].mkdir()  # a folder of that name is no program
    cli.install()
    assert looked(panel, 30) == ([NO_OPTIONS, NO_REGISTRY, missing(alias),
                                  ("trace", f"cli SearchPath {seen_by_host(cli.path)}")], FINE)


def test_the_alias_goes_before_the_search_path(start_panel, cli, alias):
    alias[0].symlink_to(builds.CLI_PROGRAM)
    assert looked(start_panel(env=cli.env())) == (
        [NO_OPTIONS, NO_REGISTRY, ("trace", f"cli alias {alias[1]}")], FINE)


@pytest.mark.posix_only
def test_without_a_local_folder_there_is_no_alias(start_panel):
    unavailable = ("warn", "cli alias LocalAppData unavailable")
    assert looked(start_panel(env={"LOCALAPPDATA": ""})) == (
        [NO_OPTIONS, NO_REGISTRY, unavailable, MISS], NOT_FOUND)


@pytest.mark.long
@pytest.mark.posix_only
def test_a_share_whose_server_is_away_costs_five_seconds_in_each_place(start_failing, tmp_path):
    dead = str(tmp_path / "dead-share")
    panel = start_failing("stat", PATH=dead, LOCALAPPDATA=dead)
    began = time.monotonic()
    assert looked(panel, 60) == ([NO_OPTIONS, NO_REGISTRY, missing((
        None, f"{dead}/Microsoft/WindowsApps/{CLI_NAME}")), MISS], NOT_FOUND)
    assert 9.9 < time.monotonic() - began < 14 * builds.SLOWER


@pytest.mark.windows_only
def test_the_registry_goes_before_the_alias(start_panel, cli, alias, set_registry):
    alias[0].symlink_to(builds.CLI_PROGRAM)
    path = cli.install()
    set_registry(path)
    panel = start_panel(env=cli.env(on_path=False))
    assert looked(panel) == ([NO_OPTIONS, ("trace", f"cli registry {path}")], FINE)


@pytest.mark.windows_only
def test_a_registry_value_that_names_no_file_is_told(panel, cli, alias, set_registry):
    cut = "x" * (1024 - len("cli registry missing "))
    for value, text in (("C:\\windows", "C:\\windows"), ('"C:\\grüß\\漢.exe"',) * 2,
                        (b"a\0b\0\0\0c\0", "ab"), (b"a\0" b"\x3d\xd8" b"b\0c", "a\ufffdb"),
                        (b"x\0" * 32767 + b"\0\0", cut), (b"x\0" * 32768 + b"\0\0", None)):
        set_registry(value)
        line = NO_REGISTRY if text is None else ("warn", f"cli registry missing {text}")
        assert looked(panel) == ([NO_OPTIONS, line, missing(alias), MISS], NOT_FOUND)
    set_registry((cli.install() + "\0").encode("utf-16-le"), kind=2)  # REG_EXPAND_SZ
    assert looked(panel)[0][1] == NO_REGISTRY
