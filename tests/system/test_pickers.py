"""Choosing files and folders in the system's dialogs, on a screen of the tests' own."""

import pytest

from support.builds import CLI_NAME
from support.cli_program import seen_by_host
from support.panel_side import exit_limit_seconds
from support.virtual_display import act_until

FILES = "Add files to chat"
FOLDER = "Select a folder to add to chat"
CLI_FOLDER = "Folder that contains morva-cli.exe"
NOT_OPEN = [{"role": "error", "text": "File picker did not open"}]


@pytest.fixture
def panel_with_display(start_panel, display):
    return start_panel(env={"DISPLAY": display.name})


def close(display, title):
    act_until(lambda: not display.is_open(title),
              lambda: display.is_open(title) and display.press(title, "Escape"))


@pytest.mark.windows_only
def test_what_is_chosen_goes_to_the_panel_and_cancelling_posts_nothing(
        panel_with_display, display, tmp_path):
    panel = panel_with_display
    (tmp_path / "folder").mkdir()
    (tmp_path / "file.txt").write_text("x")

    def chosen():
        return [args for name, args in panel.events_since(0)
                if name.startswith("append") and name != "appendDebugLog"]

    wanted = []
    for mode, title, target in (("", FILES, None), ("folder", FOLDER, tmp_path / "folder"),
                                ("other", FILES, tmp_path / "file.txt")):
        assert panel.ask("pickContextPaths", mode=mode)["ok"] is True
        display.window(title)
        panel.prove_alive(timeout=15)  # while the dialog is open
        if target is None:
            close(display, title)
            continue
        wanted.append([[seen_by_host(target)]])
        act_until(lambda: len(chosen()) == len(wanted),
                  lambda: display.is_open(title) and display.enter(title, seen_by_host(target)))
        assert chosen() == wanted


@pytest.mark.windows_only
def test_one_dialog_at_a_time_and_the_host_ends_under_it(panel_with_display, display):
    panel = panel_with_display
    panel.ask("pickContextPaths")
    display.window(FILES)
    mark = panel.mark()
    assert panel.ask("pickContextPaths", mode="folder")["ok"] is True
    assert panel.wait_event("appendText", since=mark) == NOT_OPEN
    reply = panel.ask("cliDirBrowse")
    assert (reply["ok"], reply["error"]) == (False, "folder picker did not open")
    panel.end(limit=exit_limit_seconds() * 4)


@pytest.mark.windows_only
def test_browsing_for_the_folder_of_the_program(panel_with_display, display, cli):
    panel = panel_with_display
    path = cli.install()
    folder = seen_by_host(cli.folder)

    def browse(act):
        mark = panel.mark()
        token = panel.send("cliDirBrowse")
        display.window(CLI_FOLDER)
        panel.prove_alive()

        def replies():
            return [f for f in panel.frames_since(mark) if f.get("chromeRequestId") == token]

        act_until(replies, lambda: display.is_open(CLI_FOLDER) and act())
        (reply,) = replies()
        return {k: v for k, v in reply.items() if k not in ("chromeRequestId", "source")}

    def cancel():
        display.press(CLI_FOLDER, "Escape")

    assert browse(cancel) == {"kind": "cliDir", "ok": True, "dir": ""}
    assert browse(lambda: display.enter(CLI_FOLDER, folder)) == {
        "kind": "cliDir", "ok": True, "dir": folder, "cli": path, "probe": "ok",
        "feedback": f"Saved. {CLI_NAME} starts."}
    assert browse(cancel) == {"kind": "cliDir", "ok": True, "dir": folder}


@pytest.mark.posix_only
def test_no_dialog_is_an_error(panel):
    mark = panel.mark()
    assert panel.ask("pickContextPaths")["ok"] is True
    assert panel.wait_event("appendText", since=mark) == NOT_OPEN
    reply = panel.ask("cliDirBrowse")
    assert (reply["ok"], reply["error"]) == (False, "folder picker did not open")
