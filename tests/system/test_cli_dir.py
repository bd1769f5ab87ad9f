"""The settings page's folder of the command-line program.

Which folders are refused, and each sentence of the feedback, are in tables of the unit tests.
"""

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


def test_a_folder_is_saved_tried_and_cleared(panel, cli):
    path = cli.install()
    folder = seen_by_host(cli.folder)
    assert ask(panel, "cliDirGet") == got("")
    assert ask(panel, "cliDirSet", dir=folder) == {
        **got(folder), "cli": path, "probe": "ok", "feedback": f"Saved. {CLI_NAME} starts."}
    for kind in ("cliDirSet", "cliDirApply"):
        assert ask(panel, kind, dir="C:\\a\nb") == {
            **got(folder), "ok": False, "error": "invalid folder"}
    assert ask(panel, "cliDirGet") == got(folder)
    assert ask(panel, "cliDirSet") == NOWHERE
    assert ask(panel, "cliDirApply", dir="") == NOWHERE
    assert ask(panel, "cliDirGet") == got("")
    assert cli.starts() == []  # it was tried without being run


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


def test_a_program_that_does_not_start(panel, tmp_path):
    (tmp_path / CLI_NAME).write_text("no program")
    reply = ask(panel, "cliDirApply", dir=seen_by_host(tmp_path))
    assert reply["ok"] is True
    assert reply["probe"].startswith("win32=")
    assert reply["warning"] == f"{CLI_NAME} did not start ({reply['probe']})"
    assert reply["feedback"] == "Saved. " + reply["warning"]


def test_the_next_agent_is_started_from_there(start_panel, cli):
    panel = start_panel(env=cli.env(on_path=False, words=100_000, tokens_per_second=50))
    path = cli.install()
    folder = seen_by_host(cli.folder)
    ask(panel, "cliDirSet", dir=folder)
    mark = panel.start_turn(until="appendAssistantDelta")
    assert f"cli options {path}" in panel.log_lines(mark)
    ask(panel, "cliDirApply", dir=folder)  # leaves an agent alone that a turn uses
    assert len(cli.running()) == 1
    panel.ask_for_ack("stop")
    assert panel.finish_turn(mark).done == (False, "cancelled")
    ask(panel, "cliDirSet", dir=folder)  # and this one any agent
    assert len(cli.running()) == 1
    mark = panel.mark()
    ask(panel, "cliDirApply", dir=folder)
    panel.wait_frame(lambda f: f.get("agent") == "disconnected", mark)
    cli.wait_until_gone()
    panel.start_turn(until="appendAssistantDelta")
    assert len(cli.starts()) == 2


@pytest.mark.posix_only
def test_no_picker_is_an_error(panel):
    assert ask(panel, "cliDirBrowse") == {
        **got(""), "ok": False, "error": "folder picker did not open"}
