"""Local programs reach the extension through the inspect pipe, one after another."""

import threading
import time

import pytest

from support import builds
from support.panel_side import exit_limit_seconds

from devkit.panel.pipe_client import PipeClient

TIMEOUT = {"code": "TIMEOUT", "message": "Extension did not respond in time"}
MIB = 1 << 20


@pytest.fixture
def connect():
    clients = []

    def start(**options):
        prefix = builds.wine_prefix() if builds.IS_WINDOWS else None
        clients.append(PipeClient(builds.BUILD, prefix, **options))
        return clients[-1]

    yield start
    for client in clients:
        client.close()


def pipe_error(code, message, request_id="unknown"):
    return {"ok": False, "protocolVersion": 1, "requestId": request_id, "type": "error",
            "error": {"code": code, "message": message}}


def invalid(message):
    return pipe_error("INVALID_REQUEST", message)


def answer_requests(panel, make_answer, count, timeout=60):
    """The extension's side: answers the next `count` relayed requests."""
    seen = []

    def work():
        mark = 0
        for _ in range(count):
            frame = panel.wait_frame(
                lambda f: (isinstance(f, dict) and f.get("command") == "pipe"
                           and f.get("requestId") and f not in seen),
                mark, timeout)
            seen.append(frame)
            panel.host.send(make_answer(frame))

    thread = threading.Thread(target=work, daemon=True)
    thread.start()
    return thread, seen


def echo(request):
    return {"ok": True, "requestId": request["requestId"], "echo": request}


def request(request_id, **keys):
    return {"command": "pipe", "requestId": request_id, **keys}


def test_passes_request_and_answer_through_unchanged(panel, connect):
    answering, seen = answer_requests(panel, lambda f: {
        "ok": False, "requestId": f["requestId"], "deep": [{"x": None}],
        "text": "h\u00e9 \U0001f600"}, 1)
    asked = request("r-1", protocolVersion=1, nested={"a": [1, 2.5, "\u20ac", None, True]})
    answer = connect().ask(asked)
    answering.join(20)
    assert seen == [asked]
    assert answer == {
        "ok": False, "requestId": "r-1", "deep": [{"x": None}], "text": "h\u00e9 \U0001f600"}
    panel.end()


def test_serves_many_one_after_another(panel, connect):
    count = 15
    answering, seen = answer_requests(panel, echo, count)
    for number in range(count):
        with connect() as client:
            asked = request(f"n{number}")
            assert client.ask(asked)["echo"] == asked
    answering.join(20)
    assert len(seen) == count
    panel.end()


