"""What takes a minute or a good part of it: idle agents, slow agents, agents that say nothing."""

import os
import signal
import threading
import time

import pytest

from support import builds
from support.panel_side import Turn
from support.scripted_agent import COMPLETIONS, READY, ScriptedAgent, delta, holds

pytestmark = [pytest.mark.long, pytest.mark.timeout(200)]

NOT_FOUND = (False, "morva-viewer-cli.exe is not on PATH")
IDLE_SECONDS = 60
WATCH_SECONDS = 5
STOPPED = "idle: owned llm agent stopped after 60s quiet"


def test_an_idle_owned_agent_is_stopped_after_a_minute(start_panel, cli):
    panel = start_panel(env=cli.env())
    panel.run_turn()
    began = time.monotonic()
    mark = panel.mark()
    while cli.running() and time.monotonic() - began < 90:
        for kind in ("getStatus", "hostLog", "ready", "chatWebState", "requestContext", "poll"):
            panel.ask(kind)  # none of them is activity
        threading.Event().wait(0.5)
    took = time.monotonic() - began
    assert IDLE_SECONDS - 1 <= took <= IDLE_SECONDS + WATCH_SECONDS + 4, took
    status = panel.wait_frame(lambda f: f.get("kind") == "hostStatus", mark)
    assert status == {"source": "morva-chat", "kind": "hostStatus", "nativeHost": "connected",
                      "agent": "disconnected"}
    turn = panel.run_turn(timeout=30)  # a new one is started
    assert turn.done == (True, "")
    assert len(cli.starts()) == 2
    lines = [a[0] for m, a in panel.events_since(mark) if m == "appendDebugLog"]
    assert {"source": "agent", "level": "warn", "text": STOPPED} in lines


def test_a_child_that_never_gets_ready_is_given_twelve_seconds(start_panel, cli):
    panel = start_panel(env=cli.env(ready_only_port=8091))
    began = time.monotonic()
    mark = panel.start_turn()
    cli.wait_for_starts(2, timeout=30)
    took = time.monotonic() - began
    assert 12 <= took <= 16, took
    turn = panel.finish_turn(mark)
    assert turn.done == (True, "")
    assert ("warn", "spawn port 8090 not ready") in turn.log_lines
    assert len(cli.running()) == 1  # the first was ended


def test_a_child_that_is_ready_at_the_last_moment_is_taken(start_panel, cli):
    panel = start_panel(env=cli.env(ready_after_ms=11_500))
    assert panel.run_turn(timeout=40).done == (True, "")
    assert len(cli.starts()) == 1


def test_a_mute_child_costs_at_most_sixteen_seconds(start_panel, cli):
    """It accepts connections and never answers: each probe gets what is left of the deadline."""
    panel = start_panel(env=cli.env(mute=1))
    panel.start_turn()
    cli.wait_for_starts()
    began = time.monotonic()
    cli.wait_for_starts(2, timeout=30)
    took = time.monotonic() - began
    assert 12 <= took <= 18 + (builds.SLOWER - 1), took  # two of them for a busy machine


def test_a_port_that_never_answers_whole_is_given_fifteen_seconds(panel):
    """One byte at a time keeps every single read short; the whole probe has a limit, too."""
    def drips(exchange):
        exchange.send(b"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n")
        while not exchange.agent.cancelled.wait(0.3):
            exchange.send(b" ")

    with ScriptedAgent(port=8091, ready=drips), ScriptedAgent(port=8092, ready=holds):
        began = time.monotonic()
        assert panel.run_turn(timeout=40).done == NOT_FOUND
        assert 14 <= time.monotonic() - began <= 17


def test_a_slow_stream_has_no_time_limit(panel):
    """The silence is longer than what an ordinary request is given."""
    def slow(exchange):
        exchange.stream(delta("before "))
        exchange.agent.cancelled.wait(20)
        exchange.more(delta("after"), "[DONE]")

    with ScriptedAgent(turn=slow):
        turn = panel.run_turn(timeout=60)
        assert (turn.done, turn.text) == ((True, ""), "before after")


def test_an_owned_agent_that_reads_aloud_is_not_idle(start_panel, cli):
    panel = start_panel(env=cli.env(speak_ms=90_000))
    panel.ask_for_ack("speak", text="a long text")
    assert panel.wait_told(2, timeout=150) == [("ttsStarted", []), ("ttsDone", [])]
    assert len(cli.running()) == 1


@pytest.mark.posix_only
def test_a_frozen_owned_agent_keeps_its_port(start_panel, cli):
    """A foreign agent answers meanwhile; it never takes the place of the owned one."""
    panel = start_panel(env=cli.env())
    panel.run_turn()
    (child,) = cli.running()
    os.kill(child.pid, signal.SIGSTOP)
    with ScriptedAgent(port=8094) as foreign:
        mark = panel.start_turn()
        foreign.wait_for(READY, timeout=40)
        os.kill(child.pid, signal.SIGCONT)
        assert isinstance(panel.finish_turn(mark), Turn)
        assert foreign.seen(COMPLETIONS) == []
    assert panel.run_turn().done == (True, "")
    assert len(cli.starts()) == 1
