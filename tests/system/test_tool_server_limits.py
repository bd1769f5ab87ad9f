"""Sixteen connections, time, memory: what nobody may use up for the others."""

import contextlib
import os
import resource
import threading
import time

import pytest

from support.builds import IS_SANITIZED
from support.memory import peak_mib
from support.tool_server_client import (
    BAD_REQUEST, NO_ROUTE_CORS, UNAUTHORIZED_CORS, UPLOAD, receive_all)

PLACES = 16
MIB = 1 << 20


def in_parallel(count, work):
    """Runs work(number) on so many threads; gives what they gave, and raises what they raised."""
    results, failures = [None] * count, []

    def run(number):
        try:
            results[number] = work(number)
        except BaseException as error:
            failures.append(error)

    threads = [threading.Thread(target=run, args=(number,)) for number in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if failures:
        raise failures[0]
    return results


@contextlib.contextmanager
def taken_places(server, count):
    """Connections that are served and say nothing yet."""
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(server.connect()) for _ in range(count)]
        for connection in connections:
            connection.sendall(b"GET /api/nothing HTTP/1.1\r\n")
        time.sleep(0.5)  # until all of them are accepted
        yield connections


def finish(server, connection):
    connection.sendall(server.head("GET", "/api/nothing").split(b"\r\n", 1)[1])
    return receive_all(connection)


# --- Places ---

def test_the_seventeenth_connection_is_closed_without_a_word(own_server):
    with taken_places(own_server, PLACES) as connections:
        for _ in range(5):
            with own_server.connect() as refused:
                assert receive_all(refused) == b""
        assert finish(own_server, connections[0]) == NO_ROUTE_CORS
        own_server.is_well()  # in the place that has become free
        for connection in connections[1:]:
            assert finish(own_server, connection) == NO_ROUTE_CORS
    own_server.is_well()


def test_sixteen_connections_are_served_at_the_same_time(own_server):
    with taken_places(own_server, PLACES) as connections:
        for connection in reversed(connections):
            assert finish(own_server, connection) == NO_ROUTE_CORS


def test_clients_that_hang_up_leave_their_places(own_server):
    for _ in range(3):
        with taken_places(own_server, PLACES):
            pass
        deadline = time.monotonic() + 5
        while True:
            with own_server.connect() as connection:
                connection.sendall(own_server.head("GET", "/api/nothing"))
                if receive_all(connection) == NO_ROUTE_CORS:
                    break
            assert time.monotonic() < deadline


def test_sixteen_clients_in_a_row_lose_no_request(own_server):
    """Each comes back as soon as it has its answer."""
    rounds = 30 if IS_SANITIZED else 150
    head = own_server.head("GET", "/api/nothing")

    def client(_):
        lost = 0
        for _ in range(rounds):
            lost += own_server.exchange(head).data != NO_ROUTE_CORS
        return lost

    assert sum(in_parallel(PLACES, client)) == 0


# --- Time ---

def test_silent_clients_are_cut_after_five_seconds(server):
    heads = [b"", b"GET / HT", b"POST /api/context-file HTTP/1.1\r\n",
             server.head("POST", "/api/nothing", 10) + b"half"]

    def wait(sent):
        with server.connect() as connection:
            connection.sendall(sent)
            started = time.monotonic()
            answer = receive_all(connection)
            return answer, time.monotonic() - started

    for answer, seconds in in_parallel(len(heads), lambda number: wait(heads[number])):
        assert answer == BAD_REQUEST
        assert 4.3 <= seconds <= 5.7


@pytest.mark.long
def test_a_dripping_header_is_cut_after_ten_seconds(own_server):
    """Sixteen clients that send a byte each second do not keep the others out."""
    def drip(_):
        started = time.monotonic()
        with own_server.connect() as connection:
            connection.settimeout(0.01)
            while time.monotonic() - started < 30:
                with contextlib.suppress(ConnectionError):
                    connection.send(b"x")
                try:
                    answer = connection.recv(4096)
                    connection.settimeout(5)
                    answer += receive_all(connection)
                except TimeoutError:
                    time.sleep(1)
                    continue
                except ConnectionError:
                    answer = b""
                return time.monotonic() - started, answer
        return time.monotonic() - started, None

    for seconds, answer in in_parallel(PLACES, drip):
        assert 9.5 <= seconds <= 13, seconds
        assert BAD_REQUEST.startswith(answer)  # a reset may overtake the answer
    own_server.is_well()