def test_clients_at_once_each_get_their_own_answer(panel, connect):
    count = 6
    answering, _ = answer_requests(panel, echo, count)
    answers = {}

    def work(number):
        with connect() as client:
            answers[number] = client.ask(request(f"at once {number}"))

    threads = [threading.Thread(target=work, args=(n,)) for n in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    answering.join(20)
    assert {n: a["requestId"] for n, a in answers.items()} == {
        n: f"at once {n}" for n in range(count)}
    panel.end()


@pytest.mark.off_protocol("pipe client")
@pytest.mark.parametrize("keys", [
    {}, {"requestId": ""}, {"requestId": 5}, {"requestId": None}, {"requestId": ["a"]}], ids=str)
def test_a_request_without_an_id_is_forwarded_and_not_waited_for(panel, connect, keys):
    asked = {"command": "pipe", **keys}
    began = time.monotonic()
    assert connect().ask(asked) == pipe_error(**TIMEOUT)
    assert time.monotonic() - began < 10
    assert panel.wait_frame(lambda f: f.get("command") == "pipe") == asked
    panel.end()


@pytest.mark.off_protocol("pipe client")
@pytest.mark.parametrize("value", [[], [1, "x"], 5, "text", None, True], ids=str)
def test_a_request_that_is_no_object_is_forwarded_too(panel, connect, value):
    panel.relayed.append(value)
    assert connect().ask(value) == pipe_error(**TIMEOUT)
    panel.wait_frame(lambda f: f == value)
    panel.end()


@pytest.mark.off_protocol("pipe client")
def test_an_empty_frame_is_an_empty_object(panel, connect):
    panel.relayed.append({})
    assert connect().ask_raw(bytes(4)) == pipe_error(**TIMEOUT)
    panel.wait_frame(lambda f: f == {})
    panel.end()


BAD_FRAMES = {
    "too large": ((16 * MIB + 1).to_bytes(4, "little"), "frame too large"),
    "not JSON": (b"\x02\0\0\0{x", "parse error"),
    "not UTF-8": (b"\x04\0\0\0\"\xff\"\n", "parse error"),
    "too deep": ((5000).to_bytes(4, "little") + b"[" * 5000, "json nested too deeply"),
}


@pytest.mark.off_protocol("pipe client")
@pytest.mark.parametrize("name", BAD_FRAMES)
def test_a_frame_that_is_none_is_refused(panel, connect, name):
    data, text = BAD_FRAMES[name]
    answer = connect().ask_raw(data)
    assert text in answer["error"]["message"]
    assert answer == invalid(answer["error"]["message"])
    assert connect().ask({"command": "pipe"}) == pipe_error(**TIMEOUT)
    panel.end()


@pytest.mark.off_protocol("pipe client")
def test_clients_that_leave_early_harm_nobody(panel, connect):
    for data in (b"", b"\1", b"\4\0\0\0", b"\4\0\0\0{}"):
        client = connect()
        if data:
            client.send_raw(data)
        client.close()
    client = connect()
    client.send(request("left"))
    panel.wait_frame(lambda f: f.get("requestId") == "left")
    client.close()
    panel.host.send({"ok": True, "requestId": "left"})  # for a client that is not there any more
    assert connect().ask({"command": "pipe"}) == pipe_error(**TIMEOUT)
    panel.end()


@pytest.mark.posix_only
def test_a_thousand_hostile_frames(panel, connect):
    bodies = [b"", b"{", b"[]", b"\xff" * 9, b'{"requestId":1}', b'{"requestId":"\\ud800"}',
              b"[" * 2000, b'{"a":1e999}', b"nul", b'"' + b"\\" * 7]
    for number in range(1000):
        body = bodies[number % len(bodies)]
        if body and not body.startswith((b"[]", b'{"r')):
            with connect() as client:
                client.send_raw(len(body).to_bytes(4, "little") + body)
                assert client.read()["error"]["code"] == "INVALID_REQUEST"
        else:
            connect().close()
    answering, _ = answer_requests(panel, echo, 1)
    assert connect().ask(request("good"))["requestId"] == "good"
    answering.join(20)
    panel.end()


def test_an_answer_that_came_before_its_request_is_given_at_once(panel, connect):
    panel.host.send({"ok": True, "requestId": "early", "n": 1})
    panel.prove_alive()
    assert connect().ask(request("early")) == {"ok": True, "requestId": "early", "n": 1}
    panel.end()


def test_large_requests_and_answers(start_panel, connect):
    panel = start_panel(args=[])  # not started by a browser, whose frames are limited
    text = "x" * (16 * MIB - 200)
    answering, seen = answer_requests(
        panel, lambda f: {"ok": True, "requestId": f["requestId"], "text": "y" * (3 * MIB)}, 1)
    answer = connect().ask(request("large", text=text), timeout=100)
    answering.join(60)
    assert len(answer["text"]) == 3 * MIB
    assert seen[0]["text"] == text
    panel.end()


def test_a_request_that_the_browser_would_not_take(panel, connect):
    answer = connect().ask(request("large", text="x" * (MIB + 1)))
    assert answer == pipe_error(
        "EXTENSION_UNAVAILABLE", "Chrome extension channel is unavailable", "large")
    panel.end()


@pytest.mark.long
def test_a_browser_that_is_gone(panel, connect):
    panel.close_output()
    answers = [connect().ask(request("a"))["error"]["code"] for _ in range(2)]
    assert answers[-1] == "EXTENSION_UNAVAILABLE"
    panel.end(alive=False)


def test_the_end_of_the_host_does_not_wait_for_a_client(start_panel, connect):
    for busy in ("silent", "inside a frame", "waiting"):
        panel = start_panel()
        client = connect()
        if busy == "inside a frame":
            client.send_raw(b"\4\0\0\0")
        if busy == "waiting":
            client.send(request("waits"))
            panel.wait_frame(lambda f: f.get("requestId") == "waits")
        panel.end(limit=exit_limit_seconds() * 3)
        client.close()


@pytest.mark.off_protocol("pipe client")
def test_a_second_host_works_without_the_pipe(start_panel, connect):
    first, second = start_panel(), start_panel()
    answering, _ = answer_requests(first, echo, 1)
    assert connect().ask(request("a"))["requestId"] == "a"
    answering.join(20)
    second.prove_alive()
    second.end()
    assert connect().ask({"command": "pipe"}) == pipe_error(**TIMEOUT)
    first.end()


@pytest.mark.long
def test_an_extension_that_does_not_answer_in_time(panel, connect):
    began = time.monotonic()
    client = connect()
    assert client.ask(request("slow")) == pipe_error(**TIMEOUT, request_id="slow")
    assert 14.5 < time.monotonic() - began < 40
    panel.host.send({"ok": True, "requestId": "slow", "late": True})
    panel.prove_alive()
    assert connect().ask(request("slow")) == {"ok": True, "requestId": "slow", "late": True}
    panel.end()


@pytest.mark.off_protocol("pipe client")
@pytest.mark.long
def test_clients_that_say_nothing_or_take_nothing_make_room(start_panel, connect):
    panel = start_panel(args=[])
    began = time.monotonic()
    silent = connect()
    assert connect().ask({"command": "pipe"}) == pipe_error(**TIMEOUT)  # waits until it is served
    assert 25 < time.monotonic() - began < 75
    silent.close()
    greedy = connect(hold=True)
    answering, _ = answer_requests(
        panel, lambda f: {"ok": True, "requestId": f["requestId"], "text": "y" * (3 * MIB)}, 1)
    greedy.send(request("greedy"))
    greedy.finish()
    answering.join(60)
    began = time.monotonic()
    assert connect().ask({"command": "pipe"}) == pipe_error(**TIMEOUT)
    assert 25 < time.monotonic() - began < 75
    panel.end()
