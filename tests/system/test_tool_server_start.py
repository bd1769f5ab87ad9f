"""Which port the tool server gets, and what becomes of it when it gets none."""

import contextlib
import re
import socket
import subprocess
import time
from pathlib import Path

import pytest

from support import builds
from support.sockets import wait_until_accepted
from support.tool_server_client import (
    BAD_REQUEST, EXTENSION_ORIGIN, NO_ROUTE_CORS, PORTS, UNAUTHORIZED_CORS, ToolServer,
    receive_all)
from support.waiting import until

from devkit.panel.pipe_client import PipeClient

NOT_READY = {"source": "morva-chat", "kind": "ack", "ok": False,
             "error": "file import is not ready"}


@contextlib.contextmanager
def listening(ports):
    with contextlib.ExitStack() as stack:
        for port in ports:
            def take(port=port):  # the sockets of a host that was ended hard live on for a moment
                with contextlib.suppress(OSError):
                    return stack.enter_context(socket.create_server(("127.0.0.1", port)))

            until(take, f"port {port} is not free")
        yield


def import_reply(panel):
    reply = panel.ask("contextImportUrl")
    reply.pop("chromeRequestId")
    return reply


def has_no_server(panel):
    """The host serves the pipe only after the tool server has its port, or none."""
    with PipeClient(builds.BUILD, builds.wine_prefix()) as client:
        client.ask({"command": "pipe"})
    return import_reply(panel) == NOT_READY


@pytest.mark.off_protocol("pipe client")
def test_the_last_port_and_none(start_panel):
    with listening(PORTS[:9]):
        with listening(PORTS[9:]):
            panel = start_panel()
            assert has_no_server(panel)
        assert ToolServer(start_panel()).port == 39279
    assert import_reply(panel) == NOT_READY  # nothing tries again


def test_two_hosts_have_two_servers(start_panel):
    first, second = ToolServer(start_panel()), ToolServer(start_panel())
    assert (first.port, second.port) == (39270, 39271)
    assert first.token != second.token and re.fullmatch("[0-9a-f]{64}", first.token)
    assert import_reply(first.panel) == {
        "source": "morva-chat", "kind": "ack", "ok": True, "token": first.token,
        "url": "http://127.0.0.1:39270/api/context-file"}
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
    for address in [*others, "127.0.0.2", "::1"]:
        with pytest.raises(OSError):
            socket.create_connection((address, own_server.port), 2).close()


def test_the_end_of_a_host_ends_its_connections_and_the_next_one_has_its_port(start_panel):
    for _ in range(3):
        server = ToolServer(start_panel())
        assert server.port == 39270
        with server.connect() as connection:
            connection.sendall(b"GET / HT")
            wait_until_accepted(server.port)
            server.panel.end(limit=1 if builds.IS_WINDOWS else 0.5)
            connection.settimeout(5)
            assert receive_all(connection) == b""


# --- Calls that fail ---

@pytest.mark.posix_only
@pytest.mark.off_protocol("pipe client")
def test_a_port_that_cannot_be_listened_on_is_none(start_failing):
    assert has_no_server(start_failing("listen"))
    with pytest.raises(OSError):
        socket.create_connection(("127.0.0.1", 39270), 2).close()


@pytest.mark.posix_only
@pytest.mark.off_protocol("pipe client")
def test_without_random_bytes_nobody_has_the_token(start_failing):
    assert has_no_server(start_failing("getrandom"))
    for token in ("", "X-Morva-Session:\r\n", f"X-Morva-Session: {'0' * 64}\r\n"):
        request = ("GET /api/nothing HTTP/1.1\r\nHost: 127.0.0.1:39270\r\n"
                   f"Origin: {EXTENSION_ORIGIN}\r\n{token}\r\n")
        with socket.create_connection(("127.0.0.1", 39270), 5) as connection:
            connection.sendall(request.encode())
            assert receive_all(connection) == UNAUTHORIZED_CORS


def voluntary_waits(pid):
    """How often the threads of a process have gone to sleep by themselves."""
    found = Path(f"/proc/{pid}/task").glob("*/status")
    return sum(int(re.search(r"\nvoluntary_ctxt_switches:\s+(\d+)", status.read_text())[1])
               for status in found)


@pytest.mark.posix_only
def test_an_accept_that_fails_is_tried_again_after_a_pause(start_failing, tmp_path):
    switch = tmp_path / "accept fails"
    server = ToolServer(start_failing("accept4", switch))
    switch.touch()
    server.connect().close()  # perhaps accepted by the call that was under way; the others fail
    with server.connect() as client:
        client.sendall(server.head("GET", "/api/nothing"))
        started, before = time.monotonic(), voluntary_waits(server.panel.pid)
        until(lambda: voluntary_waits(server.panel.pid) >= before + 50, "it does not pause", 20)
        # 50 pauses of 10 ms; now and then another thread of the host sleeps, too.
        assert time.monotonic() - started > 0.2
        switch.unlink()
        assert receive_all(client) == NO_ROUTE_CORS


@pytest.mark.posix_only
def test_a_connection_without_a_thread_is_closed_and_logged(start_failing, tmp_path):
    switch = tmp_path / "no more threads"
    panel = start_failing("pthread_create", switch)
    server = ToolServer(panel)
    held = [server.connect() for _ in range(6)]  # every thread that there is has one of them
    wait_until_accepted(server.port)
    mark = panel.mark()
    switch.touch()
    for _ in range(40):  # more often than there are places
        with server.connect() as connection:
            assert receive_all(connection) == b""
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
