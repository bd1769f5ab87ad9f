"""Where the command-line program is looked for, and what the log tells of each place."""

import time

import pytest

from support import builds
from support.builds import CLI_NAME
from support.cli_program import seen_by_host

from devkit.panel import wine

KEY = r"HKCU\Software\Google\Chrome\NativeMessagingHosts\com.quenlark.morva.chrome"
MISS = ("error", "cli SearchPath miss")
NO_OPTIONS = ("trace", "cli options (none)")
NO_REGISTRY = ("trace", "cli registry (none)")
FINE = (True, "")
NOT_FOUND = (False, f"{CLI_NAME} is not on PATH")


@pytest.fixture
def alias(user_folders):
    """Where the app execution alias would be: the path here, and the name that the host uses."""
    if builds.IS_WINDOWS:
        users = builds.wine_prefix() / "drive_c" / "users"
        (local,) = [path for path in users.glob("*/AppData/Local") if path.parts[-3] != "Public"]
        name = f"C:\\users\\{local.parts[-3]}\\AppData\\Local\\Microsoft\\WindowsApps\\{CLI_NAME}"
        path = local / "Microsoft" / "WindowsApps" / CLI_NAME
    else:
        folder = user_folders["LOCALAPPDATA"]
        name = f"{folder}/Microsoft/WindowsApps/{CLI_NAME}"
        path = builds.Path(name)
    path.parent.mkdir(parents=True, exist_ok=True)
    yield path, name
    if path.is_symlink() or path.is_file():
        path.unlink()
    elif path.is_dir():
        path.rmdir()


@pytest.fixture
def registry():
    """Sets the value "cli" below the host's key; it is gone when the test is over."""

    def run(*arguments):
        wine.run(builds.wine_prefix(), "reg", *arguments, "/f")

    def write(value, kind="REG_SZ"):
        run("add", KEY, "/v", "cli", "/t", kind, "/d", value)

    yield write
    run("add", KEY, "/v", "cli")  # so that there is something to delete
    run("delete", KEY)


@pytest.fixture
def raw_registry(registry, tmp_path):
    """Sets the bytes of "cli" as they are, which no ordinary program would."""

    def write(data, kind=1):
        values = ",".join(f"{byte:02x}" for byte in data)
        key = KEY.replace("HKCU", "HKEY_CURRENT_USER")
        file = tmp_path / "value.reg"
        text = f'Windows Registry Editor Version 5.00\n\n[{key}]\n"cli"=hex({kind}):{values}\n'
        file.write_text(text, encoding="utf-16", newline="\r\n")
        wine.run(builds.wine_prefix(), "regedit", "/S", wine.windows_path(file))

    return write


def looked(panel, timeout=20):
    """The lines of a turn's look for the program, and how the turn ended."""
    turn = panel.run_turn(timeout=timeout)
    return [line for line in turn.log_lines if line[1].startswith("cli ")], turn.done


def missing(alias):
    return ("warn", f"cli alias missing {alias[1]}")


def test_each_place_leaves_a_line_and_each_turn_looks_anew(start_panel, cli, alias):
    path, name = alias
    panel = start_panel(env=cli.env())
    cli.path.unlink()
    turn = panel.run_turn()
    assert [line for line in turn.log_lines if line[1].startswith("cli ")] == [
        NO_OPTIONS, NO_REGISTRY, missing(alias), MISS]
    assert turn.log_lines[-1] == ("error", f"{CLI_NAME} is not on PATH")
    assert turn.done == NOT_FOUND
    path.mkdir()  # a folder of that name is no program
    cli.install()
    assert looked(panel, 30) == ([NO_OPTIONS, NO_REGISTRY, missing(alias),
                                  ("trace", f"cli SearchPath {seen_by_host(cli.path)}")], FINE)


def test_the_alias_goes_before_the_search_path(start_panel, cli, alias):
    path, name = alias
    path.symlink_to(builds.CLI_PROGRAM)
    assert looked(start_panel(env=cli.env())) == (
        [NO_OPTIONS, NO_REGISTRY, ("trace", f"cli alias {name}")], FINE)


def test_a_folder_on_the_search_path_is_no_program(start_panel, tmp_path, alias):
    (tmp_path / CLI_NAME).mkdir()
    folder = seen_by_host(tmp_path)
    panel = start_panel(env={"WINEPATH": folder} if builds.IS_WINDOWS else {"PATH": folder})
    lines, (ok, _) = looked(panel, 30)
    assert not ok
    if not builds.IS_WINDOWS:  # SearchPathW takes a folder; starting it then fails
        assert lines[-1] == MISS


@pytest.mark.posix_only
def test_without_a_local_folder_there_is_no_alias(start_panel):
    assert looked(start_panel(env={"LOCALAPPDATA": ""})) == (
        [NO_OPTIONS, NO_REGISTRY, ("warn", "cli alias LocalAppData unavailable"), MISS],
        NOT_FOUND)


@pytest.mark.long
@pytest.mark.posix_only
def test_a_share_whose_server_is_away_costs_five_seconds_in_each_place(start_failing, tmp_path):
    dead = str(tmp_path / "dead-share")
    panel = start_failing("stat", PATH=dead, LOCALAPPDATA=dead)
    began = time.monotonic()
    assert looked(panel, 60) == ([NO_OPTIONS, NO_REGISTRY, missing((
        None, f"{dead}/Microsoft/WindowsApps/{CLI_NAME}")), MISS], NOT_FOUND)
    assert 9.9 < time.monotonic() - began < 14 * builds.SLOWER


# --- The registry ---

@pytest.mark.windows_only
def test_the_registry_goes_before_the_alias(start_panel, cli, alias, registry):
    alias[0].symlink_to(builds.CLI_PROGRAM)
    path = cli.install()
    registry(path)
    panel = start_panel(env=cli.env(on_path=False))
    assert looked(panel) == ([NO_OPTIONS, ("trace", f"cli registry {path}")], FINE)


@pytest.mark.windows_only
def test_a_registry_value_that_names_no_file_is_told(panel, cli, alias, registry, raw_registry):
    def line():
        lines, done = looked(panel)
        assert (lines[0], lines[2:], done) == (NO_OPTIONS, [missing(alias), MISS], NOT_FOUND)
        return lines[1]

    for value in ("C:\\windows", "relative.exe", '"C:\\grüß\\漢.exe"'):
        registry(value)
        assert line() == ("warn", f"cli registry missing {value}")
    registry(cli.install(), "REG_EXPAND_SZ")
    assert line() == NO_REGISTRY
    for data, text in ((b"a\0b\0\0\0c\0", "ab"), (b"a\0" b"\x3d\xd8" b"b\0c", "a\ufffdb"),
                       (b"x\0" * 32767 + b"\0\0", "x" * (1024 - len("cli registry missing ")))):
        raw_registry(data)
        assert line() == ("warn", f"cli registry missing {text}")
    raw_registry(b"x\0" * 32768 + b"\0\0")
    assert line() == NO_REGISTRY
