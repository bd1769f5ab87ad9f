"""Which port the tool server gets, and what becomes of it when it gets none."""

import contextlib
import shutil
import socket
import subprocess
import time
from pathlib import Path

import pytest

from support.builds import IS_WINDOWS, SLOWER
from support.tool_server_client import (
    BAD_REQUEST, EXTENSION_ORIGIN, NO_ROUTE_CORS, PORTS, UNAUTHORIZED_CORS, ToolServer,
    receive_all)

NOT_READY = {"source": "morva-chat", "kind": "ack", "ok": False,
             "error": "file import is not ready"}


def bind_when_free(listener, port, patience=10):
    """Under Wine the sockets of a host that was ended hard live on for a moment."""
    deadline = time.monotonic() + patience
    while True:
        try:
            return listener.bind(("127.0.0.1", port))
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.05)


@contextlib.contextmanager
def listening(ports):
    with contextlib.ExitStack() as stack:
        for port in ports:
            taken = stack.enter_context(socket.socket())
            taken.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            bind_when_free(taken, port)
            taken.listen()
        yield


def import_reply(panel):
    reply = panel.ask("contextImportUrl")
    reply.pop("chromeRequestId")
    return reply


def stays_away(panel):
    """The server's start takes two seconds at most, so what is not there then never will be."""
    deadline = time.monotonic() + 2.5 * SLOWER
    while time.monotonic() < deadline:
        assert import_reply(panel) == NOT_READY
        time.sleep(0.2)


def test_the_first_port(own_server):
    assert own_server.port == 39270
    assert own_server.upload_url == "http://127.0.0.1:39270/api/context-file"


def test_the_reply_to_the_panel(panel):
    server = ToolServer(panel)
    assert import_reply(panel) == {
        "source": "morva-chat", "kind": "ack", "ok": True,
        "url": f"http://127.0.0.1:{server.port}/api/context-file", "token": server.token}


@pytest.mark.parametrize("taken", [1, 5, 9])
def test_the_next_free_port(start_panel, taken):
    with listening(PORTS[:taken]):
        server = ToolServer(start_panel())
        assert server.port == PORTS[taken]
        server.is_well()


def test_a_gap_is_used(start_panel):
    with listening([39270, 39272]):
        assert ToolServer(start_panel()).port == 39271


@pytest.mark.long
def test_no_free_port(start_panel):
    with listening(PORTS):
        panel = start_panel()
        stays_away(panel)
        panel.prove_alive()
    stays_away(panel)  # nothing tries again


def test_two_hosts_have_two_servers(start_panel):
    first, second = ToolServer(start_panel()), ToolServer(start_panel())
    assert (first.port, second.port) == (39270, 39271)
    assert first.token != second.token
    first.is_well()
    second.is_well()
    # The token of the one is nothing to the other.
    assert second.request("GET", "/api/nothing", token=first.token).data == UNAUTHORIZED_CORS
    # Nor is its name.
    assert second.exchange(first.head("GET", "/api/nothing")).data == BAD_REQUEST


def test_only_the_loopback_address_is_listened_on(own_server):
    addresses = subprocess.run(["ip", "-4", "-o", "address"], stdout=subprocess.PIPE, text=True,
                               check=True).stdout.split()
    others = [each.split("/")[0] for each in addresses if "/" in each and "127.0.0.1" not in each]
    for address in [*others, "127.0.0.2"]:
        with pytest.raises(OSError):
            socket.create_connection((address, own_server.port), 2).close()
    with pytest.raises(OSError):
        socket.create_connection(("::1", own_server.port), 2).close()


@pytest.mark.posix_only
def test_thirty_restarts_keep_the_port(start_panel):
    """The server closes first, so its port lingers in the system for a minute."""
    for _ in range(30):
        panel = start_panel()
        server = ToolServer(panel)
        assert server.port == 39270
        server.is_well()
        panel.end()


def test_the_end_of_the_host_ends_its_connections(own_server):
    with own_server.connect() as connection:
        connection.sendall(b"GET / HT")
        time.sleep(0.2)
        own_server.panel.end(limit=1 if IS_WINDOWS else 0.5)
        connection.settimeout(5)
        assert receive_all(connection) == b""


# --- Calls that fail ---

@pytest.fixture(scope="session")
def failing_calls(tmp_path_factory):
    """A library that makes calls of the system fail."""
    compiler = shutil.which("clang++") or shutil.which("g++")
    assert compiler, "no compiler: ./dev setup"
    source = Path(__file__).with_name("support") / "failing_calls.cpp"
    library = tmp_path_factory.mktemp("failing") / "failing_calls.so"
    subprocess.run([compiler, "-std=c++20", "-shared", "-fPIC", "-O1", "-o", library, source],
                   check=True)
    return library


@pytest.fixture
def start_failing(start_panel, failing_calls):
    def start(calls, **more):
        return start_panel(env={
            "LD_PRELOAD": str(failing_calls), "MORVA_FAILING_CALLS": calls, **more})

    return start


@pytest.mark.long
@pytest.mark.posix_only
def test_a_port_that_cannot_be_listened_on_is_none(start_failing):
    panel = start_failing("listen")
    stays_away(panel)
    with pytest.raises(OSError):
        socket.create_connection(("127.0.0.1", 39270), 2).close()
    panel.end()


@pytest.mark.long
@pytest.mark.posix_only
def test_without_random_bytes_nobody_has_the_token(start_failing):
    panel = start_failing("getrandom")
    stays_away(panel)
    for token in ("", "X-Morva-Session:\r\n", f"X-Morva-Session: {'0' * 64}\r\n"):
        request = ("GET /api/nothing HTTP/1.1\r\nHost: 127.0.0.1:39270\r\n"
                   f"Origin: {EXTENSION_ORIGIN}\r\n{token}\r\n")
        with socket.create_connection(("127.0.0.1", 39270), 5) as connection:
            connection.sendall(request.encode())
            assert receive_all(connection) == UNAUTHORIZED_CORS
    panel.end()


@pytest.mark.posix_only
def test_a_connection_without_a_thread_is_closed_and_logged(start_failing, tmp_path):
    switch = tmp_path / "no more threads"
    panel = start_failing("pthread_create", MORVA_FAILING_FROM=str(switch))
    server = ToolServer(panel)
    held = [server.connect() for _ in range(6)]  # every thread that there is has one of them
    time.sleep(0.5)
    mark = panel.mark()
    switch.touch()
    refused = 0
    for _ in range(40):  # more often than there are places
        with server.connect() as connection:
            refused += receive_all(connection) == b""
    assert refused == 40
    switch.unlink()
    # The log's own thread may not have been had either; whatever is logged next starts it.
    panel.send("send", prompt="hi", preset="plain")
    panel.wait_event(
        "appendDebugLog", lambda args: "no thread" in args[0]["text"], since=mark)
    for connection in held:
        connection.sendall(server.head("GET", "/api/nothing"))
        assert receive_all(connection) == NO_ROUTE_CORS
        connection.close()
    server.is_well()
    panel.end()
