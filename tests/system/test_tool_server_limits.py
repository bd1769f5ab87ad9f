"""Sixteen connections, time, memory: what nobody may use up for the others; and sixteen clients
that do everything at once."""

import contextlib
import os
import random
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from support.builds import IS_SANITIZED
from support.memory import peak_mib
from support.sockets import has_left, wait_until_accepted
from support.tool_server_client import (
    BAD_REQUEST, NO_FILE, NO_ROUTE_CORS, UNAUTHORIZED_CORS, UPLOAD, file_answer, receive_all)
from support.waiting import until

PLACES = 16
MIB = 1 << 20


def in_parallel(count, work):
    """The results of work(number) on so many threads."""
    with ThreadPoolExecutor(count) as threads:
        return list(threads.map(work, range(count)))


@contextlib.contextmanager
def taken_places(server, count=PLACES):
    """Connections that are served and say nothing yet."""
    with contextlib.ExitStack() as stack:
        connections = []
        for _ in range(count):
            connections.append(stack.enter_context(server.connect()))
            connections[-1].sendall(b"GET /api/nothing HTTP/1.1\r\n")
            wait_until_accepted(server.port)
        yield connections


def finish(server, connection):
    connection.sendall(server.head("GET", "/api/nothing").split(b"\r\n", 1)[1])
    return receive_all(connection)


# --- Places ---

def test_sixteen_connections_are_served_and_the_next_is_closed_without_a_word(own_server):
    with taken_places(own_server) as connections:
        for _ in range(5):
            with own_server.connect() as refused:
                assert receive_all(refused) == b""
        assert finish(own_server, connections[0]) == NO_ROUTE_CORS
        own_server.is_well()  # in the place that has become free
        for connection in reversed(connections[1:]):
            assert finish(own_server, connection) == NO_ROUTE_CORS


@pytest.mark.linux_side
def test_clients_that_hang_up_leave_their_places_and_no_threads(own_server):
    tasks = f"/proc/{own_server.panel.pid}/task"
    before = len(os.listdir(tasks))
    for _ in range(3):
        with taken_places(own_server):
            pass
        until(lambda: own_server.exchange(own_server.head("GET", "/api/nothing")).data
              == NO_ROUTE_CORS, "no place becomes free", 5)
    assert len(os.listdir(tasks)) <= before + PLACES


# --- Load ---

BODY = bytes(range(256)) * 400


def upload(server, _):
    result = server.upload("a b.png", b"x" * 3000)
    return result["ok"] or result["error"] == "drops folder is full"  # which takes 200


# What a client does, and what comes of it.
ACTIONS = [
    (lambda server, path: server.download(path).data, file_answer("image/png", BODY)),
    (lambda server, path: server.download(path + "x").data, NO_FILE),
    (lambda server, _: server.request("POST", UPLOAD, b"x" * 9000, token="0" * 64).data,
     UNAUTHORIZED_CORS),
    (lambda server, _: server.exchange(b"GET\r\n\r\n").data, BAD_REQUEST),
    (upload, True),
]


def test_sixteen_clients_mix_what_they_ask_for_and_lose_no_request(own_server, work):
    """Each comes back as soon as it has its answer."""
    path = work.put("a.png", BODY)

    def client(number):
        actions = ACTIONS * 10
        random.Random(number).shuffle(actions)
        return all(act(own_server, path) == wanted for act, wanted in actions)

    with ThreadPoolExecutor(PLACES) as threads:
        running = [threads.submit(client, number) for number in range(PLACES)]
        for _ in range(50):
            own_server.panel.prove_alive()
            assert own_server.panel.ask("contextImportUrl")["token"] == own_server.token
        assert all(each.result() for each in running)
    own_server.panel.end()


# --- Time ---

# What a client does on a connection on which it has sent something.

def say_no_more(connection, _):
    started = time.monotonic()
    assert receive_all(connection) == BAD_REQUEST
    assert 4.3 <= time.monotonic() - started <= 5.7


def drip(connection, _):
    """A byte each second, so that no single read takes too long."""
    started = time.monotonic()
    connection.settimeout(1)
    answer = None
    while answer is None:
        with contextlib.suppress(ConnectionError):
            connection.send(b"x")
        with contextlib.suppress(TimeoutError, ConnectionError):
            answer = connection.recv(4096)
    assert 9.5 <= time.monotonic() - started <= 13
    assert BAD_REQUEST.startswith(answer)


def upload_slowly(connection, _):
    """Longer than a header may take, and with pauses shorter than a read may."""
    for _ in range(16):
        connection.sendall(bytes(MIB // 16))
        time.sleep(0.75)
    assert receive_all(connection).startswith(b"HTTP/1.1 200 OK\r\n")


def never_read(connection, port):
    # A write of which a part went out is followed by another.
    until(lambda: has_left(port, connection), "the server does not stop writing", 40)
    assert len(receive_all(connection)) < 16 * MIB


def read_slowly(connection, _):
    received = 0
    while piece := connection.recv(MIB):
        received += len(piece)
        time.sleep(len(piece) / (2 * MIB))
    assert received > 16 * MIB


@pytest.mark.long
def test_the_slow_are_waited_for_and_the_stuck_are_cut(own_server, work):
    head = own_server.head
    large = head("GET", "/api/local-file?path=" + work.put("a.png", b"x" * (16 * MIB)))
    clients = [(upload_slowly, head("POST", f"{UPLOAD}?name=slow", MIB)), (never_read, large),
               (read_slowly, large), (say_no_more, head("POST", "/api/nothing", 10) + b"half"),
               *((say_no_more, sent) for sent in (b"", b"GET / HT", b"POST /x HTTP/1.1\r\n")),
               *[(drip, b"")] * 8]

    def run(number):
        act, sent = clients[number]
        with own_server.connect() as connection:
            connection.sendall(sent)
            act(connection, own_server.port)

    in_parallel(len(clients), run)
    own_server.is_well()


# --- Memory ---

@pytest.mark.linux_side
@pytest.mark.skipif(IS_SANITIZED, reason="a sanitizer multiplies what is used")
def test_large_bodies_take_no_more_memory_than_they_must(own_server, work):
    panel = own_server.panel
    body = b"x" * (32 * MIB)
    refused = own_server.head("POST", UPLOAD, len(body), token="0" * 64)
    in_16_mib = work.put("a.png", body[:16 * MIB])

    def reset_peak():
        own_server.upload("warm", b"x")
        Path(f"/proc/{panel.pid}/clear_refs").write_text("5")
        return peak_mib(panel)

    answers = in_parallel(4, lambda _: own_server.exchange(refused + body).data)
    assert answers == [UNAUTHORIZED_CORS] * 4
    assert peak_mib(panel) < 100
    idle = reset_peak()
    assert own_server.upload("large", body)["ok"] is True
    assert peak_mib(panel) - idle <= 2.2 * 32
    sizes = in_parallel(8, lambda _: len(own_server.download(in_16_mib).body))
    assert sizes == [16 * MIB] * 8
    assert peak_mib(panel) < 220
