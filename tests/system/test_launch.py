"""The host starts an agent of its own: how, what it does with it, and what it tells of it."""

import time
from pathlib import Path

import pytest

from support import builds
from support.cli_program import seen_by_host
from support.memory import peak_mib
from support.scripted_agent import ScriptedAgent, delta, streams
from support.waiting import until

PORTS = range(8090, 8095)
NOT_READY = "llm agent --serve did not become ready"
TAIL = (" --no-gui --log-level trace llm agent --serve --host 127.0.0.1 --port {}"
        " --consent-ui stream")
FINE = (True, "")


def test_the_child_gets_this_command_line_and_these_handles(start_panel, cli, user_folders):
    path = cli.install()
    panel = start_panel(env=cli.env())
    turn = panel.run_turn(preset="")
    assert turn.done == FINE and turn.text
    lines = [line for line in turn.log_lines if line[1].startswith(("cli S", "spawn ", "reusing"))]
    assert lines == [("trace", f"cli SearchPath {path}"),
                     ("trace", f"spawn {path} --log-level trace port 8090")]
    (start,) = cli.starts()
    assert start["command"] == TAIL.format(8090)
    folder = start["folder"].replace("\\", "/")
    assert folder.endswith("/Quenlark/morva-viewer/chrome-extension")
    standard = start["standard"]
    assert standard[1] == standard[2]
    if builds.IS_WINDOWS:
        assert len(start["inherited"]) == 2  # the null input, and one handle for both outputs
        assert sorted(line.split(" ", 1)[1] for line in start["inherited"]) == sorted(standard[:2])
    else:
        assert folder.startswith(user_folders["APPDATA"])
        assert standard[0] == "/dev/null" and standard[1].startswith("pipe:")
        assert sorted(line.split(" ", 1)[0] for line in start["inherited"]) == ["0", "1", "2"]


# --- What the child prints ---

def collect_log(panel, mark, beginning, timeout=20):
    """All log lines since the mark, once one with this beginning is there."""
    def there():
        panel.run_turn()  # what is queued goes ahead of every event
        return any(line.startswith(beginning) for line in panel.log_lines(mark))

    until(there, f"no line {beginning}", timeout)
    return panel.log_lines(mark)


# How the child prints, and lines that are in the log then.
OUTPUTS = {
    "invalid-utf8": ["a line that ends as Windows programs end them",
                     "serving on 127.0.0.1:8090 — grüß dich", "not UTF-8: \ufffd\ufffd(\ufffd end"],
    "cut-character": ["a" * 1023],
}


@pytest.mark.parametrize("output", OUTPUTS)
def test_the_output_of_the_child_is_in_the_log(start_panel, cli, output):
    panel = start_panel(env=cli.env(output=output))
    wanted = OUTPUTS[output]
    assert set(wanted) <= set(collect_log(panel, panel.mark(), wanted[-1]))


@pytest.mark.linux_side
def test_a_child_that_prints_no_line_feed_fills_no_memory(start_panel, cli):
    panel = start_panel(env=cli.env(bytes=100_000_000))
    before = peak_mib(panel)
    assert panel.run_turn(timeout=40).done == FINE
    # Some of it are threads, and libraries of the system, which are loaded when first used.
    assert peak_mib(panel) - before < 60


LINES = 50_000


@pytest.mark.linux_side
@pytest.mark.parametrize("reads", [True, False])
def test_of_too_many_lines_the_oldest_are_dropped(start_panel, cli, reads):
    """Also by a browser that does not read: when the child serves, all it printed was taken.

    What waits is at most 800 lines, of which 200 go at a time; among them may be one of the host.
    """
    panel = start_panel(env=cli.env(lines=LINES))
    mark = panel.mark()
    if not reads:
        panel.host.pause_reading()
    panel.start_turn(until=None)
    cli.wait_until_serving(8090)
    assert peak_mib(panel) < (600 if builds.IS_SANITIZED else 80)
    panel.host.resume_reading()
    panel.wait_ends(mark)
    lines = collect_log(panel, mark, f"line {LINES}", timeout=60)
    numbers = [int(line[5:]) for line in lines if line.startswith("line ")]
    assert numbers == sorted(set(numbers)) and numbers[-1] == LINES
    gaps = [right - left - 1 for left, right in zip(numbers, numbers[1:]) if right > left + 1]
    assert sum(-gap % 200 for gap in gaps) <= 2, gaps
    assert reads or gaps
    assert numbers[-600:] == list(range(LINES - 599, LINES + 1))


