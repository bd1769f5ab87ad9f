"""Agents that fail, lie, or attack: every turn ends in one "agentDone", and the host goes on."""

import socket

import pytest

from support import builds
from support.memory import peak_mib
from support.scripted_agent import (
    COMPLETIONS, STREAM_HEAD, ScriptedAgent, answers, delta, event_bytes, resets, sends, streams)

FAILED = "agent request failed"
ONE = event_bytes(delta("a"))


def chunks(*pieces):
    return (b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
            + b"".join(b"%x\r\n%s\r\n" % (len(piece), piece) for piece in pieces) + b"0\r\n\r\n")


# name: (handler, ok, error, text)
ANSWERS = {
    "a 204": (sends(b"HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n"), True, "", ""),
    "a reset before the answer": (resets, False, FAILED, None),
    "chunks": (sends(chunks(ONE, ONE)), True, "", "aa"),
    "a cookie": (answers(ONE, headers=[("Set-Cookie", "secret=1; Path=/")]), True, "", "a"),
    "a redirect": (answers(status="307 Elsewhere",
                           headers=[("Location", f"http://127.0.0.1:9099{COMPLETIONS}")]),
                   True, "", ""),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("name", ANSWERS)
def test_an_answer_ends_the_turn_so(shared_panel, shared_agent, name):
    handler, ok, error, text = ANSWERS[name]
    shared_agent.turn(handler)
    with ScriptedAgent(port=9099) as elsewhere:
        turn = shared_panel.run_turn("a secret prompt")
        assert (turn.done, turn.text) == ((ok, error), text)
        assert shared_agent.seen(COMPLETIONS)[-1].header("Cookie") == []
        shared_panel.prove_alive()
        assert elsewhere.exchanges == []


def test_a_stream_that_breaks_off_anywhere_ends_in_one_agent_done(shared_panel, shared_agent):
    whole = STREAM_HEAD + event_bytes(delta("kept")) + event_bytes(delta("é"))
    for kept in range(len(STREAM_HEAD) - 10, len(whole), 11):
        shared_agent.turn(sends(whole[:kept], then_resets=True))
        turn = shared_panel.finish_turn(shared_panel.start_turn())
        # A reset may overtake the bytes before it.
        assert turn.text in ("kept", "", None), kept


ATTACKS = ["x\r\nX-Injected: 1", "x\nX-Injected: 1", "x\0y", "é\u2028", "x\r\n\r\nGET / HTTP/1.1"]


def test_no_text_of_the_panel_leaves_the_body(shared_panel, shared_agent):
    shared_agent.turn(streams("[DONE]"))
    for text in ATTACKS:
        shared_panel.run_turn(text, preset=text, chat_session_id=text)
        exchange = shared_agent.seen(COMPLETIONS)[-1]
        body = exchange.json()
        assert exchange.header("X-Injected") == []
        assert [body["model"], body["session_id"], body["messages"][0]["content"]] == [text] * 3


# --- What has a limit ---

@pytest.mark.linux_side
def test_a_stream_without_a_blank_line_fills_no_memory(panel, shared_agent):
    """64 MiB of one event are taken, no more."""
    shared_agent.turn(streams(*[b"data: " + b"x" * (1 << 20)] * 200))
    before = peak_mib(panel)
    assert panel.run_turn(timeout=90).done == (False, "agent event too large")
    assert peak_mib(panel) - before < (900 if builds.IS_SANITIZED else 300)
    panel.prove_alive()


def test_a_port_that_accepts_and_says_nothing_does_not_hold_up_a_lower_one(panel, shared_agent):
    """A listener whose queue is never served: the connection opens, and that is all."""
    with socket.create_server(("127.0.0.1", 8091)):
        turn = panel.run_turn(timeout=5 * builds.SLOWER)
        assert (turn.done, turn.text) == ((True, ""), "hello")
