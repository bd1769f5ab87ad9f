"""The host starts an agent of its own: how, what it does with it, and what it tells of it."""

import os
import shutil
import socket
import time
from pathlib import Path

import pytest

from support import builds
from support.cli_program import seen_by_host
from support.memory import peak_mib
from support.panel_side import Turn
from support.scripted_agent import ScriptedAgent, delta, streams

PORTS = range(8090, 8095)
NOT_READY = "llm agent --serve did not become ready"
TAIL = (" --no-gui --log-level trace llm agent --serve --host 127.0.0.1 --port {}"
        " --consent-ui stream")


def wait_until_refused(port, timeout=10):
    deadline = time.monotonic() + timeout
    while True:
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
        except OSError:
            return
        assert time.monotonic() < deadline, f"port {port} still answers"
        time.sleep(0.01)


def test_the_child_gets_this_command_line_and_these_handles(start_panel, cli, user_folders):
    panel = start_panel(env=cli.env())
    turn = panel.run_turn(preset="")
    assert turn.done == (True, "") and turn.text
    (start,) = cli.starts()
    assert start["command"] == TAIL.format(8090)
    folder = start["folder"].replace("\\", "/")
    assert folder.endswith("/Quenlark/morva-viewer/chrome-extension")
    streams_of_child = start["standard"]
    assert streams_of_child[1] == streams_of_child[2]
    if builds.IS_WINDOWS:
        assert len(start["inherited"]) == 2  # the null input, and one handle for both outputs
        assert sorted(line.split(" ", 1)[1] for line in start["inherited"]) == sorted(
            streams_of_child[:2])
    else:
        assert folder.startswith(user_folders["APPDATA"])
        assert streams_of_child[0] == "/dev/null" and streams_of_child[1].startswith("pipe:")
        assert sorted(line.split(" ", 1)[0] for line in start["inherited"]) == ["0", "1", "2"]
    panel.end()
    cli.wait_until_gone()


def test_the_start_is_told_in_the_log(start_panel, cli):
    path = cli.install()
    panel = start_panel(env=cli.env())
    lines = panel.run_turn().log_lines
    ours = [line for line in lines if line[1].startswith(("cli ", "spawn ", "reusing"))]
    assert [text for _, text in ours][-2:] == [
        f"cli SearchPath {path}", f"spawn {path} --log-level trace port 8090"]
    assert {level for level, text in ours if text.startswith("spawn ")} == {"trace"}
    panel.end()


def test_the_output_of_the_child_is_in_the_log(start_panel, cli):
    panel = start_panel(env=cli.env(output="invalid-utf8"))
    mark = panel.mark()
    panel.run_turn()
    panel.wait_event("appendAssistantDelta", since=mark)
    lines = collect_log(panel, mark, "not UTF-8: ")
    assert "a line that ends as Windows programs end them" in lines
    assert "serving on 127.0.0.1:8090 — grüß dich" in lines
    assert "not UTF-8: \ufffd\ufffd(\ufffd end" in lines
    panel.end()


def collect_log(panel, mark, beginning, timeout=20):
    """All log lines since the mark, once one with this beginning is there."""
    deadline = time.monotonic() + timeout
    while not any(line.startswith(beginning) for line in panel.log_lines(mark)):
        assert time.monotonic() < deadline, panel.log_lines(mark)
        panel.run_turn()  # what is queued goes ahead of every event
    return panel.log_lines(mark)


def test_a_character_cut_at_the_limit_is_dropped(start_panel, cli):
    panel = start_panel(env=cli.env(output="cut-character"))
    mark = panel.mark()
    panel.run_turn()
    assert "a" * 1023 in collect_log(panel, mark, "aaaa")
    assert panel.run_turn().done == (True, "")  # later events arrive
    panel.end()


def test_a_child_that_prints_no_line_feed_fills_no_memory(start_panel, cli):
    panel = start_panel(env=cli.env(bytes=20_000_000))
    before = peak_mib(panel)
    assert panel.run_turn(timeout=40).done == (True, "")
    assert peak_mib(panel) - before < (60 if builds.IS_SANITIZED else 15)
    panel.end()


def test_a_child_is_never_held_up_by_a_browser_that_does_not_read(start_panel, cli):
    """It prints before it opens its port: when it is ready, all its output has been taken."""
    panel = start_panel(env=cli.env(lines=100_000))
    mark = panel.mark()
    panel.host.pause_reading()
    panel.send("send", prompt="hi", preset="p")
    cli.wait_until_serving(8090)
    before = peak_mib(panel)
    panel.host.resume_reading()
    panel.wait_event("agentDone", since=mark, timeout=60)
    numbers = [int(line[5:]) for line in panel.log_lines(mark) if line.startswith("line ")]
    assert numbers == sorted(numbers)
    assert before < (600 if builds.IS_SANITIZED else 80)
    turn = panel.run_turn()
    assert turn.done == (True, "")
    panel.end()


