"""Opening files, folders and addresses on the user's desktop.

On Windows the shell starts real programs: the command-line stand-in reports how it was started, and
Explorer is found among the processes. The native builds have `xdg-open` and `explorer.exe` in the
place of the shell; here they are scripts that write down what they were given.
"""

import contextlib
import os

import psutil
import pytest

from support import builds
from support.builds import CLI_PROGRAM
from support.cli_program import seen_by_host
from support.waiting import until

from devkit.panel import wine

OK = {"kind": "ack", "ok": True, "source": "morva-chat"}
NOT_FOUND = {"kind": "ack", "ok": False, "error": "file not found", "source": "morva-chat"}
PATH_KINDS = ("openPathDefault", "revealPathInExplorer", "selectPathInExplorer",
              "openFolderInExplorer")


def ask(panel, kind, **keys):
    reply = panel.ask(kind, **keys)
    del reply["chromeRequestId"]
    return reply


class Desktop:
    """What the native builds open instead of a desktop: a list of what they were given. While the
    file `held` is there, whatever was started stays."""

    def __init__(self, folder):
        self.held = folder / "held"
        self._opened = folder / "opened"
        self._opened.touch()
        self.env = {"PATH": f"{folder}:{os.environ['PATH']}"}
        for name in ("xdg-open", "explorer.exe"):
            script = folder / name
            script.write_text(f'#!/bin/sh\nprintf "%s %s\\n" {name} "$*" >>"{self._opened}"\n'
                              f'while [ -e "{self.held}" ]; do sleep 0.1; done\n')
            script.chmod(0o755)

    def wait(self, count):
        def opened():
            return self._opened.read_text().splitlines()

        until(lambda: len(opened()) >= count, f"no {count} opened", 30)
        return opened()


@pytest.fixture
def desktop(tmp_path_factory):
    return Desktop(tmp_path_factory.mktemp("desktop"))


@pytest.mark.posix_only
def test_each_kind_natively(start_panel, desktop, tmp_path, user_folders):
    panel = start_panel(env=desktop.env)
    data_folder = f"{user_folders['APPDATA']}/Quenlark/morva-viewer/chrome-extension"
    panel.prove_alive()
    os.makedirs(f"{data_folder}/sub", exist_ok=True)
    file = tmp_path / "a b.txt"
    file.write_text("x")
    asked = [
        ("openPathDefault", file, f"xdg-open {file}"),
        ("openPathDefault", tmp_path, f"xdg-open {tmp_path}"),
        ("openPathDefault", "sub/../sub", f"xdg-open {data_folder}/sub"),
        ("revealPathInExplorer", file, f"explorer.exe /select,{file}"),
        ("selectPathInExplorer", tmp_path, f"explorer.exe /select,{tmp_path}"),
        ("openFolderInExplorer", tmp_path, f"xdg-open {tmp_path}"),
        ("openFolderInExplorer", file, f"xdg-open {tmp_path}/"),
        ("openUrlDefault", "mailto:a@b?x=y z", "xdg-open mailto:a@b?x=y z"),
        *((kind, address, f"xdg-open {address}") for kind in (*PATH_KINDS, "openUrlDefault")
          for address in ("http://127.0.0.1/?a=b#c", "https://127.0.0.1/"))]
    for number, (kind, target, opened) in enumerate(asked, 1):
        is_url = ":" in str(target)
        keys = {"path": "", "url": target} if is_url else {"path": str(target)}
        assert ask(panel, kind, **keys) == OK, (kind, target)
        assert desktop.wait(number)[-1] == opened


def test_what_is_not_there_is_not_opened(start_panel, desktop, tmp_path):
    panel = start_panel(env={} if builds.IS_WINDOWS else desktop.env)
    (tmp_path / "file.txt").write_text("x")
    there = seen_by_host(tmp_path / "file.txt")
    for kind in PATH_KINDS:
        for path in (there + "x", there + "\n", ""):
            assert ask(panel, kind, path=path) == NOT_FOUND, (kind, path)
        assert ask(panel, kind) == NOT_FOUND, kind
        assert ask(panel, kind, path="https://a/\nb") == OK, kind
    assert ask(panel, "openUrlDefault", path="http://a/\0") == OK
    assert ask(panel, "openUrlDefault") == OK
    if not builds.IS_WINDOWS:
        # Whatever was opened before would be in the list too.
        assert ask(panel, "openPathDefault", path=there) == OK
        assert desktop.wait(1) == [f"xdg-open {there}"]


@pytest.mark.posix_only
def test_a_shell_that_takes_its_time_holds_up_nothing(start_panel, desktop, tmp_path):
    panel = start_panel(env=desktop.env)
    desktop.held.touch()
    # No more of them than a handful of threads can carry.
    replies = [ask(panel, "openPathDefault", path=str(tmp_path)) for _ in range(18)]
    assert [reply["ok"] for reply in replies] == [True] * 16 + [False] * 2
    assert replies[-1]["error"] == "too many programs are being opened"
    desktop.held.unlink()
    until(lambda: ask(panel, "openPathDefault", path=str(tmp_path)) == OK, "no place is free")


@pytest.fixture
def url_handler():
    """Registers the stand-in for addresses of a scheme; undone when the test is over."""
    key = r"HKCR\morva-test"

    def reg(*arguments):
        wine.run(builds.wine_prefix(), "reg", *arguments, "/f")

    reg("add", key, "/v", "URL Protocol", "/t", "REG_SZ", "/d", "")
    command = f'"{wine.windows_path(CLI_PROGRAM)}" "%1"'
    reg("add", key + r"\shell\open\command", "/ve", "/t", "REG_SZ", "/d", command)
    yield
    reg("delete", key)


@pytest.mark.windows_only
def test_programs_and_addresses_are_opened(start_panel, cli, display, url_handler):
    panel = start_panel(env={**cli.env(on_path=False), "DISPLAY": display.name})
    program = wine.windows_path(CLI_PROGRAM)
    asked = [("openPathDefault", {"path": program}, ""),
             ("openPathDefault", {"path": program.replace("\\", "/")}, ""),
             ("openUrlDefault", {"path": "morva-test:one"}, "morva-test:one"),
             ("openUrlDefault", {"path": "", "url": "morva-test:2?a=b"}, "morva-test:2?a=b")]
    for number, (kind, keys, argument) in enumerate(asked, 1):
        assert ask(panel, kind, **keys) == OK
        command = cli.wait_for_starts(number)[-1]["command"]
        assert argument in command if argument else command.strip() == "", keys


def explorers(text):
    """Processes of Explorer whose command line holds the text."""
    found = []
    for process in psutil.process_iter(["cmdline"]):
        line = " ".join(process.info["cmdline"] or [])
        if "explorer.exe" in line and text in line:
            found.append((process, line))
    return found


@pytest.mark.windows_only
@pytest.mark.parametrize("kind, select", [
    ("openFolderInExplorer", False), ("revealPathInExplorer", True)])
def test_explorer_is_started(start_panel, display, tmp_path, kind, select):
    panel = start_panel(env={"DISPLAY": display.name})
    target = seen_by_host(tmp_path)
    assert ask(panel, kind, path=target) == OK
    found = until(lambda: explorers(target), "no Explorer", 60)
    try:
        assert ("/select," in found[0][1]) == select
    finally:
        for process, _ in found:
            with contextlib.suppress(psutil.NoSuchProcess):
                process.kill()
