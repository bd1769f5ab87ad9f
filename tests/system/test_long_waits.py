"""What takes a minute or a good part of it: idle agents, slow agents, agents that say nothing."""

import os
import signal
import threading
import time

import pytest

from support import builds
from support.panel_side import Turn
from support.scripted_agent import ScriptedAgent, delta

pytestmark = [pytest.mark.long, pytest.mark.timeout(200)]

IDLE_SECONDS = 60
WATCH_SECONDS = 5
STOPPED = "idle: owned llm agent stopped after 60s quiet"


def wait_while(panel, seconds, test=lambda: True):
    """Looks twice a second; the messages that it sends are no activity."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline and test():
        for kind in ("getStatus", "hostLog", "ready", "chatWebState", "requestContext", "poll"):
            panel.ask(kind)
        threading.Event().wait(0.5)


def test_an_idle_owned_agent_is_stopped_after_a_minute(start_panel, cli):
    panel = start_panel(env=cli.env())
    panel.run_turn()
    ended = time.monotonic()
    mark = panel.mark()
    wait_while(panel, 90, cli.running)
    took = time.monotonic() - ended
    assert IDLE_SECONDS - 1 <= took <= IDLE_SECONDS + WATCH_SECONDS + 4, took
    status = panel.wait_frame(lambda f: f.get("kind") == "hostStatus", mark)
    assert status == {"source": "morva-chat", "kind": "hostStatus", "nativeHost": "connected",
                      "agent": "disconnected"}
    turn = panel.run_turn(timeout=30)  # a new one is started
    assert turn.done == (True, "")
    assert len(cli.starts()) == 2
    lines = [a[0] for m, a in panel.events_since(mark) if m == "appendDebugLog"]
    assert {"source": "agent", "level": "warn", "text": STOPPED} in lines
    panel.end()
    cli.wait_until_gone()


def test_a_turn_holds_the_agent_for_as_long_as_it_runs(start_panel, cli):
    panel = start_panel(env=cli.env(words=1_000_000, tokens_per_second=4))
    mark = panel.mark()
    panel.send("send", prompt="hi", preset="p")
    panel.wait_event("appendAssistantDelta", since=mark, timeout=30)
    wait_while(panel, IDLE_SECONDS + WATCH_SECONDS + 7, cli.running)
    assert cli.running()
    assert not [m for m, _ in panel.events_since(mark) if m == "agentDone"]
    panel.ask("stop")
    panel.wait_event("agentDone", since=mark)
    assert cli.running()  # the minute begins with the end of the turn
    panel.end()
    cli.wait_until_gone()


def test_a_turn_of_a_lost_agent_does_not_uncover_the_next_ones(start_panel, cli):
    """The first turn's end must not be counted against the second, which runs on another agent."""
    panel = start_panel(env=cli.env(words=1_000_000, tokens_per_second=4))
    for _ in range(2):
        mark = panel.mark()
        panel.send("send", prompt="hi", preset="p")
        panel.wait_event("appendAssistantDelta", since=mark, timeout=30)
        if len(cli.starts()) == 1:
            (child,) = cli.running()
            child.kill()
            panel.wait_event("agentDone", since=mark, timeout=30)
    wait_while(panel, IDLE_SECONDS + WATCH_SECONDS + 7, cli.running)
    assert cli.running()
    assert len(cli.starts()) == 2
    panel.end()
    cli.wait_until_gone()


def test_activity_holds_the_agent(start_panel, cli):
    """A message that is none of the six silent kinds begins the minute anew."""
    panel = start_panel(env=cli.env())
    panel.run_turn()
    wait_while(panel, 30)
    panel.ask("browserSnapshot", browser={})
    wait_while(panel, 37 + WATCH_SECONDS, cli.running)
    assert cli.running()
    panel.end()
    cli.wait_until_gone()


def test_a_found_agent_is_never_stopped(start_panel):
    with ScriptedAgent() as agent:
        panel = start_panel()
        panel.run_turn()
        mark = panel.mark()
        wait_while(panel, IDLE_SECONDS + WATCH_SECONDS + 7)
        assert panel.frames_since(mark) and not [
            f for f in panel.frames_since(mark) if f["kind"] == "hostStatus"]
        assert not agent.cancelled.is_set()
        assert panel.run_turn().text == "hello"
        panel.end()


