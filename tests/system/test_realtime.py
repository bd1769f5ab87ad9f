"""Voice sessions: their start, the agent's events, push-to-talk, and the one end that is told."""

import json
import time
import urllib.request

import psutil
import pytest

from support import builds
from support.feeding_agent import FeedingAgent, REALTIME_EVENTS
from support.scripted_agent import READY, answers, delta, holds, streams

START = "/v1/realtime/start"
STOP = "/v1/realtime/stop"
PTT = "/v1/realtime/ptt"

DONE = ("realtimeDone", [])
NO_AGENT = "morva-viewer-cli.exe is not on PATH"


@pytest.fixture
def feeding():
    with FeedingAgent() as agent:
        yield agent


def events(panel, mark=0):
    return [event for event in panel.events_since(mark) if event[0] != "appendDebugLog"]


def ask(panel, kind, **keys):
    """A voice message; its ack is the same in every case."""
    reply = panel.ask(kind, timeout=40, **keys)
    del reply["chromeRequestId"]
    assert reply == {"source": "morva-chat", "kind": "ack", "ok": True}


def start(panel, agent, count=1, **keys):
    ask(panel, "realtimeStart", **keys)
    return agent.wait_feed(count, REALTIME_EVENTS)


# --- The requests ---

BODIES = {
    "nothing": ({}, {}),
    "texts": ({"preset": "p", "chat_session_id": "c ü"}, {"preset": "p", "chat_session_id": "c ü"}),
    "empty texts": ({"preset": "", "chat_session_id": None}, {}),
    "numbers of ours": ({"mic_send": False, "acquire_timeout_ms": 20},
                        {"mic_send": False, "acquire_timeout_ms": 20}),
    "wrong types": ({"mic_send": 1, "acquire_timeout_ms": "9", "preset": 5,
                     "chat_session_id": [1]}, {}),
    "out of range": ({"acquire_timeout_ms": 1e300}, {}),
}


@pytest.mark.off_protocol("panel")
def test_a_start_posts_what_the_panel_gave_and_defaults(panel, feeding):
    for keys, own in BODIES.values():
        mark = len(feeding.seen(START))
        ask(panel, "realtimeStart", **keys)
        (request,) = feeding.seen(START)[mark:]
        wanted = {"mic_send": True, "acquire_timeout_ms": 1500, **own}
        assert request.body == json.dumps(
            wanted, sort_keys=True, separators=(",", ":"), ensure_ascii=False).encode()
        assert (request.method, request.header("Content-Type")) == ("POST", ["application/json"])
    panel.end()


def test_the_events_are_asked_for_after_the_start(panel, feeding):
    feed = start(panel, feeding)
    assert (feed.exchange.method, feed.path, feed.exchange.body) == ("GET", REALTIME_EVENTS, b"")
    assert feed.exchange.header("User-Agent") == ["morva-chrome-host"]
    order = [exchange.path for exchange in feeding.exchanges]
    assert order.index(START) < order.index(REALTIME_EVENTS)
    panel.end()


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
    panel.end()


KEYS = {
    "no flags": ({}, b'{"finishInputTurn":false,"held":true,"latched":false}'),
    "all flags": ({"held": False, "latched": True, "finishInputTurn": True},
                  b'{"finishInputTurn":true,"held":false,"latched":true}'),
    "null": ({"held": None}, b'{"finishInputTurn":false,"held":true,"latched":false}'),
}


@pytest.mark.off_protocol("panel")
def test_push_to_talk_is_passed_on_once_an_agent_is_known(panel, feeding):
    ask(panel, "realtimePushToTalk")
    assert feeding.exchanges == []
    start(panel, feeding)
    for number, (keys, body) in enumerate(KEYS.values()):
        ask(panel, "realtimePushToTalk", **keys)
        request = feeding.seen(PTT)[number]
        assert (request.method, request.body) == ("POST", body)
    assert panel.ask("realtimePushToTalk", held="yes")["ok"] is False
    assert len(feeding.seen(PTT)) == len(KEYS)
    feeding.on[PTT] = answers(b"", status="500 No")
    ask(panel, "realtimePushToTalk")
    panel.end()


# --- Failures of a start ---

