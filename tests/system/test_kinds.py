"""The table of kinds: what each is answered with, in the order of the messages.

Which argument must be of which type is in a table of the unit tests.
"""

import itertools

import pytest

from support.panel_side import ACK
from support.scripted_agent import ScriptedAgent, agent_event, delta, streams

# Acknowledged, and nothing else happens.
ACKNOWLEDGED = ["ready", "chatWebState", "requestContext", "hostLog", "getStatus",
                "", "noSuchKind", "Send", "send ", "stop\0", None]


@pytest.mark.off_protocol("panel")
def test_some_kinds_are_only_acknowledged(shared_panel):
    mark = shared_panel.mark()
    for kind in ACKNOWLEDGED:
        shared_panel.ask_for_ack(kind, argument=5, text="x", level="error")
    shared_panel.host.send({"source": "morva-chat"})
    shared_panel.ask_for_ack("browserSnapshot", browser={"currentUrl": "https://a/"})
    assert shared_panel.frames_since(mark)[-2] == ACK  # without a kind and without a token
    assert shared_panel.told(mark) == []


@pytest.mark.off_protocol("panel")
def test_what_cannot_be_read_is_refused_in_the_shape_of_its_replies(shared_panel):
    mark = shared_panel.mark()
    error = "[json.exception.type_error.302] type must be string, but is number"
    for message, kind in (({"kind": 5}, "ack"), ({"kind": "providerRpc", "method": 5},
                                                 "hostProviderRpc")):
        reply = shared_panel.ask(**message)
        assert (reply["kind"], reply["ok"], reply["error"]) == (kind, False, error)
    reply = shared_panel.ask("send", prompt="")
    assert (reply["kind"], reply["ok"], reply["error"]) == ("error", False, "empty prompt")
    assert shared_panel.told(mark) == []  # no turn has begun


def test_stop_without_a_known_agent_asks_nobody(panel):
    with ScriptedAgent(port=8091) as agent:
        panel.ask_for_ack("stop")
        assert agent.exchanges == []


def test_replies_come_one_each_in_the_order_of_the_messages(panel):
    """Also those to messages that have arrived when the input ends."""
    kinds = ["getStatus", "poll", "browserSnapshot", "stop", "noSuchKind", "providerRpc"]
    tokens = [panel.send(kind) for _, kind in itertools.product(range(200), kinds)]
    panel.wait_frame(lambda f: f.get("chromeRequestId") == tokens[-1], timeout=60)
    tokens += [panel.send("getStatus") for _ in range(500)]
    panel.end(alive=False)
    assert [f["chromeRequestId"] for f in panel.frames_since(0) if "chromeRequestId" in f] == tokens


# --- Frames that the browser would not take ---

LIMIT = 1_048_576
BIG = 1_200_000
OVERSIZED = agent_event("consent", payload="x" * BIG)


def largest(panel, mark):
    return max(len(body) for body in panel.host.bodies[mark:])


def test_long_texts_are_split_between_characters(shared_panel, shared_agent):
    text = "x" + "é\x01" * (BIG // 4)
    shared_agent.turn(streams(delta(text), agent_event("thinking", text=text), agent_event(
        "tool_file_progress", id="r", chunk=text, stream="stderr")))
    mark = shared_panel.mark()
    turn = shared_panel.run_turn(timeout=40)
    assert LIMIT - 32 < largest(shared_panel, mark) <= LIMIT
    for method, piece_of in (("appendAssistantDelta", lambda a: a[0]["delta"]),
                             ("appendThinking", lambda a: a[0]["text"]),
                             ("appendRunChunk", lambda a: a[1])):
        pieces = [piece_of(args) for args in turn.args_of(method)]
        assert len(pieces) == 3 and "".join(pieces) == text, method
    assert turn.done == (True, "")


def test_any_other_event_that_is_too_large_becomes_an_error_line(shared_panel, shared_agent):
    shared_agent.turn(streams(OVERSIZED, *[delta("x" * 100_000)] * 20))
    mark = shared_panel.mark()
    turn = shared_panel.run_turn(timeout=40)
    assert largest(shared_panel, mark) <= LIMIT
    assert turn.done == (True, "") and turn.text is None
    lines = [line for (line,) in turn.args_of("appendText")]
    for line, method in zip(lines, ("consentRequest", "completeAssistantText"), strict=True):
        assert line["role"] == "error"
        assert line["text"].startswith(f"event {method} left out: too large for the browser (")


@pytest.mark.off_protocol("panel")
def test_a_reply_that_is_too_large_becomes_a_refusal(shared_panel):
    empty = len('{"chromeRequestId":"","kind":"ack","ok":true,"source":"morva-chat"}')
    for size, fits in ((LIMIT - empty, True), (LIMIT - empty + 1, False)):
        mark = shared_panel.mark()
        shared_panel.send("getStatus", chromeRequestId="x" * size)
        reply = shared_panel.wait_frame(lambda f: f.get("kind") == "ack", mark)
        assert (reply["ok"], largest(shared_panel, mark) == LIMIT) == (fits, fits)
    assert reply == {**ACK, "ok": False,
                     "error": f"reply too large for the browser ({LIMIT + 1} bytes)"}


@pytest.mark.parametrize("args, means_a_browser", [
    ([], False), (["chrome-extension:/x"], False), (["https://a/"], False),
    (["Chrome-extension://x/"], False), ([""], False),
    (["--parent-window=0", "chrome-extension://x/"], True)])
def test_only_an_origin_as_an_argument_means_a_browser(start_panel, args, means_a_browser):
    panel = start_panel(args=args)
    panel.send("getStatus", chromeRequestId="x" * BIG)
    reply = panel.wait_frame(lambda f: f.get("kind") == "ack")
    assert reply["ok"] is not means_a_browser