def test_a_hundred_thousand_lines_arrive_in_order(start_panel, cli):
    """What is dropped when they come faster than they can be sent are the oldest, 200 at a time."""
    panel = start_panel(env=cli.env(lines=100_000))
    mark = panel.mark()
    panel.run_turn(timeout=60)
    lines = collect_log(panel, mark, "line 100000", timeout=60)
    numbers = [int(line[5:]) for line in lines if line.startswith("line ")]
    assert numbers == sorted(set(numbers))
    assert numbers[-1] == 100_000
    panel.end()


# --- Children that do not come up ---

def test_a_child_that_dies_is_tried_on_five_ports(start_panel, cli):
    """Two turns at once: one of them starts, and both end with its error."""
    panel = start_panel(env=cli.env(exit=7))
    mark = panel.mark()
    for _ in range(2):
        panel.send("send", prompt="hi", preset="p")
    first = panel.wait_event("agentDone", since=mark, timeout=30)
    second = panel.wait_event(
        "agentDone", lambda args: args[0] != first[0], since=mark, timeout=30)
    assert first[1:] == second[1:] == [False, NOT_READY]
    assert [start["command"] for start in cli.starts()] == [TAIL.format(port) for port in PORTS]
    lines = log_with_levels(panel, mark)
    exits = [line for line in lines if line[1].startswith("spawn exited")]
    assert exits == [("error", f"spawn exited 7 before ready port {port}") for port in PORTS]
    assert lines.count(("error", NOT_READY)) == 1
    panel.end()


def log_with_levels(panel, mark):
    return [(args[0]["level"], args[0]["text"])
            for method, args in panel.events_since(mark) if method == "appendDebugLog"]


def test_a_program_that_cannot_be_started_says_why(start_panel, cli):
    cli.path.write_bytes(b"this is no program")
    cli.path.chmod(0o755)
    folder = seen_by_host(cli.folder)
    on_path = {"WINEPATH": folder} if builds.IS_WINDOWS else {
        "PATH": f"{folder}:{os.environ['PATH']}"}
    panel = start_panel(env=on_path)
    panel.run_turn(timeout=30)
    turn = panel.run_turn(timeout=30)  # each turn tries again
    assert turn.done == (False, NOT_READY)
    failures = [line for line in turn.log_lines if line[1].startswith("spawn failed")]
    code = 193 if builds.IS_WINDOWS else 8  # ERROR_BAD_EXE_FORMAT, ENOEXEC
    assert failures == [("error", f"spawn failed {seen_by_host(cli.path)} win32={code}")] * 5
    panel.end()


def test_two_turns_at_once_start_one_child(start_panel, cli):
    panel = start_panel(env=cli.env(ready_after_ms=600))
    mark = panel.mark()
    for _ in range(4):
        panel.send("send", prompt="hi", preset="p")
    ended = set()

    def all_done(frame):
        ended.update(e["args"][0] for e in frame.get("events", []) if e["method"] == "agentDone")
        return len(ended) == 4

    panel.wait_frame(all_done, mark, timeout=40)
    done = [a[1:] for m, a in panel.events_since(mark) if m == "agentDone"]
    assert done == [[True, ""]] * 4
    assert len(cli.starts()) == 1
    panel.end()
    cli.wait_until_gone()


def test_a_child_that_is_slow_to_get_ready_is_waited_for(start_panel, cli):
    panel = start_panel(env=cli.env(ready_after_ms=1500))
    assert panel.run_turn(timeout=30).done == (True, "")
    assert len(cli.starts()) == 1
    panel.end()


def test_stop_in_a_slow_start_cancels_the_turn(start_panel, cli):
    panel = start_panel(env=cli.env(ready_after_ms=1500))
    mark = panel.mark()
    panel.send("send", prompt="hi", preset="p")
    cli.wait_for_starts()
    assert panel.ask("stop")["ok"] is True
    panel.wait_event("agentDone", since=mark, timeout=30)
    turn = Turn(panel.events_since(mark))
    assert turn.done == (False, "cancelled")
    assert turn.args_of("appendAssistantDelta") == []
    assert panel.run_turn().done == (True, "")
    assert len(cli.starts()) == 1
    panel.end()