@pytest.mark.long
def test_an_honest_slow_upload_is_taken(server, work):
    body = os.urandom(32 * MIB)
    with server.connect() as connection:
        connection.sendall(server.head("POST", f"{UPLOAD}?name=slow", len(body)))
        for at in range(0, len(body), MIB // 2):
            connection.sendall(body[at:at + MIB // 2])
            time.sleep(0.2)
        answer = receive_all(connection)
    assert answer.startswith(b"HTTP/1.1 200 OK\r\n")
    (file,) = work.drops.iterdir()
    assert file.read_bytes() == body


@pytest.mark.long
def test_a_client_that_does_not_read_is_left(server, work):
    path = work.put("a.png", b"x" * (16 * MIB))
    head = server.head("GET", f"/api/local-file?path={path}")
    with server.connect() as connection:
        connection.sendall(head)
        time.sleep(12)  # a write of which a part went out is followed by another one
        assert len(receive_all(connection)) < 16 * MIB


@pytest.mark.long
def test_a_slow_reader_gets_its_file(server, work):
    path = work.put("a.png", b"x" * (16 * MIB))
    with server.connect() as connection:
        connection.sendall(server.head("GET", f"/api/local-file?path={path}"))
        received = 0
        while piece := connection.recv(MIB):
            received += len(piece)
            time.sleep(len(piece) / (2 * MIB))
    assert received > 16 * MIB


# --- Memory ---

def reset_peak(pid):
    with open(f"/proc/{pid}/clear_refs", "w") as file:
        file.write("5")


@pytest.mark.skipif(IS_SANITIZED, reason="a sanitizer multiplies what is used")
class TestMemory:
    def test_large_bodies_that_are_refused_are_not_kept(self, own_server):
        body = b"x" * (32 * MIB)
        head = own_server.head("POST", UPLOAD, len(body), token="0" * 64)

        def post(_):
            with own_server.connect() as connection:
                with contextlib.suppress(ConnectionError):
                    connection.sendall(head)
                    connection.sendall(body)
                return receive_all(connection)

        assert in_parallel(PLACES, post) == [UNAUTHORIZED_CORS] * PLACES
        assert peak_mib(own_server.panel) < 100

    def test_sixteen_downloads_of_16_mib(self, own_server, work):
        path = work.put("a.png", b"x" * (16 * MIB))

        def download(_):
            return len(own_server.download(path).body)

        assert in_parallel(PLACES, download) == [16 * MIB] * PLACES
        assert peak_mib(own_server.panel) < 400

    def test_one_upload_of_32_mib(self, own_server, work):
        own_server.upload("warm", b"x")
        reset_peak(own_server.panel.pid)
        idle = peak_mib(own_server.panel)
        assert own_server.upload("large", b"x" * (32 * MIB))["ok"] is True
        assert peak_mib(own_server.panel) - idle <= 2.2 * 32


# --- The system refuses ---

@pytest.mark.posix_only
def test_accept_that_fails_takes_no_core(own_server):
    """Without a free descriptor every accept fails at once, for as long as a client waits."""
    pid = own_server.panel.pid
    own_server.is_well()
    soft, hard = resource.prlimit(pid, resource.RLIMIT_NOFILE)
    used = max(int(each) for each in os.listdir(f"/proc/{pid}/fd")) + 1
    resource.prlimit(pid, resource.RLIMIT_NOFILE, (used, hard))
    try:
        with own_server.connect() as waiting:
            waiting.sendall(own_server.head("GET", "/api/nothing"))
            before = processor_seconds(pid)
            time.sleep(2)
            assert processor_seconds(pid) - before < 0.3
            resource.prlimit(pid, resource.RLIMIT_NOFILE, (soft, hard))
            assert receive_all(waiting) == NO_ROUTE_CORS
    finally:
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (soft, hard))


def processor_seconds(pid):
    with open(f"/proc/{pid}/stat") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def test_threads_do_not_pile_up(own_server):
    tasks = f"/proc/{own_server.panel.pid}/task"
    before = len(os.listdir(tasks))
    for _ in range(5):
        with taken_places(own_server, PLACES):
            pass
        in_parallel(PLACES, lambda _: own_server.exchange(own_server.head("GET", "/api/nothing")))
    for _ in range(100):
        own_server.is_well()
    assert len(os.listdir(tasks)) <= before + PLACES