def test_a_child_that_never_gets_ready_is_given_twelve_seconds(start_panel, cli):
    panel = start_panel(env=cli.env(ready_only_port=8091))
    began = time.monotonic()
    mark = panel.mark()
    panel.send("send", prompt="hi", preset="p")
    cli.wait_for_starts(2, timeout=30)
    took = time.monotonic() - began
    assert 12 <= took <= 16, took
    panel.wait_event("agentDone", since=mark, timeout=30)
    turn = Turn(panel.events_since(mark))
    assert turn.done == (True, "")
    assert ("warn", "spawn port 8090 not ready") in turn.log_lines
    assert len(cli.running()) == 1  # the first was ended
    panel.end()
    cli.wait_until_gone()


def test_a_child_that_is_ready_at_the_last_moment_is_taken(start_panel, cli):
    panel = start_panel(env=cli.env(ready_after_ms=11_500))
    assert panel.run_turn(timeout=40).done == (True, "")
    assert len(cli.starts()) == 1
    panel.end()
    cli.wait_until_gone()


def test_a_mute_child_costs_at_most_sixteen_seconds(start_panel, cli):
    """It accepts connections and never answers: each probe gets what is left of the deadline."""
    panel = start_panel(env=cli.env(mute=1))
    panel.send("send", prompt="hi", preset="p")
    cli.wait_for_starts()
    began = time.monotonic()
    cli.wait_for_starts(2, timeout=30)
    took = time.monotonic() - began
    assert 12 <= took <= 18 + (builds.SLOWER - 1), took  # two of them for a busy machine
    panel.end()
    cli.wait_until_gone()


def test_an_answer_that_drips_holds_nobody_for_ever(start_panel):
    """One byte at a time keeps every single read short; the whole probe has a limit, too."""
    stop = threading.Event()

    def drips(exchange):
        exchange.send(b"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n")
        while not stop.wait(0.3):
            exchange.send(b" ")

    panel = start_panel()
    with ScriptedAgent(port=8091, ready=drips):
        began = time.monotonic()
        turn = panel.run_turn(timeout=40)
        assert turn.done == (False, "morva-viewer-cli.exe is not on PATH")
        assert time.monotonic() - began <= 17
        stop.set()
    panel.end()


def test_a_port_that_never_answers_is_given_fifteen_seconds(start_panel):
    with ScriptedAgent(port=8092, ready=lambda exchange: exchange.hold()):
        panel = start_panel()
        began = time.monotonic()
        turn = panel.run_turn(timeout=40)
        assert turn.done == (False, "morva-viewer-cli.exe is not on PATH")
        assert 14 <= time.monotonic() - began <= 17
        panel.end()


def test_a_slow_stream_has_no_time_limit(start_panel):
    """The silence is longer than what an ordinary request is given."""
    def slow(exchange):
        exchange.stream(delta("before "))
        threading.Event().wait(20)
        exchange.more(delta("after"), "[DONE]")

    with ScriptedAgent(turn=slow):
        panel = start_panel()
        turn = panel.run_turn(timeout=60)
        assert (turn.done, turn.text) == ((True, ""), "before after")
        panel.end()


@pytest.mark.posix_only
def test_a_frozen_owned_agent_keeps_its_port(start_panel, cli):
    """A foreign agent answers meanwhile; it never takes the place of the owned one."""
    panel = start_panel(env=cli.env())
    panel.run_turn()
    (child,) = cli.running()
    os.kill(child.pid, signal.SIGSTOP)
    with ScriptedAgent(port=8094) as foreign:
        mark = panel.mark()
        panel.send("send", prompt="hi", preset="p")
        foreign.wait_for("/ready", timeout=40)
        os.kill(child.pid, signal.SIGCONT)
        panel.wait_event("agentDone", since=mark, timeout=40)
        assert foreign.seen("/v1/chat/completions") == []
    assert panel.run_turn().done == (True, "")
    assert len(cli.starts()) == 1
    panel.end()
    cli.wait_until_gone()