def test_the_host_answers_while_an_agent_starts(start_panel, cli):
    panel = start_panel(env=cli.env(never_ready=1))
    panel.send("send", prompt="hi", preset="p")
    cli.wait_for_starts()
    began = time.monotonic()
    panel.prove_alive()
    assert time.monotonic() - began < 1
    panel.end()
    cli.wait_until_gone()


# --- Owned and found ---

def test_an_owned_agent_is_used_again(start_panel, cli):
    panel = start_panel(env=cli.env())
    for _ in range(3):
        assert panel.run_turn().done == (True, "")
    assert len(cli.starts()) == 1
    panel.end()
    cli.wait_until_gone()


def test_an_owned_agent_that_died_is_replaced(start_panel, cli):
    panel = start_panel(env=cli.env())
    panel.run_turn()
    (child,) = cli.running()
    child.kill()
    # Wine's server does not survive every connection to a program that it is just clearing away.
    time.sleep(1)
    wait_until_refused(8090)
    assert panel.run_turn(timeout=30).done == (True, "")
    assert len(cli.starts()) == 2
    panel.end()
    cli.wait_until_gone()


def test_an_owned_agent_that_dies_in_a_turn_ends_it_and_is_replaced(start_panel, cli):
    panel = start_panel(env=cli.env(words=100_000, tokens_per_second=50))
    mark = panel.mark()
    panel.send("send", prompt="hi", preset="p")
    panel.wait_event("appendAssistantDelta", since=mark, timeout=30)
    (child,) = cli.running()
    child.kill()
    assert panel.wait_event("agentDone", since=mark, timeout=30)[1:] == [True, ""]
    mark = panel.mark()
    panel.send("send", prompt="hi", preset="p")
    panel.wait_event("appendAssistantDelta", since=mark, timeout=30)
    panel.ask("stop")
    panel.wait_event("agentDone", since=mark)
    assert len(cli.starts()) == 2
    panel.end()
    cli.wait_until_gone()


def test_a_foreign_server_does_not_replace_the_owned_agent(start_panel, cli):
    panel = start_panel(env=cli.env())
    panel.run_turn()
    with ScriptedAgent(port=8091) as foreign:
        assert panel.run_turn().done == (True, "")
        assert foreign.exchanges == []
    panel.end()
    cli.wait_until_gone()


@pytest.mark.windows_only
def test_a_host_that_is_killed_takes_its_agent_along(start_panel, cli):
    panel = start_panel(env=cli.env())
    panel.run_turn()
    assert cli.running()
    panel.host.kill()
    cli.wait_until_gone(timeout=10)


def test_a_found_agent_lives_on_when_the_host_ends(start_panel, cli):
    owner = start_panel(env=cli.env())
    owner.run_turn()
    guest = start_panel()
    assert guest.run_turn().done == (True, "")
    guest.end()
    assert cli.running()
    assert owner.run_turn().done == (True, "")
    owner.end()
    cli.wait_until_gone()


def test_after_a_lost_found_agent_the_next_turn_starts_one(start_panel, cli):
    panel = start_panel(env=cli.env())
    with ScriptedAgent(port=8092, turn=streams(delta("found"))):
        assert panel.run_turn().text == "found"
        assert cli.starts() == []
    assert panel.run_turn(timeout=30).done == (True, "")
    (start,) = cli.starts()
    assert start["command"] == TAIL.format(8090)
    panel.end()
    cli.wait_until_gone()


# --- The child's folder ---

def test_a_data_folder_that_is_a_file_does_not_stop_the_child(start_panel, cli, tmp_path):
    """Then the child runs in the host's own folder."""
    if builds.IS_WINDOWS:
        users = builds.wine_prefix() / "drive_c" / "users"
        (roaming,) = [path for path in users.glob("*/AppData/Roaming")
                      if path.parts[-3] != "Public"]
        environment = {}
    else:
        roaming = tmp_path / "elsewhere"
        roaming.mkdir()
        environment = {"APPDATA": str(roaming)}
    blocked = roaming / "Quenlark"
    aside = Path(f"{blocked}.aside")
    if blocked.exists():
        blocked.rename(aside)
    blocked.write_text("no folder")
    try:
        panel = start_panel(env={**cli.env(), **environment})
        assert panel.run_turn().done == (True, "")
        (start,) = cli.starts()
        assert start["folder"].rstrip("\\/") == seen_by_host(Path.cwd()).rstrip("\\/")
        panel.end()
        cli.wait_until_gone()
    finally:
        blocked.unlink()
        if aside.exists():
            shutil.move(aside, blocked)
