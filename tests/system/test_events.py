"""The agent's chat events on their way to the panel, and when the host listens to them.

Which blocks are events, and what of them is passed on, is in the tables of the unit tests.
"""

import json
import random

import pytest

from support import builds
from support.feeding_agent import EVENTS, REALTIME_EVENTS, SPEAK
from support.memory import expect_no_growth, held
from support.scripted_agent import COMPLETIONS, delta


def listen(panel, agent, count=1):
    """Makes the host look for its agent, and gives the stream that it opens then."""
    panel.find_agent()
    return agent.wait_feed(count)


def forwarded(panel, mark=0):
    """Whole events as the panel got them, without log lines."""
    return [event for frame in panel.frames_since(mark) if frame.get("kind") == "hostChatEvents"
            for event in frame["events"] if event["method"] != "appendDebugLog"]


def wait_forwarded(panel, feed, mark=0):
    """All events up to one that the feed sends now."""
    feed.tell("last", [])
    panel.wait_event("last", since=mark)
    events = forwarded(panel, mark)
    assert events[-1] == {"method": "last", "args": []}
    return events[:-1]


# --- The request ---

def test_the_stream_is_asked_for_once_an_agent_is_there(panel, feeding):
    panel.prove_alive()
    assert feeding.exchanges == []
    feed = listen(panel, feeding)
    assert (feed.exchange.method, feed.path) == ("GET", f"{EVENTS}?after=0")
    assert feed.exchange.body == b""
    assert feed.exchange.header("Content-Type") == []
    assert feed.exchange.header("User-Agent") == ["morva-chrome-host"]
    for _ in range(5):
        panel.find_agent()
    assert len(feeding.feeds_of()) == 1


# --- What is forwarded ---

def test_events_are_forwarded_and_other_blocks_passed_over(panel, feeding):
    feed = listen(panel, feeding)
    mark = panel.mark()
    stream = b"\n\n".join([
        b'data: {"method":"m","args":[1,{"a":null}],"id":7,"sender":"w","x":1}', b": ping",
        b"data: {",
        'data: {"method":"ü€😀",\r\ndata: "args":["\\ud83d"]}\r'.encode(), b""])
    for at in range(0, len(stream), 999):
        feed.send(stream[at:at + 999])
    assert wait_forwarded(panel, feed, mark) == [
        {"method": "m", "args": [1, {"a": None}], "id": 7, "sender": "w"},
        {"method": "ü€😀", "args": ["\ufffd"]}]


@pytest.mark.off_protocol("agent")
def test_an_event_does_not_touch_the_turn_that_runs(panel, feeding):
    feed = listen(panel, feeding)

    def turn(exchange):
        exchange.stream(delta("a"))
        feed.tell("agentDone", ["chrome-1", False, "not yours"])
        panel.wait_event("agentDone", lambda args: args[2] == "not yours")
        exchange.more(delta("b"), "[DONE]")

    feeding.on[COMPLETIONS] = turn
    mark = panel.start_turn()
    done = panel.wait_ends(mark, 2)
    assert list(done.values()) == [(False, "not yours"), (True, "")]
    (text,) = [args for method, args in panel.told(mark) if method == "completeAssistantText"]
    assert text[0]["text"] == "ab"


def test_every_event_arrives_once_and_in_order_between_polls(panel, feeding):
    """Polls bring the log lines that wait and nothing else."""
    feed = listen(panel, feeding)
    mark = panel.mark()
    dice = random.Random(1)
    tokens = set()
    for number in range(1000):
        feed.tell("numbered", [number], id=number + 1)
        if dice.random() < 0.2:
            tokens.add(panel.send("poll"))
    assert wait_forwarded(panel, feed, mark) == [
        {"method": "numbered", "args": [number], "id": number + 1} for number in range(1000)]
    panel.prove_alive()
    replies = [f for f in panel.frames_since(mark) if f.get("chromeRequestId") in tokens]
    assert len(replies) == len(tokens)
    for reply in replies:
        assert (reply["kind"], reply["ok"]) == ("hostChatEvents", True)
        assert {event["method"] for event in reply["events"]} <= {"appendDebugLog"}


# --- Whose events, and after which ---

def test_a_sender_named_before_the_agent_is_there_is_asked_for_at_once(panel, feeding):
    reply = panel.ask("chatSender", sender="window 1", after=41)
    del reply["chromeRequestId"]
    assert reply == {"source": "morva-chat", "kind": "chatSender", "ok": True}
    assert feeding.exchanges == []
    assert listen(panel, feeding).path == f"{EVENTS}?after=41&sender=window%201"


