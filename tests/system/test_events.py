"""The agent's chat events on their way to the panel, and when the host listens to them."""

import itertools
import json
import random
import time

import psutil
import pytest

from support import builds
from support.feeding_agent import EVENTS, FeedingAgent, SPEAK, feed_bytes
from support.scripted_agent import COMPLETIONS, answers, delta, streams


@pytest.fixture
def feeding():
    with FeedingAgent() as agent:
        yield agent


def listen(panel, agent, count=1):
    """Makes the host look for its agent, and gives the stream that it opens then."""
    assert panel.ask("providerRpc", method="commandEventsSubscribe")["ok"] is True
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
        panel.ask("providerRpc", method="commandEventsSubscribe")
    assert len(feeding.feeds_of()) == 1
    panel.end()


def test_twenty_at_once_open_one_stream(panel, feeding):
    feeding.on[SPEAK] = answers({"ok": True})
    mark = panel.mark()
    for _ in range(20):
        panel.send("speak", text="a")
        panel.send("providerRpc", method="commandEventsSubscribe")
    panel.wait_frame(lambda _: len(
        [m for m, _ in panel.events_since(mark) if m == "ttsDone"]) == 20, mark)
    panel.prove_alive()
    feeding.wait_feed(1).end()
    for _ in range(20):
        panel.send("speak", text="a")
    panel.wait_frame(lambda _: len(
        [m for m, _ in panel.events_since(mark) if m == "ttsDone"]) == 40, mark)
    feed = feeding.wait_feed(2)
    feed.tell("only once", [1])
    assert wait_forwarded(panel, feed, mark)[-1] == {"method": "only once", "args": [1]}
    assert len(feeding.feeds_of()) == 2
    panel.end()


# --- What is forwarded ---

BLOCKS = {
    "an event": (b'data: {"method":"m","args":[1,{"a":null}]}',
                 {"method": "m", "args": [1, {"a": None}]}),
    "with id and sender": (b'data: {"method":"m","args":[],"id":7,"sender":"w","x":1}',
                           {"method": "m", "args": [], "id": 7, "sender": "w"}),
    "an id of any type": (b'data: {"method":"m","args":[],"id":{"a":1}}',
                          {"method": "m", "args": [], "id": {"a": 1}}),
    "a null id": (b'data: {"method":"m","args":[],"id":null}',
                  {"method": "m", "args": [], "id": None}),
    "an empty sender": (b'data: {"method":"m","args":[],"sender":""}',
                        {"method": "m", "args": [], "sender": ""}),
    "a sender that is no text": (b'data: {"method":"m","args":[],"sender":5}',
                                 {"method": "m", "args": []}),
    "no blank": (b'data:{"method":"m","args":[]}', {"method": "m", "args": []}),
    "two data lines, joined without separator": (
        b'data: {"method":"a\ndata: b","args":[]}', {"method": "ab", "args": []}),
    "other lines": (b'event: e\n: c\nid: 5\ndata: {"method":"m",\nretry: 1\ndata:"args":[]}',
                    {"method": "m", "args": []}),
    "carriage returns": (b'event: e\r\ndata: {"method":"m",\r\ndata: "args":[]}\r',
                         {"method": "m", "args": []}),
    "any characters": ('data: {"method":"ü€😀","args":["\\ud83d"]}'.encode(),
                       {"method": "ü€😀", "args": ["\ufffd"]}),
    "a turn's own event": (b'data: {"method":"agentDone","args":["chrome-1",true,""]}',
                           {"method": "agentDone", "args": ["chrome-1", True, ""]}),
    "a question": (b'data: {"method":"consentRequest","args":[{"id":"c"}]}',
                   {"method": "consentRequest", "args": [{"id": "c"}]}),
    "args that are an object": (b'data: {"method":"m","args":{}}', None),
    "args that are a text": (b'data: {"method":"m","args":"[]"}', None),
    "no args": (b'data: {"method":"m"}', None),
    "null args": (b'data: {"method":"m","args":null}', None),
    "no method": (b'data: {"args":[]}', None),
    "an empty method": (b'data: {"method":"","args":[]}', None),
    "a method that is no text": (b'data: {"method":5,"args":[]}', None),
    "no object": (b"data: [1]", None),
    "null": (b"data: null", None),
    "no JSON": (b'data: {"method":"m","args":[]', None),
    "not UTF-8": (b'data: {"method":"\xff","args":[]}', None),
    "too deep": (b"data: " + b"[" * 100_000, None),
    "no data": (b": ping", None),
    "empty data": (b"data:\ndata: ", None),
    "nothing": (b"", None),
    "another field": (b'Data: {"method":"m","args":[]}', None),
}


