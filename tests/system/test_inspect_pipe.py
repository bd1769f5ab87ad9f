"""Local programs reach the extension through the inspect pipe, one after another."""

import contextlib
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

from support import builds
from support.panel_side import compact, exit_limit_seconds

from devkit.panel.frames import frame
from devkit.panel.pipe_client import PipeClient

TIMEOUT = {"code": "TIMEOUT", "message": "Extension did not respond in time"}
MIB = 1 << 20


@pytest.fixture
def connect():
    with contextlib.ExitStack() as clients:
        yield lambda **options: clients.enter_context(
            PipeClient(builds.BUILD, builds.wine_prefix(), **options))


def pipe_error(code, message, request_id="unknown"):
    return {"ok": False, "protocolVersion": 1, "requestId": request_id, "type": "error",
            "error": {"code": code, "message": message}}


NOT_WAITED_FOR = pipe_error(**TIMEOUT)


def request(request_id, **keys):
    return {"command": "pipe", "requestId": request_id, **keys}


def answer_requests(panel, make_answer, count=1):
    """The extension's side: answers the next `count` relayed requests, which come back as a list
    when its thread is joined."""
    seen = []

    def work():
        for _ in range(count):
            seen.append(panel.wait_frame(
                lambda f: isinstance(f, dict) and f.get("requestId") and f not in seen, 0, 60))
            panel.host.send(make_answer(seen[-1]))

    thread = threading.Thread(target=work, daemon=True)
    thread.start()
    return thread, seen


def large_answer(asked):
    return {"ok": True, "requestId": asked["requestId"], "text": "y" * (3 * MIB)}


def test_request_and_answer_pass_unchanged_for_each_of_many_clients(panel, connect):
    asked = [request(f"n{number}", protocolVersion=1, nested={"a": [1, 2.5, "\u20ac", None, True]})
             for number in range(5)]

    def answer(frame):
        return {"ok": False, "requestId": frame["requestId"], "deep": [{"x": None}],
                "text": "h\u00e9 \U0001f600"}

    def ask(frame):
        with connect() as client:
            return client.ask(frame)

    answering, seen = answer_requests(panel, answer, len(asked))
    with ThreadPoolExecutor(5) as threads:
        assert list(threads.map(ask, asked)) == [answer(frame) for frame in asked]
    answering.join(60)
    assert sorted(seen, key=lambda frame: frame["requestId"]) == asked


@pytest.mark.off_protocol("pipe client")
def test_a_request_without_an_id_is_forwarded_and_not_waited_for(panel, connect):
    began = time.monotonic()
    for asked in ({"command": "pipe", "requestId": 5}, [1, "x"], None, {}):
        panel.relayed.append(asked)
        client = connect()
        assert (client.ask(asked) if asked != {} else client.ask_raw(bytes(4))) == NOT_WAITED_FOR
        panel.wait_frame(lambda frame, wanted=asked: frame == wanted)
    assert time.monotonic() - began < 15


# Frames that are refused at once: the error's code and text, and the id that it names.
REFUSED = [
    ((16 * MIB + 1).to_bytes(4, "little"), "INVALID_REQUEST", "frame too large", "unknown"),
    (b"\x02\0\0\0{x", "INVALID_REQUEST", "parse error", "unknown"),
    *((frame(compact(request(each))), "INVALID_REQUEST", "requestId begins as the host's own do",
       each) for each in ("cht-", "cht-" + "x" * 5000)),
    (frame(compact(request("large", text="x" * (MIB + 1)))), "EXTENSION_UNAVAILABLE",
     "Chrome extension channel is unavailable", "large"),
]


@pytest.mark.off_protocol("pipe client")
def test_what_cannot_be_forwarded_is_refused_and_the_next_client_served(panel, connect):
    for data, code, text, request_id in REFUSED:
        answer = connect().ask_raw(data)
        assert text in answer["error"]["message"]
        assert answer == pipe_error(code, answer["error"]["message"], request_id)
    assert connect().ask({"command": "pipe"}) == NOT_WAITED_FOR
    assert panel.wait_frame(lambda f: "command" in f) == {"command": "pipe"}


@pytest.mark.off_protocol("pipe client")
def test_clients_that_leave_early_harm_nobody(panel, connect):
    for data in (b"", b"\1", b"\4\0\0\0", b"\4\0\0\0{}"):
        client = connect()
        if data:
            client.send_raw(data)
        client.close()
    for answered in (True, False):
        client = connect()
        client.send(request("left"))
        panel.wait_frame(lambda f: f.get("requestId") == "left")
        client.close()
        began = time.monotonic()
        if answered:
            panel.host.send({"ok": True, "requestId": "left"})  # for nobody
        assert connect().ask({"command": "pipe"}) == NOT_WAITED_FOR
        assert time.monotonic() - began < 5 * builds.SLOWER  # 15 s are waited for an answer


def test_an_answer_that_came_before_its_request_is_given_at_once(panel, connect):
    panel.host.send({"ok": True, "requestId": "early", "n": 1})
    panel.prove_alive()
    assert connect().ask(request("early")) == {"ok": True, "requestId": "early", "n": 1}


@pytest.mark.linux_side
def test_large_requests_and_answers(start_panel, connect):
    panel = start_panel(args=[])  # not started by a browser, whose frames are limited
    text = "x" * (16 * MIB - 200)
    answering, seen = answer_requests(panel, large_answer)
    answer = connect().ask(request("large", text=text), timeout=100)
    answering.join(60)
    assert len(answer["text"]) == 3 * MIB
    assert seen[0]["text"] == text


@pytest.mark.parametrize("busy", ["silent", "inside a frame", "waiting"])
def test_the_end_of_the_host_does_not_wait_for_a_client(panel, connect, busy):
    client = connect()
    if busy == "inside a frame":
        client.send_raw(b"\4\0\0\0")
    if busy == "waiting":
        client.send(request("waits"))
        panel.wait_frame(lambda f: f.get("requestId") == "waits")
    panel.end(limit=exit_limit_seconds() * 3)


@pytest.mark.off_protocol("pipe client")
def test_a_second_host_works_without_the_pipe(start_panel, connect):
    first = start_panel()
    connect().close()  # served by the first one
    second = start_panel()
    for ended in (second, first):
        assert connect().ask({"command": "pipe"}) == NOT_WAITED_FOR
        first.wait_frame(lambda f: f.get("command") == "pipe")
        assert not [f for f in second.frames_since(0) if f.get("command") == "pipe"]
        ended.end()


@pytest.mark.long
def test_an_extension_that_does_not_answer_in_time(panel, connect):
    began = time.monotonic()
    assert connect().ask(request("slow")) == pipe_error(**TIMEOUT, request_id="slow")
    assert 14.5 < time.monotonic() - began < 40
    panel.host.send({"ok": True, "requestId": "slow", "late": True})
    panel.prove_alive()
    assert connect().ask(request("slow")) == {"ok": True, "requestId": "slow", "late": True}


@pytest.mark.off_protocol("pipe client")
@pytest.mark.long
@pytest.mark.parametrize("says_nothing", [True, False])
def test_clients_that_say_nothing_or_take_nothing_make_room(start_panel, connect, says_nothing):
    panel = start_panel(args=[])
    stuck = connect(hold=not says_nothing)
    if not says_nothing:
        answering, _ = answer_requests(panel, large_answer)
        stuck.send(request("greedy"))
        stuck.finish()
        answering.join(60)
    began = time.monotonic()
    assert connect().ask({"command": "pipe"}) == NOT_WAITED_FOR  # waits until it is served
    assert 25 < time.monotonic() - began < 75
