"""Voice sessions: their start, the agent's events, push-to-talk, and the one end that is told.

The bodies, and what each answer and each end of the stream comes to, are in tables of the unit
tests.
"""

import pytest

from support.scripted_agent import (
    READY, REALTIME_EVENTS, REALTIME_PTT, REALTIME_START, REALTIME_STOP, answers)
from support.tool_server_client import ToolServer

DONE = ("realtimeDone", [])


def start(panel, agent, count=1, **keys):
    panel.ask_for_ack("realtimeStart", **keys)
    return agent.wait_feed(count, REALTIME_EVENTS)


def wait_told(panel, feed, mark=0):
    """All events up to one that the session sends now."""
    feed.tell("last", [])
    panel.wait_event("last", since=mark)
    return panel.told(mark)[:-1]


def test_a_session_from_start_to_stop(panel, agent):
    for kind in ("realtimePushToTalk", "realtimeStop"):
        panel.ask_for_ack(kind)
    assert (agent.exchanges, panel.told()) == ([], [DONE])  # no agent is known
    mark = panel.mark()
    feed = start(panel, agent, preset="p")
    order = [exchange.path for exchange in agent.exchanges]
    assert order.index(REALTIME_START) < order.index(REALTIME_EVENTS)
    assert (feed.exchange.method, feed.exchange.body) == ("GET", b"")
    panel.ask_for_ack("realtimePushToTalk", latched=True)
    agent.on[REALTIME_PTT] = answers(b"", status="500 No")
    panel.ask_for_ack("realtimePushToTalk")
    words = [("realtimeTranscript", ["hello", {"final": number}]) for number in range(1000)]
    for method, args in words:
        feed.tell(method, args, id=3, sender="s")
    assert wait_told(panel, feed, mark) == words
    mark = panel.mark()
    token = panel.send("realtimeStop")
    panel.wait_frame(lambda f: f.get("chromeRequestId") == token, mark)
    assert panel.told(mark) == [DONE]  # before the ack
    bodies = [(e.method, e.path, e.header("Content-Type"), e.body) for e in agent.exchanges
              if e.path in (REALTIME_START, REALTIME_PTT, REALTIME_STOP)]
    assert bodies == [
        ("POST", path, ["application/json"], body) for path, body in [
            (REALTIME_START, b'{"acquire_timeout_ms":1500,"mic_send":true,"preset":"p"}'),
            (REALTIME_PTT, b'{"finishInputTurn":false,"held":true,"latched":true}'),
            (REALTIME_PTT, b'{"finishInputTurn":false,"held":true,"latched":false}'),
            (REALTIME_STOP, b"{}")]]


@pytest.mark.off_protocol("panel")
def test_a_start_stores_the_tab(panel, agent):
    start(panel, agent, browser={"currentUrl": "https://a.example/", "currentTitle": "A"})
    start(panel, agent, 2, browser=[1])
    answer = ToolServer(panel).request("GET", "/api/agent-tools/context", origin=None)
    assert "https://a.example/" in answer.json()["prompt"]


def test_a_start_that_fails_is_told_and_over(panel, agent):
    agent.on[REALTIME_START] = answers({"ok": False, "error": "no microphone"})
    panel.ask_for_ack("realtimeStart")
    agent.on[READY] = answers({"ready": False})
    panel.ask_for_ack("realtimeStart")
    panel.prove_alive()
    assert panel.told() == [
        ("realtimeError", ["no microphone"]), DONE,
        ("realtimeError", ["morva-viewer-cli.exe is not on PATH"]), DONE]
    assert agent.feeds_of(REALTIME_EVENTS) == []


@pytest.mark.parametrize("says_done", [True, False])
def test_a_stop_tells_the_end_exactly_once(panel, agent, says_done):
    """Whatever the agent says of it itself."""
    feed = start(panel, agent)

    def stop(exchange):
        if says_done:
            feed.tell("realtimeDone", [])
            feed.end()
        exchange.answer({"ok": True})

    agent.on[REALTIME_STOP] = stop
    mark = panel.mark()
    panel.ask_for_ack("realtimeStop")
    feed.tell("realtimeTranscript", ["too late"])
    feed.expect_left()
    assert wait_told(panel, start(panel, agent, 2), mark) == [DONE]


@pytest.mark.parametrize("kind", ["realtimeStart", "panelClosed", "agentReload"])
def test_a_session_is_left_without_a_word(panel, agent, kind):
    feed = start(panel, agent)
    mark = panel.mark()
    panel.ask_for_ack(kind)
    feed.tell("realtimeDone", [])
    feed.expect_left()
    second = agent.wait_feed(2, REALTIME_EVENTS) if kind == "realtimeStart" else start(
        panel, agent, 2)
    assert wait_told(panel, second, mark) == []
