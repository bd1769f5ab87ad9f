"""Opening files, folders and addresses on the user's desktop.

On Windows the shell starts real programs: the command-line stand-in reports how it was started, and
Explorer is found among the processes. The native builds have `xdg-open` and `explorer.exe` in the
place of the shell; here they are scripts that write down what they were given.
"""

import contextlib
import os
import time

import psutil
import pytest

from support import builds
from support.builds import CLI_PROGRAM
from support.cli_program import seen_by_host
from support.virtual_display import VirtualDisplay

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
    """What the native builds open instead of a desktop: a list of what they were given."""

    def __init__(self, folder):
        self.folder = folder
        self.opened_file = folder / "opened"
        for name in ("xdg-open", "explorer.exe"):
            script = folder / name
            script.write_text(
                f'#!/bin/sh\n[ -e "{folder}/slow" ] && sleep 4\n'
                f'printf "%s %s\\n" {name} "$*" >>"{self.opened_file}"\n')
            script.chmod(0o755)

    @property
    def env(self):
        return {"PATH": f"{self.folder}:{os.environ['PATH']}"}

    def opened(self):
        return self.opened_file.read_text().splitlines() if self.opened_file.exists() else []

    def wait(self, count=1, timeout=30):
        deadline = time.monotonic() + timeout
        while len(self.opened()) < count:
            assert time.monotonic() < deadline, self.opened()
            time.sleep(0.02)
        return self.opened()


@pytest.fixture
def desktop(tmp_path):
    folder = tmp_path / "desktop"
    folder.mkdir()
    return Desktop(folder)


@pytest.mark.posix_only
def test_each_kind_natively(start_panel, desktop, tmp_path):
    panel = start_panel(env=desktop.env)
    file = tmp_path / "a b.txt"
    file.write_text("x")
    wanted = []
    for kind, target, opened in (
            ("openPathDefault", file, f"xdg-open {file}"),
            ("openPathDefault", tmp_path, f"xdg-open {tmp_path}"),
            ("revealPathInExplorer", file, f"explorer.exe /select,{file}"),
            ("selectPathInExplorer", tmp_path, f"explorer.exe /select,{tmp_path}"),
            ("openFolderInExplorer", tmp_path, f"xdg-open {tmp_path}"),
            ("openFolderInExplorer", file, f"xdg-open {tmp_path}/")):
        assert ask(panel, kind, path=str(target)) == OK
        wanted.append(opened)
        assert desktop.wait(len(wanted)) == wanted
    assert ask(panel, "openUrlDefault", path="", url="mailto:a@b?x=y z") == OK
    assert desktop.wait(len(wanted) + 1)[-1] == "xdg-open mailto:a@b?x=y z"
    panel.end()


@pytest.mark.posix_only
@pytest.mark.parametrize("kind", [*PATH_KINDS, "openUrlDefault"])
def test_web_addresses_are_opened_by_every_kind(start_panel, desktop, kind):
    panel = start_panel(env=desktop.env)
    for number, scheme in enumerate(("http", "https")):
        assert ask(panel, kind, path="", url=f"{scheme}://127.0.0.1/{number}?a=b#c") == OK
    assert sorted(desktop.wait(2)) == [
        "xdg-open http://127.0.0.1/0?a=b#c", "xdg-open https://127.0.0.1/1?a=b#c"]
    panel.end()


@pytest.mark.parametrize("kind", PATH_KINDS)
def test_what_is_not_there_is_not_opened(start_panel, desktop, tmp_path, kind):
    panel = start_panel(env={} if builds.IS_WINDOWS else desktop.env)
    file = tmp_path / "file.txt"
    file.write_text("x")
    there = seen_by_host(file)
    for target in (there + "x", there + "\0", there + "\n", "\0" + there, "", "no such file",
                   "\x7f"):
        assert ask(panel, kind, path=target) == NOT_FOUND, repr(target)
    assert ask(panel, kind) == NOT_FOUND
    for target in ("http://a/\0", "https://a/\nb"):
        assert ask(panel, kind, path=target) == OK
        assert ask(panel, "openUrlDefault", path=target) == OK
    assert ask(panel, "openUrlDefault") == OK
    panel.prove_alive()
    assert desktop.opened() == []
    panel.end()


