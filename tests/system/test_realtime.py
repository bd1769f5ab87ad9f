"""Voice sessions: their start, the agent's events, push-to-talk, and the one end that is told.

The bodies, and what each answer and each end of the stream comes to, are in tables of the unit
tests.
"""

import json
import urllib.request

import pytest

from support.feeding_agent import (
    REALTIME_EVENTS, REALTIME_PTT, REALTIME_START, REALTIME_STOP)
from support.scripted_agent import READY, answers

DONE = ("realtimeDone", [])


def start(panel, agent, count=1, **keys):
    panel.ask_for_ack("realtimeStart", **keys)
    return agent.wait_feed(count, REALTIME_EVENTS)


def wait_told(panel, feed, mark=0):
    """All events up to one that the session sends now."""
    feed.tell("last", [])
    panel.wait_event("last", since=mark)
    return panel.told(mark)[:-1]


def test_a_session_from_start_to_stop(panel, feeding):
    panel.ask_for_ack("realtimePushToTalk")
    assert feeding.exchanges == []  # no agent is known
    feed = start(panel, feeding, preset="p")
    order = [exchange.path for exchange in feeding.exchanges]
    assert order.index(REALTIME_START) < order.index(REALTIME_EVENTS)
    assert (feed.exchange.method, feed.exchange.body) == ("GET", b"")
    panel.ask_for_ack("realtimePushToTalk", latched=True)
    feeding.on[REALTIME_PTT] = answers(b"", status="500 No")
    panel.ask_for_ack("realtimePushToTalk")
    words = [("realtimeTranscript", ["hello", {"final": number}]) for number in range(1000)]
    for method, args in words:
        feed.tell(method, args, id=3, sender="s")
    assert wait_told(panel, feed) == words
    mark = panel.mark()
    token = panel.send("realtimeStop")
    panel.wait_frame(lambda f: f.get("chromeRequestId") == token, mark)
    assert panel.told(mark) == [DONE]  # before the ack
    bodies = [(e.method, e.path, e.header("Content-Type"), e.body) for e in feeding.exchanges
              if e.path in (REALTIME_START, REALTIME_PTT, REALTIME_STOP)]
    assert bodies == [
        ("POST", path, ["application/json"], body) for path, body in [
            (REALTIME_START, b'{"acquire_timeout_ms":1500,"mic_send":true,"preset":"p"}'),
            (REALTIME_PTT, b'{"finishInputTurn":false,"held":true,"latched":true}'),
            (REALTIME_PTT, b'{"finishInputTurn":false,"held":true,"latched":false}'),
            (REALTIME_STOP, b"{}")]]


@pytest.mark.off_protocol("panel")
def test_a_start_stores_the_tab(panel, feeding):
    start(panel, feeding, browser={"currentUrl": "https://a.example/", "currentTitle": "A"})
    start(panel, feeding, 2, browser=[1])
    tools = panel.ask("contextImportUrl")
    request = urllib.request.Request(
        tools["url"].replace("context-file", "agent-tools/context"),
        headers={"X-Morva-Session": tools["token"]})
    with urllib.request.urlopen(request, timeout=10) as answer:
        assert "https://a.example/" in json.load(answer)["prompt"]


def test_a_start_that_fails_is_told_and_over(panel, feeding):
    feeding.on[REALTIME_START] = answers({"ok": False, "error": "no microphone"})
    panel.ask_for_ack("realtimeStart")
    feeding.on[READY] = answers({"ready": False})
    panel.ask_for_ack("realtimeStart")
    panel.prove_alive()
    assert panel.told() == [
        ("realtimeError", ["no microphone"]), DONE,
        ("realtimeError", ["morva-viewer-cli.exe is not on PATH"]), DONE]
    assert feeding.feeds_of(REALTIME_EVENTS) == []


# --- The stop ---

def test_a_stop_without_an_agent_still_tells_the_end(panel):
    panel.ask_for_ack("realtimeStop")
    assert panel.told() == [DONE]


@pytest.mark.parametrize("agents_word", ["says done", "only ends", "stays"])
def test_a_stop_tells_the_end_exactly_once(panel, feeding, agents_word):
    feed = start(panel, feeding)
    assert wait_told(panel, feed) == []

    def stop(exchange):
        if agents_word == "says done":
            feed.tell("realtimeDone", [])
        if agents_word != "stays":
            feed.end()
        exchange.answer({"ok": True})

    feeding.on[REALTIME_STOP] = stop
    mark = panel.mark()
    panel.ask_for_ack("realtimeStop")
    feed.tell("realtimeTranscript", ["too late"])
    feed.expect_left()
    assert wait_told(panel, start(panel, feeding, 2), mark) == [DONE]


@pytest.mark.parametrize("kind", ["realtimeStart", "panelClosed", "agentReload"])
def test_a_session_is_left_without_a_word(panel, feeding, kind):
    feed = start(panel, feeding)
    mark = panel.mark()
    panel.ask_for_ack(kind)
    feed.tell("realtimeDone", [])
    feed.expect_left()
    second = feeding.wait_feed(2, REALTIME_EVENTS) if kind == "realtimeStart" else start(
        panel, feeding, 2)
    assert wait_told(panel, second, mark) == []