def test_each_block_is_forwarded_or_passed_over(panel, feeding):
    feed = listen(panel, feeding)
    mark = panel.mark()
    for block, _ in BLOCKS.values():
        feed.send(block + b"\n\n")
    wanted = [event for _, event in BLOCKS.values() if event is not None]
    assert wait_forwarded(panel, feed, mark) == wanted
    panel.end()


@pytest.mark.parametrize("size", [1, 2, 7])
def test_events_arrive_however_the_bytes_are_cut(panel, feeding, size):
    feed = listen(panel, feeding)
    mark = panel.mark()
    some = [entry for name, entry in BLOCKS.items() if name != "too deep"]
    stream = b"".join(block + b"\n\n" for block, _ in some)
    for at in range(0, len(stream), size):
        feed.send(stream[at:at + size])
    assert wait_forwarded(panel, feed, mark) == [event for _, event in some if event is not None]
    panel.end()


def test_blocks_that_end_in_cr_lf_are_no_blocks_until_one_ends_in_lf_lf(panel, feeding):
    feed = listen(panel, feeding)
    mark = panel.mark()
    feed.send(b'data: {"method":"a","args":[]}\r\n\r\ndata: {"method":"b","args":[]}\r\n\n')
    assert wait_forwarded(panel, feed, mark) == []  # one block, whose data is no JSON
    mark = panel.mark()
    feed.send(b'data: {"method":"c",\r\n\r\ndata: "args":[]}\r\n\n')
    assert wait_forwarded(panel, feed, mark) == [{"method": "c", "args": []}]
    panel.end()


def test_the_last_block_needs_no_blank_line(panel, feeding):
    feed = listen(panel, feeding)
    mark = panel.mark()
    feed.send(b'data: {"method":"unfinished","args":[]}')
    feed.end()
    panel.wait_event("unfinished", since=mark)
    panel.end()


def test_an_event_does_not_touch_the_turn_that_runs(panel, feeding):
    feed = listen(panel, feeding)

    def turn(exchange):
        exchange.stream(delta("a"))
        feed.tell("agentDone", ["chrome-1", False, "not yours"])
        panel.wait_event("agentDone", lambda args: args[2] == "not yours")
        exchange.more(delta("b"), "[DONE]")

    feeding.on[COMPLETIONS] = turn
    mark = panel.mark()
    panel.send("send", prompt="hi", preset="plain")
    panel.wait_event("agentDone", lambda args: args[1] is True, since=mark)
    done = [args for method, args in panel.events_since(mark) if method == "agentDone"]
    assert [args[1:] for args in done] == [[False, "not yours"], [True, ""]]
    text = [args for method, args in panel.events_since(mark) if method == "completeAssistantText"]
    assert text[0][0]["text"] == "ab"
    panel.end()


def test_every_event_arrives_once_and_in_order_between_polls(panel, feeding):
    feed = listen(panel, feeding)
    mark = panel.mark()
    dice = random.Random(1)
    tokens = set()
    for number in range(1000):
        feed.tell("numbered", [number], id=number + 1)
        if dice.random() < 0.2:
            tokens.add(panel.send("poll"))
    tokens.add(panel.send("poll"))
    panel.wait_event("numbered", lambda args: args == [999], since=mark)
    panel.prove_alive()
    replies = [f for f in panel.frames_since(mark) if f.get("chromeRequestId") in tokens]
    assert len(replies) == len(tokens)
    for reply in replies:
        assert (reply["kind"], reply["ok"]) == ("hostChatEvents", True)
    numbers = [event["args"][0] for event in forwarded(panel, mark)]
    assert numbers == list(range(1000))
    panel.end()