def test_naming_a_sender_begins_a_new_stream_and_leaves_the_old_one(panel, feeding):
    old = listen(panel, feeding)
    old.tell("before", [], id=5)
    panel.wait_event("before")
    mark = panel.mark()
    panel.ask("chatSender", sender="a&b=ü", after=3)
    new = feeding.wait_feed(2)
    assert new.path == f"{EVENTS}?after=3&sender=a&b=%C3%BC"
    old.tell("from the old one", [], id=9)
    old.send(b'data: {"method":"its last","args":[]}')
    old.expect_left()
    assert wait_forwarded(panel, new, mark) == []
    new.end()
    assert listen(panel, feeding, 3).path == f"{EVENTS}?after=3&sender=a&b=%C3%BC"


CURSORS = [({}, 0), ({"after": None}, 0), ({"after": -5}, 0), ({"after": 7.9}, 7),
           ({"after": 1 << 53}, 1 << 53), ({"after": (1 << 64) - 1}, (1 << 64) - 1),
           ({"after": 1e300}, 0)]


@pytest.mark.off_protocol("panel")
def test_a_cursor_is_a_number_that_is_not_negative(panel, feeding):
    for number, (keys, after) in enumerate(CURSORS, 1):
        panel.ask("chatSender", **keys)
        assert listen(panel, feeding, number).path == f"{EVENTS}?after={after}", keys


# --- The end of a stream, and the next one ---

def test_a_closed_panel_hears_nothing_more_until_it_asks_again(panel, feeding):
    feed = listen(panel, feeding)
    feed.tell("a", [], id=4)
    panel.wait_event("a")
    mark = panel.mark()
    panel.ask_for_ack("panelClosed")
    feed.tell("b", [], id=5)
    feed.expect_left()
    panel.prove_alive()
    assert forwarded(panel, mark) == []
    assert len(feeding.feeds_of()) == 1
    assert listen(panel, feeding, 2).path == f"{EVENTS}?after=4"


def test_reloading_stops_speech_and_begins_a_new_stream(panel, feeding):
    panel.ask_for_ack("agentReload")
    assert feeding.seen(f"{SPEAK}/stop") == []  # no agent was known
    feed = feeding.wait_feed(1)
    feed.tell("a", [], id=4)
    panel.wait_event("a")
    panel.ask_for_ack("agentReload")
    (stop,) = feeding.seen(f"{SPEAK}/stop")
    assert (stop.method, stop.body) == ("POST", b"{}")
    assert feeding.wait_feed(2).path == f"{EVENTS}?after=4"


ROUNDS = 50 if builds.IS_WINDOWS else 200


def test_beginning_and_ending_again_and_again_leaves_nothing_behind(panel, feeding):
    """No thread, no handle, no event twice; of the voice sessions neither."""
    def rounds(first, count):
        for number in range(first, first + count):
            chat = listen(panel, feeding, number)
            panel.ask_for_ack("realtimeStart")
            voice = feeding.wait_feed(number, REALTIME_EVENTS)
            for feed, method in ((chat, "chat"), (voice, "voice")):
                feed.tell(method, [number], id=number)
            panel.send("realtimeStop")
            panel.ask_for_ack("panelClosed")  # both are left before the agent ends them
            chat.expect_left()
            voice.expect_left()
        panel.prove_alive(60)

    rounds(1, 10)
    before = held(panel)
    rounds(11, ROUNDS - 10)
    expect_no_growth(panel, before)
    told = panel.told()
    for method in ("chat", "voice"):
        numbers = [args[0] for each, args in told if each == method]
        assert numbers == sorted(set(numbers))
    assert told.count(("realtimeDone", [])) == ROUNDS
    assert {method for method, _ in told} <= {"chat", "voice", "realtimeDone"}
    feed = listen(panel, feeding, ROUNDS + 1)
    mark = panel.mark()
    assert wait_forwarded(panel, feed, mark) == []


def test_an_event_too_large_for_the_browser_is_told_of(panel, feeding):
    feed = listen(panel, feeding)
    mark = panel.mark()
    long = [{"text": "ü" * 200_000, "list": list(range(10_000))}]
    feed.tell("long", long)
    feed.tell("huge", ["x" * (2 << 20)], id=3)
    whole, instead = wait_forwarded(panel, feed, mark)
    assert whole == {"method": "long", "args": long}
    assert instead["method"] == "appendText" and instead["args"][0]["role"] == "error"
    assert "huge" in instead["args"][0]["text"]
    assert json.dumps(instead).count("x") < 100
