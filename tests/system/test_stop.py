"""Stopping turns: in the stream, before it, and when there is nothing to stop."""

import os
import threading

import pytest

from support import builds
from support.panel_side import Turn
from support.scripted_agent import (
    COMPLETIONS, CONSENT, MODELS, READY, answers, delta, streams, streams_then_holds)


def start_turn(panel, **keys):
    """Begins a turn and returns the mark and its run id."""
    mark = panel.mark()
    panel.send("send", prompt="hi", **{"preset": "p", **keys})
    started = panel.wait_event("agentStarted", since=mark)[0]
    return mark, started["id"]


def wait_end(panel, mark):
    panel.wait_event("agentDone", since=mark)
    panel.prove_alive()
    return Turn(panel.events_since(mark))


def test_stop_in_the_stream_ends_the_turn_as_cancelled(shared_panel, shared_agent):
    shared_agent.turn(streams_then_holds(delta("some text")))
    mark, _ = start_turn(shared_panel)
    shared_panel.wait_event("appendAssistantDelta", since=mark)
    assert shared_panel.ask("stop")["ok"] is True
    turn = wait_end(shared_panel, mark)
    assert turn.done == (False, "cancelled")
    assert turn.text is None and turn.args_of("setTurnLlmUsage") == []


def test_stop_tells_the_agent_to_cancel(shared_panel, shared_agent):
    shared_agent.turn(streams_then_holds(delta("a")))
    mark, _ = start_turn(shared_panel)
    shared_panel.wait_event("appendAssistantDelta", since=mark)
    asked = len(shared_agent.seen(CONSENT))
    shared_panel.ask("stop")
    (request,) = shared_agent.seen(CONSENT)[asked:]
    assert (request.method, request.body) == ("POST", b'{"cancel":true}')
    assert request.header("Content-Type") == ["application/json"]
    wait_end(shared_panel, mark)


def test_a_stop_in_the_middle_of_an_event_is_a_stop(shared_panel, shared_agent):
    """The agent breaks off when it is told to cancel; what it left is no parse error."""
    shared_agent.turn(streams_then_holds(delta("a"), b'data: {"choices":[{"del'))
    mark, _ = start_turn(shared_panel)
    shared_panel.wait_event("appendAssistantDelta", since=mark)
    shared_panel.ask("stop")
    assert wait_end(shared_panel, mark).done == (False, "cancelled")


def test_the_turn_after_a_stopped_one_is_not_stopped(shared_panel, shared_agent):
    for _ in range(5):
        shared_agent.turn(streams_then_holds(delta("a")))
        mark, _ = start_turn(shared_panel)
        shared_panel.wait_event("appendAssistantDelta", since=mark)
        shared_panel.ask("stop")
        assert wait_end(shared_panel, mark).done == (False, "cancelled")
        shared_agent.turn(streams(delta("fine")))
        turn = shared_panel.run_turn()
        assert (turn.done, turn.text) == ((True, ""), "fine")


def test_a_stop_before_a_turn_does_not_reach_it(shared_panel, shared_agent):
    shared_agent.turn(streams(delta("fine")))
    shared_panel.run_turn()
    shared_panel.send("stop")
    assert shared_panel.run_turn().text == "fine"


def open_files(panel):
    return len(os.listdir(f"/proc/{panel.pid}/fd"))


@pytest.mark.off_protocol("agent")
def test_stop_after_broken_streams_leaves_nothing_open(shared_panel, shared_agent):
    counts = []
    for _ in range(30):
        shared_agent.turn(streams(delta("a"), "{broken"))
        assert shared_panel.run_turn().done[0] is False
        assert shared_panel.ask("stop")["ok"] is True
        shared_agent.turn(streams(delta("fine")))
        assert shared_panel.run_turn().text == "fine"
        counts.append(open_files(shared_panel))
    assert max(counts[15:]) <= max(counts[:15]) + 5, counts


def test_overlapping_turns_leave_nothing_open(shared_panel, shared_agent):
    shared_agent.turn(streams(delta("a"), "[DONE]"))
    counts = []
    for _ in range(20):
        mark = shared_panel.mark()
        runs = set()
        for _ in range(5):
            shared_panel.send("send", prompt="hi", preset="p")

        def all_done(frame, runs=runs):
            runs.update(
                e["args"][0] for e in frame.get("events", []) if e["method"] == "agentDone")
            return len(runs) == 5

        shared_panel.wait_frame(all_done, mark, timeout=30)
        shared_panel.run_turn()
        counts.append(open_files(shared_panel))
    assert max(counts[10:]) <= max(counts[:10]) + 5, counts