def test_poll_gives_the_log_lines_that_wait_and_no_others(panel, feeding):
    listen(panel, feeding)
    panel.prove_alive()
    reply = panel.ask("poll")
    assert (reply["kind"], reply["ok"], reply["source"]) == ("hostChatEvents", True, "morva-chat")
    assert {event["method"] for event in reply["events"]} <= {"appendDebugLog"}
    panel.end()


# --- Whose events, and after which ---

def test_a_sender_named_before_the_agent_is_there_is_asked_for_at_once(panel, feeding):
    reply = panel.ask("chatSender", sender="window 1", after=41)
    del reply["chromeRequestId"]
    assert reply == {"source": "morva-chat", "kind": "chatSender", "ok": True}
    assert feeding.exchanges == []
    assert listen(panel, feeding).path == f"{EVENTS}?after=41&sender=window%201"
    panel.end()


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
    if builds.IS_WINDOWS:
        old.end()  # the system does not wake a reader whose request is closed
    assert old.closed.wait(5)
    assert wait_forwarded(panel, new, mark) == []
    new.end()
    assert listen(panel, feeding, 3).path == f"{EVENTS}?after=3&sender=a&b=%C3%BC"
    panel.ask("chatSender")
    assert feeding.wait_feed(4).path == f"{EVENTS}?after=0"
    panel.end()


CURSORS = {"missing": ({}, 0), "null": ({"after": None}, 0), "negative": ({"after": -5}, 0),
           "a fraction": ({"after": 7.9}, 7), "large": ({"after": 1 << 53}, 1 << 53),
           "out of range": ({"after": 1e300}, 0)}


@pytest.mark.off_protocol("panel")
def test_a_cursor_is_a_number_that_is_not_negative(panel, feeding):
    for number, (keys, after) in enumerate(CURSORS.values(), 1):
        panel.ask("chatSender", **keys)
        feed = listen(panel, feeding, number)
        assert feed.path == f"{EVENTS}?after={after}"
    for keys in ({"after": "5"}, {"after": [5]}, {"sender": 5}):
        assert panel.ask("chatSender", **keys)["ok"] is False
    assert len(feeding.feeds_of()) == len(CURSORS)
    panel.end()


# --- The end of a stream, and the next one ---

def test_the_next_stream_goes_on_after_the_last_number(panel, feeding):
    feed = listen(panel, feeding)
    feed.tell("a", [], id=17)
    feed.tell("b", [], id="not a number")
    feed.tell("c", [])
    panel.wait_event("c")
    feed.end()
    assert listen(panel, feeding, 2).path == f"{EVENTS}?after=17"
    panel.end()


ENDINGS = {
    "closed at once": lambda exchange: None,
    "reset": lambda exchange: exchange.reset(),
    "refused": answers({"ok": False}, status="404 Not Found"),
    "empty": streams(),
    "one event": streams({"method": "e", "args": [], "id": 1}),
}


@pytest.mark.parametrize("ending", ENDINGS)
def test_a_stream_that_ends_at_once_is_asked_for_no_more_often_than_the_agent(
    panel, feeding, ending
):
    feeding.on[EVENTS] = ENDINGS[ending]
    for count in range(1, 6):
        panel.ask("providerRpc", method="commandEventsSubscribe")
        time.sleep(0.05)
        asked = [e for e in feeding.exchanges if e.path.startswith(EVENTS)]
        assert len(asked) <= count
    time.sleep(1.0)
    asked = [e for e in feeding.exchanges if e.path.startswith(EVENTS)]
    assert 1 <= len(asked) <= 5
    panel.end()


