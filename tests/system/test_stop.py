"""Stopping turns: in the stream, before it, and when there is nothing to stop."""

import threading

import pytest

from support import builds
from support.memory import expect_no_growth, held
from support.scripted_agent import (
    COMPLETIONS, CONSENT, MODELS, PROVIDERS, READY, delta, streams, streams_then_holds)

CANCELLED = (False, "cancelled")


def test_stop_in_the_stream_ends_the_turn_as_cancelled(shared_panel, shared_agent):
    usage = {"choices": [{"delta": {"content": "text"}}], "usage": {"total_tokens": 1}}
    shared_agent.turn(streams_then_holds(usage))
    mark = shared_panel.start_turn(until="appendAssistantDelta")
    asked = len(shared_agent.seen(CONSENT))
    shared_panel.ask_for_ack("stop")
    turn = shared_panel.finish_turn(mark)
    assert turn.done == CANCELLED
    assert turn.text is None and turn.args_of("setTurnLlmUsage") == []
    (request,) = shared_agent.seen(CONSENT)[asked:]
    assert (request.method, request.body) == ("POST", b'{"cancel":true}')
    assert request.header("Content-Type") == ["application/json"]


def test_a_stop_reaches_only_the_turns_before_it(shared_panel, shared_agent):
    shared_agent.turn(streams_then_holds(delta("a")))
    shared_panel.stop_turn(shared_panel.start_turn(until="appendAssistantDelta"))
    shared_agent.turn(streams(delta("fine")))
    for _ in range(5):
        assert shared_panel.run_turn().text == "fine"
        shared_panel.send("stop")


@pytest.mark.linux_side
@pytest.mark.off_protocol("agent")
def test_broken_and_overlapping_turns_leave_nothing_open(shared_panel, shared_agent):
    def rounds(count):
        for _ in range(count):
            shared_agent.turn(streams(delta("a"), "{broken"))
            assert shared_panel.run_turn().done[0] is False
            shared_panel.ask_for_ack("stop")
            shared_agent.turn(streams(delta("fine"), "[DONE]"))
            ends = shared_panel.wait_ends(shared_panel.start_turn(5), 5)
            assert set(ends.values()) == {(True, "")}

    rounds(10)
    before = held(shared_panel.pid)
    rounds(10)
    expect_no_growth(shared_panel, before)


@pytest.mark.parametrize("path", [READY, PROVIDERS, MODELS, COMPLETIONS])
def test_a_stop_ends_a_turn_at_once_whatever_it_asks_for(shared_panel, shared_agent, path):
    """The agent does not answer before the turn has ended."""
    answers_then, took = shared_agent.on[path], []
    completions = len(shared_agent.seen(COMPLETIONS))
    for _ in range(3):
        go_on = threading.Event()

        def blocks(exchange, go_on=go_on):
            assert go_on.wait(20)
            answers_then(exchange)

        shared_agent.on[path] = blocks
        asked = len(shared_agent.seen(path))
        mark = shared_panel.start_turn(preset="")
        exchange = shared_agent.wait_for(path, asked + 1)
        took.append(shared_panel.stop_turn(mark))
        go_on.set()
        assert exchange.finished.wait(20)
    shared_agent.on[path] = answers_then
    shared_agent.turn(streams("[DONE]"))
    assert shared_panel.run_turn().done == (True, "")
    asked = len(shared_agent.seen(COMPLETIONS)) - completions
    assert asked == (4 if path == COMPLETIONS else 1)
    assert min(took) <= 0.3 * builds.SLOWER, took


def test_stop_reaches_all_turns_that_run(shared_panel, shared_agent):
    shared_agent.turn(streams_then_holds(delta("a")))
    mark = shared_panel.mark()
    for session in "abcd":
        shared_panel.start_turn(chat_session_id=session, until=None)
    for session in "abcd":
        shared_panel.wait_event("appendAssistantDelta",
                                lambda a, s=session: a[0]["chatSessionId"] == s, mark)
    shared_panel.ask_for_ack("stop")
    assert list(shared_panel.wait_ends(mark, 4).values()) == [CANCELLED] * 4


def test_many_stops_beside_many_turns_leave_one_end_each(shared_panel, shared_agent):
    shared_agent.turn(streams(*(delta("word ") for _ in range(50)), "[DONE]"))
    mark = shared_panel.mark()
    for _ in range(30):
        shared_panel.start_turn(until=None)
        shared_panel.send("stop")
    assert set(shared_panel.wait_ends(mark, 30).values()) <= {(True, ""), CANCELLED}