def test_stop_while_the_preset_is_looked_up_makes_no_request(shared_panel, shared_agent):
    go_on = threading.Event()

    def slow_list(exchange):
        assert go_on.wait(20)
        exchange.answer({"data": [{"id": "a"}]})

    shared_agent.turn(streams(delta("too late")))
    shared_agent.on[MODELS] = slow_list
    asked = len(shared_agent.seen(COMPLETIONS))
    lists = len(shared_agent.seen(MODELS))
    mark, _ = start_turn(shared_panel, preset="")
    shared_agent.wait_for(MODELS, lists + 1)
    shared_panel.ask("stop")
    go_on.set()
    assert wait_end(shared_panel, mark).done == (False, "cancelled")
    assert len(shared_agent.seen(COMPLETIONS)) == asked


def test_stop_while_the_agent_is_looked_for_makes_no_request(panel, shared_agent):
    go_on = threading.Event()

    def slow_ready(exchange):
        assert go_on.wait(20)
        exchange.answer({"ready": True})

    shared_agent.on[READY] = slow_ready
    looked = len(shared_agent.seen(READY))
    asked = len(shared_agent.seen(COMPLETIONS))
    mark, _ = start_turn(panel)
    shared_agent.wait_for(READY, looked + 1)
    assert panel.ask("stop")["ok"] is True  # not behind the turn's look for the agent
    go_on.set()
    assert wait_end(panel, mark).done == (False, "cancelled")
    assert len(shared_agent.seen(COMPLETIONS)) == asked
    panel.end()


def test_stop_while_the_agent_thinks_about_its_answer(shared_panel, shared_agent):
    """No byte of the answer has come yet, not even its head."""
    shared_agent.turn(lambda exchange: exchange.hold())
    asked = len(shared_agent.seen(COMPLETIONS))
    mark, _ = start_turn(shared_panel)
    shared_agent.wait_for(COMPLETIONS, asked + 1)
    shared_panel.ask("stop")
    assert wait_end(shared_panel, mark).done == (False, "cancelled")


def test_stop_reaches_all_turns_that_run(shared_panel, shared_agent):
    shared_agent.turn(streams_then_holds(delta("a")))
    mark = shared_panel.mark()
    for _ in range(4):
        shared_panel.send("send", prompt="hi", preset="p")
    seen = set()

    def all_streaming(frame):
        seen.update(e["args"][0]["runId"] for e in frame.get("events", [])
                    if e["method"] == "appendAssistantDelta")
        return len(seen) == 4

    shared_panel.wait_frame(all_streaming, mark)
    shared_panel.ask("stop")
    for run in seen:
        shared_panel.wait_event("agentDone", lambda args, run=run: args[0] == run, mark)
    shared_panel.prove_alive()
    done = [a for m, a in shared_panel.events_since(mark) if m == "agentDone"]
    assert sorted(done) == sorted([run, False, "cancelled"] for run in seen)


def test_many_stops_beside_many_turns_leave_one_end_each(shared_panel, shared_agent):
    shared_agent.turn(streams(*(delta("word ") for _ in range(50)), "[DONE]"))
    mark = shared_panel.mark()
    turns = 30
    for _ in range(turns):
        shared_panel.send("send", prompt="hi", preset="p")
        shared_panel.send("stop")
    runs = set()

    def all_done(frame):
        runs.update(e["args"][0] for e in frame.get("events", []) if e["method"] == "agentDone")
        return len(runs) == turns

    shared_panel.wait_frame(all_done, mark, timeout=60)
    shared_panel.prove_alive()
    done = [a for m, a in shared_panel.events_since(mark) if m == "agentDone"]
    assert len(done) == turns
    assert all((ok, error) in ((True, ""), (False, "cancelled")) for _, ok, error in done)


def test_stop_is_not_answered_late_when_the_agent_refuses_to_cancel(shared_panel, shared_agent):
    shared_agent.turn(streams(delta("a")))
    shared_panel.run_turn()
    shared_agent.on[CONSENT] = answers({"ok": False}, status="500 Internal Server Error")
    assert shared_panel.ask("stop", timeout=5 * builds.SLOWER)["ok"] is True
