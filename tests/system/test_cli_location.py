"""Where the command-line program is looked for, and what the log tells of each place."""


import pytest

from support import builds
from support.builds import CLI_NAME
from support.cli_program import seen_by_host

from devkit.panel import wine

KEY = r"HKCU\Software\Google\Chrome\NativeMessagingHosts\com.quenlark.morva.chrome"
MISS = ("error", "cli SearchPath miss")
NO_OPTIONS = ("trace", "cli options (none)")
NO_REGISTRY = ("trace", "cli registry (none)")


def cli_lines(turn):
    return [line for line in turn.log_lines if line[1].startswith("cli ")]


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


def missing_alias(alias):
    return ("warn", f"cli alias missing {alias[1]}")


def test_four_lines_tell_that_there_is_none(start_panel, alias):
    panel = start_panel()
    turn = panel.run_turn()
    assert cli_lines(turn) == [NO_OPTIONS, NO_REGISTRY, missing_alias(alias), MISS]
    assert turn.log_lines[-1] == ("error", f"{CLI_NAME} is not on PATH")
    assert turn.done == (False, f"{CLI_NAME} is not on PATH")
    panel.end()


def test_the_alias_goes_before_the_search_path(start_panel, cli, alias):
    path, name = alias
    path.symlink_to(builds.CLI_PROGRAM)
    panel = start_panel(env=cli.env())
    turn = panel.run_turn()
    assert cli_lines(turn) == [NO_OPTIONS, NO_REGISTRY, ("trace", f"cli alias {name}")]
    assert turn.done == (True, "")
    panel.end()
    cli.wait_until_gone()


def test_a_folder_of_that_name_is_no_program(start_panel, cli, alias):
    alias[0].mkdir()
    panel = start_panel(env=cli.env())
    turn = panel.run_turn()
    assert cli_lines(turn) == [
        NO_OPTIONS, NO_REGISTRY, missing_alias(alias),
        ("trace", f"cli SearchPath {seen_by_host(cli.path)}")]
    panel.end()
    cli.wait_until_gone()


def test_a_folder_on_the_search_path_is_no_program(start_panel, tmp_path, alias):
    (tmp_path / CLI_NAME).mkdir()
    folder = seen_by_host(tmp_path)
    panel = start_panel(env={"WINEPATH": folder} if builds.IS_WINDOWS else {"PATH": folder})
    turn = panel.run_turn(timeout=30)
    assert turn.done[0] is False
    if not builds.IS_WINDOWS:  # SearchPathW takes a folder; starting it then fails
        assert cli_lines(turn)[-1] == MISS
    panel.end()


@pytest.mark.posix_only
def test_without_a_local_folder_there_is_no_alias(start_panel):
    panel = start_panel(env={"LOCALAPPDATA": ""})
    assert cli_lines(panel.run_turn()) == [
        NO_OPTIONS, NO_REGISTRY, ("warn", "cli alias LocalAppData unavailable"), MISS]
    panel.end()


def test_each_turn_looks_anew(start_panel, cli):
    panel = start_panel(env=cli.env())
    cli.path.unlink()
    assert cli_lines(panel.run_turn())[-1] == MISS
    cli.install()
    assert panel.run_turn(timeout=30).done == (True, "")
    panel.end()
    cli.wait_until_gone()


# --- The registry ---

@pytest.mark.windows_only
def test_the_registry_goes_before_the_alias(start_panel, cli, alias, registry):
    alias[0].symlink_to(builds.CLI_PROGRAM)
    path = cli.install()
    registry(path)
    panel = start_panel(env=cli.env(on_path=False))
    turn = panel.run_turn()
    assert cli_lines(turn) == [NO_OPTIONS, ("trace", f"cli registry {path}")]
    assert turn.done == (True, "")
    panel.end()
    cli.wait_until_gone()


@pytest.mark.windows_only
@pytest.mark.parametrize("value", [
    "C:\\nowhere\\x.exe", "C:\\windows", "relative.exe", "C:\\grüß\\漢.exe", "\"C:\\quoted.exe\""])
def test_a_registry_value_that_names_no_file_is_told(start_panel, alias, registry, value):
    registry(value)
    panel = start_panel()
    assert cli_lines(panel.run_turn()) == [
        NO_OPTIONS, ("warn", f"cli registry missing {value}"), missing_alias(alias), MISS]
    panel.end()


@pytest.mark.windows_only
@pytest.mark.parametrize("kind", ["REG_EXPAND_SZ", "REG_MULTI_SZ"])
def test_a_registry_value_of_another_type_is_none(start_panel, cli, alias, registry, kind):
    registry(cli.install(), kind)
    panel = start_panel()
    assert cli_lines(panel.run_turn()) == [NO_OPTIONS, NO_REGISTRY, missing_alias(alias), MISS]
    panel.end()


RAW_VALUES = {
    "no terminator": lambda path: path.encode("utf-16-le"),
    "one terminator": lambda path: (path + "\0").encode("utf-16-le"),
    "an odd length": lambda path: path.encode("utf-16-le") + b"\0",
    "a NUL and rubbish": lambda path: (path + "\0rubbish").encode("utf-16-le"),
    "many terminators": lambda path: (path + "\0" * 9).encode("utf-16-le"),
}


@pytest.mark.windows_only
@pytest.mark.parametrize("name", RAW_VALUES)
def test_a_registry_value_ends_where_its_text_ends(start_panel, cli, raw_registry, name):
    path = cli.install()
    raw_registry(RAW_VALUES[name](path))
    panel = start_panel(env=cli.env(on_path=False))
    assert cli_lines(panel.run_turn()) == [NO_OPTIONS, ("trace", f"cli registry {path}")]
    panel.end()
    cli.wait_until_gone()


@pytest.mark.windows_only
@pytest.mark.parametrize("size", [65536, 65538, 200_000])
def test_a_huge_registry_value_does_no_harm(start_panel, raw_registry, size):
    raw_registry(("x" * (size // 2 - 1) + "\0").encode("utf-16-le"))
    panel = start_panel()
    turn = panel.run_turn()
    level, line = cli_lines(turn)[1]
    if size <= 65536:
        assert (level, line) == ("warn", ("cli registry missing " + "x" * 2000)[:1024])
    else:
        assert (level, line) == NO_REGISTRY
    panel.end()


@pytest.mark.windows_only
def test_half_a_character_in_the_registry_does_no_harm(start_panel, raw_registry):
    raw_registry(b"a\0" b"\x3d\xd8" b"b\0")
    panel = start_panel()
    assert cli_lines(panel.run_turn())[1] == ("warn", "cli registry missing a\ufffdb")
    panel.end()
