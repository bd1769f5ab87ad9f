"""Agents that fail, lie, or attack: every turn ends in one "agentDone", and the host goes on."""

import pytest

from support import builds
from support.memory import peak_mib
from support.scripted_agent import (
    COMPLETIONS, READY, STREAM_HEAD, ScriptedAgent, answers, delta, event_bytes, streams)

FAILED = "agent request failed"


def sends(data):
    """Sends bytes as they are and ends the connection."""
    return lambda exchange: exchange.send(data)


def sends_and_resets(data):
    def handler(exchange):
        exchange.send(data)
        exchange.reset()

    return handler


def body_of(text, status="200 OK"):
    return (f"HTTP/1.1 {status}\r\nContent-Type: text/event-stream\r\n"
            f"Content-Length: {len(text)}\r\n\r\n{text}").encode()


ONE = event_bytes(delta("a")).decode()

# name: (handler, ok, error, text)
ANSWERS = {
    "an empty 200": (answers(), True, "", ""),
    "a 200 without a length": (sends(b"HTTP/1.1 200 OK\r\n\r\n"), True, "", ""),
    "a 201 with text": (sends(body_of(ONE, "201 Created")), True, "", "a"),
    "a 204": (sends(b"HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n"), True, "", ""),
    "a 399": (answers(status="399 Odd"), True, "", ""),
    "a 400": (answers(status="400 Bad Request"), False, FAILED, None),
    "a 404 with JSON": (answers({"ok": False}, status="404 Not Found"), False, FAILED, None),
    "a 500": (answers(b"data: [DONE]\n\n", status="500 Oops"), False, FAILED, None),
    "a 500 that gives text": (sends(body_of(ONE, "500 Oops")), True, "", "a"),
    "a 503 with an error event": (
        answers(b'data: {"error":"busy"}\n\n', status="503 Busy"), False, FAILED, None),
    "a 401 is no reason to log on": (
        answers(status="401 No", headers=[("WWW-Authenticate", "NTLM"),
                                          ("WWW-Authenticate", "Negotiate")]),
        False, FAILED, None),
    "a hang-up before the answer": (sends(b""), False, FAILED, None),
    "a reset before the answer": (sends_and_resets(b""), False, FAILED, None),
    "a hang-up in the status line": (sends(b"HTTP/1."), False, FAILED, None),
    "no HTTP": (sends(b"SSH-2.0-OpenSSH\r\n"), False, FAILED, None),
    "chunks": (sends(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                     + b"%x\r\n%s\r\n" % (len(ONE), ONE.encode())
                     + b"%x\r\n%s\r\n0\r\n\r\n" % (len(ONE), ONE.encode())),
               True, "", "aa"),
    "a content length and no more": (sends(body_of(ONE) + b"HTTP/1.1 200 OK\r\n"),
                                     True, "", "a"),
    "many headers": (
        lambda exchange: exchange.answer(
            ONE.encode(), headers=[(f"X-{n}", "v" * 100) for n in range(200)]), True, "", "a"),
    "a header of 30,000 bytes": (
        answers(ONE.encode(), headers=[("X", "v" * 30_000)]), True, "", "a"),
    "cookies": (answers(ONE.encode(), headers=[("Set-Cookie", "a=b; Path=/")]), True, "", "a"),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("name", ANSWERS)
def test_an_answer_ends_the_turn_so(shared_panel, shared_agent, name):
    handler, ok, error, text = ANSWERS[name]
    shared_agent.turn(handler)
    turn = shared_panel.run_turn()
    assert (turn.done, turn.text) == ((ok, error), text)


@pytest.mark.off_protocol("agent")
def test_no_cookie_is_kept(shared_panel, shared_agent):
    shared_agent.turn(answers(b"", headers=[("Set-Cookie", "secret=1; Path=/")]))
    shared_panel.run_turn()
    shared_agent.turn(streams("[DONE]"))
    shared_panel.run_turn()
    assert shared_agent.seen(COMPLETIONS)[-1].header("Cookie") == []


@pytest.mark.parametrize("status", ["301", "302", "303", "307", "308"])
def test_a_redirect_is_not_followed(shared_panel, shared_agent, status):
    with ScriptedAgent(port=9099) as elsewhere:
        shared_agent.turn(answers(
            status=f"{status} Elsewhere",
            headers=[("Location", "http://127.0.0.1:9099/v1/chat/completions")]))
        turn = shared_panel.run_turn("a secret prompt")
        assert turn.done == (True, "")  # an ordinary status below 400
        shared_panel.prove_alive()
        assert elsewhere.exchanges == []


def test_text_before_a_drop_makes_the_turn_a_success(shared_panel, shared_agent):
    shared_agent.turn(sends_and_resets(STREAM_HEAD + event_bytes(delta("kept"))))
    turn = shared_panel.run_turn()
    # A reset may overtake the bytes before it.
    assert turn.text in ("kept", "", None)
    assert len(turn.args_of("agentDone")) == 1


HEADER_ATTACKS = [
    "x\r\nX-Injected: 1", "x\nX-Injected: 1", "x\0y", "é\u2028", "x\r\n\r\nGET / HTTP/1.1"]


@pytest.mark.parametrize("text", HEADER_ATTACKS)
@pytest.mark.parametrize("key", ["prompt", "preset", "chat_session_id"])
def test_no_text_of_the_panel_leaves_the_body(shared_panel, shared_agent, key, text):
    shared_agent.turn(streams("[DONE]"))
    shared_panel.run_turn(**{"prompt": "hi", key: text})
    exchange = shared_agent.seen(COMPLETIONS)[-1]
    assert exchange.path == COMPLETIONS
    assert exchange.header("X-Injected") == []
    assert text in [exchange.json()["model"], exchange.json()["session_id"],
                    exchange.json()["messages"][0]["content"]]


# --- "/ready" ---

READY_ANSWERS = {
    "ready": (answers({"ready": True}), True),
    "an empty object": (answers({}), True),
    "more keys": (answers({"status": "x", "ready": True}), True),
    "not ready": (answers({"ready": False}), False),
    "ready is a text": (answers({"ready": "true"}), False),
    "ready is null": (answers({"ready": None}), False),
    "ready is 1": (answers({"ready": 1}), False),
    "an array": (answers([]), False),
    "no JSON": (answers(b"OK"), False),
    "nothing": (answers(b""), False),
    "a byte that is no UTF-8": (answers(b'{"\xff":1}'), False),
    "200,000 levels": (answers(b"[" * 20_000 + b"]" * 20_000), False),
    "a 503": (answers({"ready": True}, status="503 Busy"), False),
    "a 204": (answers(b"", status="204 Nothing"), False),
    "a redirect": (answers({"ready": True}, status="302 Found",
                           headers=[("Location", "http://127.0.0.1:8090/ready2")]), False),
    "a hang-up": (lambda exchange: None, False),
    "no HTTP": (sends(b"220 mail ready\r\n"), False),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("name", READY_ANSWERS)
def test_an_agent_counts_as_ready_when_it_says_so(start_panel, shared_agent, name):
    handler, ready = READY_ANSWERS[name]
    shared_agent.on[READY] = handler
    shared_agent.on["/ready2"] = answers({"ready": True})
    panel = start_panel()
    turn = panel.run_turn()
    assert turn.done == (
        (True, "") if ready else (False, "morva-viewer-cli.exe is not on PATH"))
    panel.end()


def test_an_endless_ready_answer_is_cut_off(start_panel, shared_agent):
    def endless(exchange):
        exchange.send(b"HTTP/1.1 200 OK\r\n\r\n")
        for _ in range(100_000):
            exchange.send(b'{"ready":true}' + b" " * 65536)

    shared_agent.on[READY] = endless
    panel = start_panel()
    before = peak_mib(panel)
    assert panel.run_turn().done == (False, "morva-viewer-cli.exe is not on PATH")
    assert peak_mib(panel) - before < (200 if builds.IS_SANITIZED else 40)
    panel.end()
