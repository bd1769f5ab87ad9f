"""The host's log in the panel. The lines of an agent's output are the most of it."""

import pytest

from support.builds import CLI_PROGRAM


def log_batches(panel, mark):
    """The sizes of the batches that hold nothing but log lines."""
    return [
        len(frame["events"]) for frame in panel.frames_since(mark)
        if frame["kind"] == "hostChatEvents"
        and all(event["method"] == "appendDebugLog" for event in frame["events"])]


def test_the_twentieth_line_sends_all_twenty(start_panel, cli):
    """Nothing else is sent while the child starts, so its lines alone fill the queue."""
    panel = start_panel(env=cli.env(lines=20, never_ready=1))
    mark = panel.mark()
    panel.send("send", prompt="hi", preset="p")
    panel.wait_event("appendDebugLog", lambda args: args[0]["text"] == "line 8", mark, timeout=30)
    panel.prove_alive()
    first = next(f for f in panel.frames_since(mark) if f["kind"] == "hostChatEvents"
                 and f["events"][-1]["method"] == "appendDebugLog")
    assert 20 <= len(first["events"]) <= 40
    texts = [event["args"][0]["text"] for event in first["events"]]
    assert texts[0] == "cli options (none)"  # the oldest first
    panel.end()


def test_fewer_than_twenty_lines_wait_for_an_event(start_panel, cli):
    panel = start_panel(env=cli.env(lines=5, ready_after_ms=800))
    mark = panel.mark()
    panel.run_turn(timeout=30)
    assert log_batches(panel, mark) == []
    (carrier,) = [f for f in panel.frames_since(mark) if f["kind"] == "hostChatEvents"
                  and len(f["events"]) > 1]
    assert [e["method"] for e in carrier["events"]][:-1] == (
        ["appendDebugLog"] * (len(carrier["events"]) - 1))
    assert carrier["events"][-1]["method"] != "appendDebugLog"  # behind what was queued
    assert "line 5" in panel.log_lines(mark)
    panel.end()


def test_an_event_of_the_log_looks_so(start_panel):
    panel = start_panel()
    mark = panel.mark()
    panel.run_turn()
    event = next(a for m, a in panel.events_since(mark) if m == "appendDebugLog")
    assert event == [{"source": "agent", "level": "trace", "text": "cli options (none)"}]
    panel.end()


def test_no_batch_has_more_than_forty_lines(start_panel, cli):
    panel = start_panel(env=cli.env(lines=20_000))
    mark = panel.mark()
    panel.run_turn(timeout=60)
    sizes = log_batches(panel, mark)
    assert sizes and max(sizes) <= 40 and min(sizes) >= 20
    carriers = [len(f["events"]) for f in panel.frames_since(mark)
                if f["kind"] == "hostChatEvents"]
    assert max(carriers) <= 41  # forty lines and the event itself
    panel.end()


def test_the_oldest_two_hundred_of_eight_hundred_are_dropped(start_panel, cli):
    """With the browser not reading, the pipe fills, then the queue; the newest lines stay."""
    count = 20_000
    panel = start_panel(env=cli.env(lines=count))
    mark = panel.mark()
    panel.host.pause_reading()
    panel.send("send", prompt="hi", preset="p")
    cli.wait_until_serving(8090)
    panel.host.resume_reading()
    panel.wait_event("agentDone", since=mark, timeout=30)
    while f"line {count}" not in panel.log_lines(mark):
        panel.run_turn()
    numbers = [int(line[5:]) for line in panel.log_lines(mark) if line.startswith("line ")]
    assert numbers == sorted(set(numbers)) and numbers[-1] == count
    gaps = [right - left - 1 for left, right in zip(numbers, numbers[1:]) if right > left + 1]
    assert gaps and all(gap % 200 == 0 for gap in gaps), gaps
    assert 600 <= count - numbers[numbers.index(count) - 600] + 1 <= 800
    panel.end()


SCRIPT = """#!/bin/sh
printf '%*s\\n' {size} '' | tr ' ' x
exec {program} "$@"
"""


@pytest.mark.posix_only
@pytest.mark.parametrize("size,kept", [(1023, 1023), (1024, 1024), (1025, 1024), (5000, 1024)])
def test_a_line_is_cut_to_1024_bytes(start_panel, cli, size, kept):
    cli.path.write_text(SCRIPT.format(size=size, program=CLI_PROGRAM))
    cli.path.chmod(0o755)
    panel = start_panel(env=cli.env())
    mark = panel.mark()
    panel.run_turn()
    assert [len(line) for line in panel.log_lines(mark) if line.startswith("xxxx")] == [kept]
    panel.end()


def test_a_message_for_the_log_is_only_acknowledged(shared_panel):
    mark = shared_panel.mark()
    assert shared_panel.ask("hostLog", text="x", level="error")["ok"] is True
    shared_panel.prove_alive()
    assert shared_panel.events_since(mark) == []