START_FAILURES = {
    "ok false": (answers({"ok": False, "error": "no microphone"}), "no microphone"),
    "ok false without a text": (answers({"ok": False}), "realtime start failed"),
    "an empty error": (answers({"ok": False, "error": ""}), "realtime session failed"),
    "an error of another type": (answers({"ok": False, "error": 5}), "realtime start failed"),
    "ok of another type": (answers({"ok": 1}), "realtime start failed"),
    "an empty body": (answers(b""), "realtime start failed"),
    "no JSON": (answers(b"{"), "realtime start failed"),
    "no object": (answers([True]), "realtime start failed"),
    "another status": (answers({"ok": True}, status="500 No"), "realtime start failed"),
    "a redirect": (answers({"ok": True}, status="302 Found",
                           headers=[("Location", "http://127.0.0.1:8091/")]),
                   "realtime start failed"),
    "a closed connection": (lambda exchange: None, "agent request failed"),
    "half an answer": (
        lambda exchange: exchange.send(b"HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n{"), None),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("failure", START_FAILURES)
def test_a_start_that_fails_is_told_and_over(panel, feeding, failure):
    feeding.on[START], text = START_FAILURES[failure]
    ask(panel, "realtimeStart")
    panel.prove_alive()
    if text is None:  # cut off: the system under the Windows build may not tell
        text = events(panel)[0][1][0]
        assert text in ("agent response truncated", "realtime start failed")
    assert events(panel) == [("realtimeError", [text]), DONE]
    assert feeding.feeds_of(REALTIME_EVENTS) == []
    panel.end()


def test_a_start_without_an_agent_is_told_and_over(panel, feeding):
    feeding.on[READY] = answers({"ready": False})
    ask(panel, "realtimeStart")
    panel.prove_alive()
    assert events(panel) == [("realtimeError", [NO_AGENT]), DONE]
    panel.end()


def test_another_success_status_starts_a_session(panel, feeding):
    feeding.on[START] = answers({"ok": True}, status="201 Created")
    start(panel, feeding)
    panel.end()


# --- Failures of the stream ---

CLOSED = "agent request failed"
STREAM_ENDS = {
    "in order": (streams(), [DONE]),
    "after events": (streams({"method": "a", "args": [1]}), [("a", [1]), DONE]),
    "with an unfinished block": (streams(b'data: {"method":"a","args":[]}'), [("a", []), DONE]),
    "with its own end": (streams({"method": "realtimeDone", "args": ["x"]}),
                         [("realtimeDone", ["x"])]),
    "with its own end, unfinished": (streams(b'data: {"method":"realtimeDone","args":[]}'),
                                     [DONE]),
    "with an error and an end": (
        streams({"method": "realtimeError", "args": ["e"]}, {"method": "realtimeDone", "args": []}),
        [("realtimeError", ["e"]), DONE]),
    "another status": (answers(b"", status="500 No"),
                       [("realtimeError", ["realtime session failed"]), DONE]),
    "another status with its own end": (
        answers(b'data: {"method":"realtimeDone","args":[]}', status="404 Not Found"), [DONE]),
    "no answer": (lambda exchange: None, [("realtimeError", [CLOSED]), DONE]),
    "what is no event": (streams("{", "[1]", {"method": "", "args": []}, {"method": "a"},
                                 {"method": "b", "args": {}}), [DONE]),
    "carriage returns": (streams(b'data: {"method":"a",\r\ndata: "args":[]}\r\n\n'),
                         [("a", []), DONE]),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("ending", STREAM_ENDS)
def test_the_end_of_the_stream_is_told_exactly_once(panel, feeding, ending):
    feeding.on[REALTIME_EVENTS], wanted = STREAM_ENDS[ending]
    ask(panel, "realtimeStart")
    panel.wait_event("realtimeDone")
    panel.prove_alive()
    time.sleep(0.1)
    panel.prove_alive()
    assert events(panel) == wanted
    panel.end()


def test_a_status_of_failure_with_no_end_in_sight_is_still_a_session(panel, feeding):
    """The verdict on the status comes with the end of the stream."""
    feed = start(panel, feeding)
    feed.tell("realtimeTranscript", ["hello", {"final": True}], id=3, sender="s")
    panel.wait_event("realtimeTranscript", lambda args: args == ["hello", {"final": True}])
    assert events(panel) == [("realtimeTranscript", ["hello", {"final": True}])]
    panel.end()


# --- The stop ---

def test_a_stop_without_an_agent_still_tells_the_end(panel):
    ask(panel, "realtimeStop")
    assert events(panel) == [DONE]
    panel.end()


@pytest.mark.parametrize("agents_word", ["says done", "only ends", "stays"])
def test_a_stop_tells_the_end_exactly_once(panel, feeding, agents_word):
    feed = start(panel, feeding)
    feed.tell("realtimeTranscript", ["a"])
    panel.wait_event("realtimeTranscript")

    def stop(exchange):
        if agents_word == "says done":
            feed.tell("realtimeDone", [])
        if agents_word != "stays":
            feed.end()
        exchange.answer({"ok": True})

    feeding.on[STOP] = stop
    mark = panel.mark()
    ask(panel, "realtimeStop")
    (request,) = feeding.seen(STOP)
    assert (request.method, request.body) == ("POST", b"{}")
    feed.tell("realtimeTranscript", ["too late"])
    if builds.IS_WINDOWS:
        feed.end()
    assert feed.closed.wait(5)
    time.sleep(0.1)
    panel.prove_alive()
    assert events(panel, mark) == [DONE]
    panel.end()


def test_the_end_comes_before_the_ack_of_the_stop(panel, feeding):
    start(panel, feeding)
    mark = panel.mark()
    token = panel.send("realtimeStop")
    panel.wait_frame(lambda f: f.get("chromeRequestId") == token, mark)
    assert events(panel, mark) == [DONE]
    panel.end()


def test_a_new_session_replaces_the_old_one_without_a_word(panel, feeding):
    first = start(panel, feeding)
    mark = panel.mark()
    second = start(panel, feeding, 2)
    first.tell("old", [])
    if builds.IS_WINDOWS:
        first.end()
    assert first.closed.wait(5)
    second.tell("new", [])
    panel.wait_event("new")
    assert events(panel, mark) == [("new", [])]
    ask(panel, "realtimeStop")
    assert events(panel, mark) == [("new", []), DONE]
    panel.end()


@pytest.mark.parametrize("kind", ["panelClosed", "agentReload"])
def test_a_closed_panel_or_a_reload_ends_the_session_without_a_word(panel, feeding, kind):
    feed = start(panel, feeding)
    mark = panel.mark()
    assert panel.ask(kind)["ok"] is True
    feed.tell("realtimeDone", [])
    if builds.IS_WINDOWS:
        feed.end()
    assert feed.closed.wait(5)
    panel.prove_alive()
    assert events(panel, mark) == []
    panel.end()


@pytest.mark.off_protocol("agent")
def test_a_session_does_not_touch_the_turn_that_runs(panel, feeding):
    feed = start(panel, feeding)
    feeding.turn(streams(delta("a"), "[DONE]"))
    feed.tell("agentDone", ["x", False, "not yours"])
    panel.wait_event("agentDone")
    mark = panel.mark()
    assert panel.run_turn("hi").done == (True, "")
    assert [e for e in events(panel, mark) if e[0] == "realtimeDone"] == []
    panel.end()


@pytest.mark.parametrize("path", [START, REALTIME_EVENTS, STOP, PTT])
def test_an_agent_that_stalls_does_not_hold_up_the_end(panel, feeding, path):
    feeding.on[path] = holds
    panel.send("realtimeStart")
    feeding.wait_for(START)
    if path != START:
        feeding.wait_for(REALTIME_EVENTS)
        panel.send({STOP: "realtimeStop"}.get(path, "realtimePushToTalk"))
        feeding.wait_for(path)
    panel.end(alive=False, limit=1.0)


def test_an_event_keeps_its_place_behind_others(panel, feeding):
    feed = start(panel, feeding)
    for number in range(1000):
        feed.tell("numbered", [number])
    panel.wait_event("numbered", lambda args: args == [999])
    assert events(panel) == [("numbered", [number]) for number in range(1000)]
    panel.end()


ROUNDS = 50 if builds.IS_WINDOWS else 1000


def test_starting_and_stopping_a_thousand_times_leaves_nothing_behind(panel, feeding):
    host = psutil.Process(panel.pid)

    def rounds(first, count):
        for number in range(first, first + count):
            feed = start(panel, feeding, number)
            feed.tell("numbered", [number])
            ask(panel, "realtimeStop")
            if builds.IS_WINDOWS:
                feed.end()
        assert all(feed.closed.wait(10) for feed in feeding.feeds_of(REALTIME_EVENTS))
        time.sleep(0.5)

    rounds(1, 10)
    before = (host.num_threads(), host.num_fds())
    rounds(11, ROUNDS - 10)
    after = (host.num_threads(), host.num_fds())
    assert after[0] <= before[0] + 4 and after[1] <= before[1] + 8, (before, after)
    seen = events(panel)
    numbers = [args[0] for method, args in seen if method == "numbered"]
    assert numbers == sorted(set(numbers))
    assert seen.count(DONE) == ROUNDS
    assert {method for method, _ in seen} <= {"numbered", "realtimeDone"}
    panel.end()