def test_a_closed_panel_hears_nothing_more_until_it_asks_again(panel, feeding):
    feed = listen(panel, feeding)
    feed.tell("a", [], id=4)
    panel.wait_event("a")
    mark = panel.mark()
    assert panel.ask("panelClosed")["ok"] is True
    feed.tell("b", [], id=5)
    if builds.IS_WINDOWS:
        feed.end()
    assert feed.closed.wait(5)
    panel.prove_alive()
    assert forwarded(panel, mark) == []
    assert len(feeding.feeds_of()) == 1
    assert listen(panel, feeding, 2).path == f"{EVENTS}?after=4"
    panel.end()


def test_reloading_stops_speech_and_begins_a_new_stream(panel, feeding):
    feed = listen(panel, feeding)
    feed.tell("a", [], id=4)
    panel.wait_event("a")
    reply = panel.ask("agentReload")
    assert (reply["kind"], reply["ok"]) == ("ack", True)
    (stop,) = feeding.seen(f"{SPEAK}/stop")
    assert (stop.method, stop.body) == ("POST", b"{}")
    assert feeding.wait_feed(2).path == f"{EVENTS}?after=4"
    panel.end()


def test_reloading_without_a_known_agent_only_looks_for_one(panel, feeding):
    assert panel.ask("agentReload")["ok"] is True
    assert feeding.seen(f"{SPEAK}/stop") == []
    feeding.wait_feed(1)
    panel.end()


@pytest.mark.parametrize("answer", ["silent", "no header"])
def test_an_open_stream_does_not_hold_up_the_end(panel, feeding, answer):
    if answer == "no header":
        feeding.on[EVENTS] = lambda exchange: exchange.hold()
    panel.ask("providerRpc", method="commandEventsSubscribe")
    feeding.wait_for(f"{EVENTS}?after=0")
    panel.end(limit=1.0)


ROUNDS = 50 if builds.IS_WINDOWS else 1000


def test_beginning_and_ending_a_thousand_times_leaves_nothing_behind(panel, feeding):
    """No thread, no handle, no event twice."""
    host = psutil.Process(panel.pid)

    def rounds(first, count):
        for number in range(first, first + count):
            feed = listen(panel, feeding, number)
            feed.tell("numbered", [number], id=number)
            panel.send("panelClosed")
            if builds.IS_WINDOWS:
                feed.end()
        panel.prove_alive(60)
        assert all(feed.closed.wait(10) for feed in feeding.feeds_of())
        time.sleep(0.5)

    rounds(1, 10)
    before = (host.num_threads(), host.num_fds())
    rounds(11, ROUNDS - 10)
    after = (host.num_threads(), host.num_fds())
    assert after[0] <= before[0] + 4 and after[1] <= before[1] + 8, (before, after)
    numbers = [event["args"][0] for event in forwarded(panel)]
    assert numbers == sorted(set(numbers))
    feed = listen(panel, feeding, ROUNDS + 1)
    mark = panel.mark()
    assert wait_forwarded(panel, feed, mark) == []
    panel.end()


def test_a_long_event_is_one_event(panel, feeding):
    feed = listen(panel, feeding)
    mark = panel.mark()
    args = [{"text": "ü" * 200_000, "list": list(range(10_000))}]
    feed.tell("long", args)
    assert wait_forwarded(panel, feed, mark) == [{"method": "long", "args": args}]
    panel.end()


def test_an_event_too_large_for_the_browser_is_told_of(panel, feeding):
    feed = listen(panel, feeding)
    mark = panel.mark()
    feed.send(feed_bytes("huge", ["x" * (2 << 20)], id=3))
    (event,) = wait_forwarded(panel, feed, mark)
    assert event["method"] == "appendText" and event["args"][0]["role"] == "error"
    assert "huge" in event["args"][0]["text"]
    assert json.dumps(event).count("x") < 100
    panel.end()


def test_streams_of_several_panels_do_not_mix(start_panel, feeding):
    first, second = start_panel(), start_panel()
    feeds = [listen(panel, feeding, number) for number, panel in enumerate((first, second), 1)]
    for number, feed in itertools.product(range(20), feeds):
        feed.tell("numbered", [feeds.index(feed), number])
    for index, panel in enumerate((first, second)):
        events = wait_forwarded(panel, feeds[index])
        assert [e["args"] for e in events] == [[index, number] for number in range(20)]
        panel.end()