# --- Children that do not come up, or not soon ---

def test_a_child_that_dies_is_tried_on_five_ports(start_panel, cli):
    """Two turns at once: one of them starts, and both end with its error."""
    panel = start_panel(env=cli.env(exit=7))
    mark = panel.start_turn(2)
    assert list(panel.wait_ends(mark, 2).values()) == [(False, NOT_READY)] * 2
    assert [start["command"] for start in cli.starts()] == [TAIL.format(port) for port in PORTS]
    lines = [(args[0]["level"], args[0]["text"]) for method, args in panel.events_since(mark)
             if method == "appendDebugLog"]
    exits = [line for line in lines if line[1].startswith("spawn exited")]
    assert exits == [("error", f"spawn exited 7 before ready port {port}") for port in PORTS]
    assert lines.count(("error", NOT_READY)) == 1


def test_turns_at_once_wait_for_one_child(start_panel, cli):
    panel = start_panel(env=cli.env(ready_after_ms=1000))
    mark = panel.start_turn(4)
    cli.wait_for_starts()
    panel.ask_for_ack("stop", timeout=5)  # nothing is held up by the start
    assert set(panel.wait_ends(mark, 4).values()) == {(False, "cancelled")}
    assert [m for m, _ in panel.told(mark) if m == "appendAssistantDelta"] == []
    mark = panel.start_turn(4)
    assert list(panel.wait_ends(mark, 4).values()) == [FINE] * 4
    assert len(cli.starts()) == 1


# --- Owned and found ---

def test_an_owned_agent_is_used_again_and_kept(start_panel, cli):
    panel = start_panel(env=cli.env())
    panel.run_turn()
    with ScriptedAgent(port=8091) as foreign:
        assert panel.run_turn().done == FINE
        assert foreign.exchanges == []
    guest = start_panel()
    assert guest.run_turn().done == FINE
    guest.end()  # what it only found lives on
    assert cli.running()
    assert panel.run_turn().done == FINE
    assert len(cli.starts()) == 1


def test_an_owned_agent_that_dies_is_replaced(start_panel, cli):
    """Whether between two turns or in one, which ends with what was said."""
    panel = start_panel(env=cli.env(words=100_000, tokens_per_second=50))
    for number in range(1, 3):
        mark = panel.start_turn(until="appendAssistantDelta")
        assert len(cli.starts()) == number
        (child,) = cli.running()
        if number == 2:
            panel.stop_turn(mark)
        child.kill()
        assert number == 2 or panel.finish_turn(mark).done == FINE
        # Wine's server does not survive every connection to a program that is just cleared away.
        time.sleep(1 if builds.IS_WINDOWS else 0)
        cli.wait_until_gone()
    panel.stop_turn(panel.start_turn(until="appendAssistantDelta"))
    assert len(cli.starts()) == 3


@pytest.mark.windows_only
def test_a_host_that_is_killed_takes_its_agent_along(start_panel, cli):
    panel = start_panel(env=cli.env())
    panel.run_turn()
    assert cli.running()
    panel.host.kill()
    cli.wait_until_gone(timeout=10)


def test_after_a_lost_found_agent_the_next_turn_starts_one(start_panel, cli):
    panel = start_panel(env=cli.env())
    with ScriptedAgent(port=8092, turn=streams(delta("found"))):
        assert panel.run_turn().text == "found"
        assert cli.starts() == []
    assert panel.run_turn(timeout=30).done == FINE
    (start,) = cli.starts()
    assert start["command"] == TAIL.format(8090)


# --- The child's folder ---

def test_a_data_folder_that_is_a_file_does_not_stop_the_child(start_panel, cli, roaming):
    """Then the child runs in the host's own folder."""
    (roaming / "Quenlark").write_text("no folder")
    panel = start_panel(env=cli.env())
    assert panel.run_turn().done == FINE
    (start,) = cli.starts()
    assert start["folder"].rstrip("\\/") == seen_by_host(Path.cwd()).rstrip("\\/")
    panel.end()


def test_a_stop_ends_a_turn_at_once_while_an_agent_starts(start_panel, cli):
    panel = start_panel(env=cli.env(never_ready=1))
    mark = panel.start_turn()
    cli.wait_for_starts(1)
    assert panel.stop_turn(mark) <= 0.3 * builds.SLOWER
