"""The agent's chat events on their way to the panel, and when the host listens to them.

Which blocks are events, and what of them is passed on, is in the tables of the unit tests.
"""

import random

import pytest

from support.scripted_agent import COMPLETIONS, EVENTS, SPEAK, delta


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

def test_the_stream_is_asked_for_once_an_agent_is_there(panel, agent):
    panel.prove_alive()
    assert agent.exchanges == []
    feed = listen(panel, agent)
    assert (feed.exchange.method, feed.path) == ("GET", f"{EVENTS}?after=0")
    assert feed.exchange.body == b""
    assert feed.exchange.header("Content-Type") == []
    assert feed.exchange.header("User-Agent") == ["morva-chrome-host"]
    for _ in range(5):
        panel.find_agent()
    assert len(agent.feeds_of()) == 1


# --- What is forwarded ---

def test_events_are_forwarded_and_other_blocks_passed_over(panel, agent):
    feed = listen(panel, agent)
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
def test_an_event_does_not_touch_the_turn_that_runs(panel, agent):
    feed = listen(panel, agent)

    def turn(exchange):
        exchange.stream(delta("a"))
        feed.tell("agentDone", ["chrome-1", False, "not yours"])
        panel.wait_event("agentDone", lambda args: args[2] == "not yours")
        exchange.more(delta("b"), "[DONE]")

    agent.on[COMPLETIONS] = turn
    mark = panel.start_turn()
    done = panel.wait_ends(mark, 2)
    assert list(done.values()) == [(False, "not yours"), (True, "")]
    (text,) = [args for method, args in panel.told(mark) if method == "completeAssistantText"]
    assert text[0]["text"] == "ab"


def test_every_event_arrives_once_and_in_order_between_polls(panel, agent):
    """Polls bring the log lines that wait and nothing else."""
    feed = listen(panel, agent)
    mark = panel.mark()
    dice = random.Random(1)
    polls = []
    for number in range(1000):
        feed.tell("numbered", [number], id=number + 1)
        if dice.random() < 0.2:
            polls.append(panel.send("poll"))
    assert wait_forwarded(panel, feed, mark) == [
        {"method": "numbered", "args": [number], "id": number + 1} for number in range(1000)]
    panel.prove_alive()
    replies = [f for f in panel.frames_since(mark) if f.get("chromeRequestId") in polls]
    assert [f["chromeRequestId"] for f in replies] == polls
    assert {(f["kind"], f["ok"]) for f in replies} == {("hostChatEvents", True)}
    assert {event["method"] for f in replies for event in f["events"]} <= {"appendDebugLog"}


# --- Whose events, and after which ---

# What is named, and the query of the stream that is asked for.
SENDERS = [({"sender": "window 1", "after": 41}, "?after=41&sender=window%201"),
           ({}, "?after=0"), ({"after": None}, "?after=0"), ({"after": -5}, "?after=0"),
           ({"after": 7.9}, "?after=7"), ({"after": 1e300}, "?after=0"),
           ({"after": (1 << 64) - 1}, f"?after={(1 << 64) - 1}")]


@pytest.mark.off_protocol("panel")
def test_a_stream_is_asked_for_by_the_sender_and_after_the_cursor_last_named(panel, agent):
    for number, (keys, query) in enumerate(SENDERS, 1):
        reply = panel.ask("chatSender", **keys)
        del reply["chromeRequestId"]
        assert reply == {"source": "morva-chat", "kind": "chatSender", "ok": True}
        assert number > 1 or agent.exchanges == []
        assert listen(panel, agent, number).path == EVENTS + query, keys


def test_naming_a_sender_begins_a_new_stream_and_leaves_the_old_one(panel, agent):
    old = listen(panel, agent)
    old.tell("before", [], id=5)
    panel.wait_event("before")
    mark = panel.mark()
    panel.ask("chatSender", sender="a&b=ü", after=3)
    new = agent.wait_feed(2)
    assert new.path == f"{EVENTS}?after=3&sender=a&b=%C3%BC"
    old.tell("from the old one", [], id=9)
    old.send(b'data: {"method":"its last","args":[]}')
    old.expect_left()
    assert wait_forwarded(panel, new, mark) == []
    new.end()
    assert listen(panel, agent, 3).path == f"{EVENTS}?after=3&sender=a&b=%C3%BC"


# --- The end of a stream, and the next one ---

def test_a_reload_begins_a_new_stream_and_a_closed_panel_hears_nothing_until_it_asks(panel, agent):
    panel.ask_for_ack("agentReload")
    assert agent.seen(f"{SPEAK}/stop") == []  # no agent was known
    agent.wait_feed().tell("a", [], id=4)
    panel.wait_event("a")
    panel.ask_for_ack("agentReload")
    assert [(each.method, each.body) for each in agent.seen(f"{SPEAK}/stop")] == [("POST", b"{}")]
    feed = agent.wait_feed(2)
    assert feed.path == f"{EVENTS}?after=4"
    mark = panel.mark()
    panel.ask_for_ack("panelClosed")
    feed.tell("b", [], id=5)
    feed.expect_left()
    panel.prove_alive()
    assert (forwarded(panel, mark), len(agent.feeds_of())) == ([], 2)
    assert listen(panel, agent, 3).path == f"{EVENTS}?after=4"