@pytest.mark.posix_only
def test_a_relative_path_counts_from_the_data_folder(start_panel, desktop, user_folders):
    panel = start_panel(env=desktop.env)
    folder = f"{user_folders['APPDATA']}/Quenlark/morva-viewer/chrome-extension"
    panel.prove_alive()
    os.makedirs(f"{folder}/sub", exist_ok=True)
    assert ask(panel, "openPathDefault", path="sub/../sub") == OK
    assert desktop.wait() == [f"xdg-open {folder}/sub"]
    panel.end()


@pytest.mark.posix_only
def test_a_shell_that_takes_its_time_holds_up_nothing(start_panel, desktop, tmp_path):
    panel = start_panel(env=desktop.env)
    (desktop.folder / "slow").touch()
    began = time.monotonic()
    for _ in range(20):
        replies = [ask(panel, "openPathDefault", path=str(tmp_path)) for _ in range(20)]
        if not replies[-1]["ok"]:
            break
    assert time.monotonic() - began < 4 * builds.SLOWER
    # No more of them than a handful of threads can carry.
    assert sum(reply["ok"] for reply in replies) == 16
    assert replies[-1]["error"] == "too many programs are being opened"
    panel.end()


@pytest.fixture(scope="module")
def display():
    if not builds.IS_WINDOWS:
        yield None
        return
    shown = VirtualDisplay()
    yield shown
    shown.close()


@pytest.mark.windows_only
def test_a_program_is_started(start_panel, cli, display):
    panel = start_panel(env={**cli.env(on_path=False), "DISPLAY": display.name})
    program = wine.windows_path(CLI_PROGRAM)
    for number, target in enumerate((program, program.replace("\\", "/")), 1):
        assert ask(panel, "openPathDefault", path=target) == OK
        assert cli.wait_for_starts(number)[-1]["command"].strip() == ""
    panel.end()


@pytest.fixture
def url_handler():
    """Registers the stand-in for addresses of a scheme; undone when the test is over."""
    schemes = []

    def reg(*arguments):
        wine.run(builds.wine_prefix(), "reg", *arguments, "/f")

    def register(scheme):
        key = rf"HKCR\{scheme}"
        schemes.append(key)
        reg("add", key, "/v", "URL Protocol", "/t", "REG_SZ", "/d", "")
        command = f'"{wine.windows_path(CLI_PROGRAM)}" "%1"'
        reg("add", key + r"\shell\open\command", "/ve", "/t", "REG_SZ", "/d", command)

    yield register
    for key in schemes:
        reg("delete", key)


@pytest.mark.windows_only
def test_an_address_goes_to_the_registered_program(start_panel, cli, display, url_handler):
    url_handler("morva-test")
    panel = start_panel(env={**cli.env(on_path=False), "DISPLAY": display.name})
    asked = [{"path": "morva-test:one"}, {"path": "", "url": "morva-test:two?a=b"}]
    for number, keys in enumerate(asked, 1):
        assert ask(panel, "openUrlDefault", **keys) == OK
        target = keys["path"] or keys["url"]
        assert target in cli.wait_for_starts(number)[-1]["command"]
    panel.end()


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
    ("openFolderInExplorer", False), ("revealPathInExplorer", True),
    ("selectPathInExplorer", True)])
def test_explorer_is_started(start_panel, display, tmp_path, kind, select):
    panel = start_panel(env={"DISPLAY": display.name})
    target = seen_by_host(tmp_path)
    deadline = time.monotonic() + 60
    assert ask(panel, kind, path=target) == OK
    while not (found := explorers(target)):
        assert time.monotonic() < deadline, "no Explorer"
        time.sleep(0.05)
    try:
        assert ("/select," in found[0][1]) == select
    finally:
        for process, _ in found:
            with contextlib.suppress(psutil.NoSuchProcess):
                process.kill()
    panel.end()
