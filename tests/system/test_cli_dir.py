"""The settings page's folder of the command-line program.

Which folders are refused, and each sentence of the feedback, are in tables of the unit tests.
"""

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
