"""The settings page's folder of the command-line program."""

import pytest

from support.builds import CLI_NAME
from support.cli_program import seen_by_host

NOWHERE = {"kind": "cliDir", "ok": True, "source": "morva-chat", "dir": "", "cli": "",
           "probe": "not found", "feedback": "Cleared. No morva-cli.exe was found.",
           "warning": f"{CLI_NAME} did not start (not found)"}


def ask(panel, kind, **keys):
    reply = panel.ask(kind, **keys)
    del reply["chromeRequestId"]
    return reply


def got(folder):
    return {"kind": "cliDir", "ok": True, "source": "morva-chat", "dir": folder}


def saved(folder, path):
    return {**got(folder), "cli": path, "probe": "ok", "feedback": f"Saved. {CLI_NAME} starts."}


def test_a_folder_is_saved_tried_and_used(panel, cli):
    path = cli.install()
    folder = seen_by_host(cli.folder)
    assert ask(panel, "cliDirGet") == got("")
    assert ask(panel, "cliDirSet", dir=folder) == saved(folder, path)
    assert ask(panel, "cliDirGet") == got(folder)
    assert cli.starts() == []  # it was tried without being run
    panel.end()


def test_clearing_the_folder(panel, cli):
    cli.install()
    assert ask(panel, "cliDirSet", dir=seen_by_host(cli.folder))["ok"] is True
    assert ask(panel, "cliDirSet") == NOWHERE
    assert ask(panel, "cliDirApply", dir="") == NOWHERE
    assert ask(panel, "cliDirGet") == got("")
    panel.end()


def test_another_source_is_named(start_panel, cli, tmp_path):
    panel = start_panel(env=cli.env())
    empty = tmp_path / "empty"
    empty.mkdir()
    reply = ask(panel, "cliDirSet", dir=seen_by_host(empty))
    assert reply["probe"] == "ok"
    assert reply["feedback"] == (
        f"{CLI_NAME} is not in that folder. Next start uses {reply['cli']}")
    assert reply["cli"].lower() == seen_by_host(cli.path).lower()
    cleared = ask(panel, "cliDirSet", dir="")
    assert cleared["feedback"] == f"Cleared. Next start uses {reply['cli']}"
    assert "warning" not in cleared
    panel.end()


def test_a_program_that_does_not_start(panel, tmp_path):
    (tmp_path / CLI_NAME).write_text("no program")
    reply = ask(panel, "cliDirApply", dir=seen_by_host(tmp_path))
    assert reply["ok"] is True
    assert reply["probe"].startswith("win32=")
    assert reply["warning"] == f"{CLI_NAME} did not start ({reply['probe']})"
    assert reply["feedback"] == "Saved. " + reply["warning"]
    panel.end()


@pytest.mark.parametrize("folder, error", [
    ("x" * 1025, "invalid folder"),
    ('C:\\a"b', "invalid folder"),
    ("C:\\a\nb", "invalid folder"),
    ("C:\\windows\0x", "invalid folder"),
    ("C:\\Program Files\\WindowsApps\\x", "that folder is inside WindowsApps"),
    ("C:\\no such folder", "folder does not exist"),
], ids=lambda value: repr(value)[:30])
def test_a_folder_that_is_none_changes_nothing(panel, tmp_path, folder, error):
    assert ask(panel, "cliDirSet", dir=seen_by_host(tmp_path))["ok"] is True
    for kind in ("cliDirSet", "cliDirApply"):
        assert ask(panel, kind, dir=folder) == {
            "kind": "cliDir", "ok": False, "source": "morva-chat", "error": error,
            "dir": seen_by_host(tmp_path)}
    assert ask(panel, "cliDirGet") == got(seen_by_host(tmp_path))
    panel.end()


def test_the_next_agent_is_started_from_there(start_panel, cli):
    panel = start_panel(env=cli.env(on_path=False))
    path = cli.install()
    ask(panel, "cliDirSet", dir=seen_by_host(cli.folder))
    turn = panel.run_turn(timeout=60)
    assert turn.done == (True, "")
    assert ("trace", f"cli options {path}") in turn.log_lines
    assert len(cli.wait_for_starts(1)) == 1
    # A set leaves the agent alone; an apply ends it, so that the next turn starts another.
    ask(panel, "cliDirSet", dir=seen_by_host(cli.folder))
    assert panel.run_turn(timeout=60).done == (True, "")
    assert len(cli.starts()) == 1
    ask(panel, "cliDirApply", dir=seen_by_host(cli.folder))
    assert panel.run_turn(timeout=60).done == (True, "")
    assert len(cli.wait_for_starts(2)) == 2
    panel.end()


@pytest.mark.posix_only
def test_no_picker_is_an_error(panel):
    assert ask(panel, "cliDirBrowse") == {
        "kind": "cliDir", "ok": False, "source": "morva-chat", "dir": "",
        "error": "folder picker did not open"}
    panel.end()
