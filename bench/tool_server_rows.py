"""The tool server: requests and files per second, next to the least server with parked threads."""

from __future__ import annotations

import contextlib
import json
import socket
import statistics
import subprocess
import tempfile
import time
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from urllib.parse import quote

from driven_program import DrivenProgram, Side, encode
from program_rows import HOST, STATUS, one_core
from results import Results, Row

RESPONDER = "baseline_responder"
RESPONDER_PORT = 39290
DRIVER = "request_driver"
ROOT = Path(__file__).resolve().parent.parent
ORIGIN = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc"
LARGE_BYTES = 16 * 1024 * 1024


@dataclass(frozen=True)
class Server:
    port: int
    token: str = "0" * 64

    def request(self, target: str, body: bytes = b"") -> bytes:
        lines = [f"{'POST' if body else 'GET'} {target} HTTP/1.1", f"Host: 127.0.0.1:{self.port}",
                 f"X-Morva-Session: {self.token}", f"Origin: {ORIGIN}"]
        lines += [f"Content-Length: {len(body)}"] if body else []
        return ("\r\n".join(lines) + "\r\n\r\n").encode() + body

    def answer(self, request: bytes) -> bytes:
        with socket.create_connection(("127.0.0.1", self.port), 30) as connection:
            connection.sendall(request)
            pieces = []
            while piece := connection.recv(1 << 20):
                pieces.append(piece)
            return b"".join(pieces)


def driver(side: Side) -> Path:
    """The client is a native program on either side: it is not what is measured."""
    own = side.folder / "bench" / DRIVER
    return own if own.exists() else ROOT / "build" / "release" / "bench" / DRIVER


def drive(side: Side, server: Server, request: bytes, clients: int, count: int,
          answer_bytes: int) -> tuple[float, int]:
    """Seconds for so many requests, and how many of them were lost."""
    command = [driver(side), server.port, clients, count, answer_bytes]
    done = subprocess.run([str(word) for word in command], input=request, check=True,
                          stdout=subprocess.PIPE)
    seconds, lost = done.stdout.split()
    return float(seconds), int(lost)


def import_server(host: DrivenProgram) -> Server:
    for _ in range(100):
        host.send(encode({"source": "morva-chat", "kind": "contextImportUrl",
                          "chromeRequestId": 1}))
        reply = json.loads(host.read_frame())
        while reply.get("chromeRequestId") != 1:
            reply = json.loads(host.read_frame())
        if reply["ok"]:
            return Server(int(reply["url"].split(":")[2].split("/")[0]), reply["token"])
        time.sleep(0.05)
    raise SystemExit("the host has no tool server")


def wait_for(server: Server) -> None:
    for _ in range(200):
        with contextlib.suppress(OSError):
            server.answer(server.request("/"))
            return
        time.sleep(0.05)
    raise SystemExit("the responder did not start")


@contextlib.contextmanager
def both(side: Side) -> Iterator[dict[str, Server]]:
    with contextlib.ExitStack() as stack:
        folder = stack.enter_context(tempfile.TemporaryDirectory())
        own = Side(side.name, side.folder, side.prefix, {"APPDATA": folder})
        host = stack.enter_context(DrivenProgram(own, HOST, first=STATUS))
        stack.enter_context(DrivenProgram(own, RESPONDER, (str(RESPONDER_PORT),)))
        servers = {"host": import_server(host), "baseline": Server(RESPONDER_PORT)}
        wait_for(servers["baseline"])
        yield servers


def compare_speed(results: Results, side: Side, name: str, servers: dict[str, Server],
                  requests: dict[str, bytes], clients: int, count: int, rounds: int,
                  bound: float) -> int:
    """A row for requests per second by the medians of rounds in turns; gives how many were lost."""
    sizes = {who: len(servers[who].answer(requests[who])) for who in servers}
    rates: dict[str, list[float]] = {who: [] for who in servers}
    all_lost = 0
    for number in range(rounds + 1):
        for who, server in servers.items():
            seconds, lost = drive(side, server, requests[who], clients, count, sizes[who])
            all_lost += lost if who == "host" else 0
            if number > 0:  # the first one warms up
                rates[who].append(count / seconds)
    medians = {who: statistics.median(each) for who, each in rates.items()}
    results.samples |= {f"{side.name}: {name}: {who}": each for who, each in rates.items()}
    figures = ", ".join(f"{who} {medians[who]:.0f}/s" for who in servers)
    results.add(Row(side.name, name, figures, medians["host"] / medians["baseline"], bound,
                    at_least=True))
    return all_lost


def upload_large(server: Server) -> str:
    body = b"x" * LARGE_BYTES
    answer = server.answer(server.request("/api/context-file?name=large.png", body))
    return json.loads(answer.partition(b"\r\n\r\n")[2])["path"]


def measure_tool_server(results: Results, side: Side, quick: bool) -> None:
    count, rounds = (200, 9) if quick else (500, 25)
    for clients, words in ((1, "one client"), (8, "eight clients")):
        # On one core, as else the time to wake the far side on another one is most of it, and
        # that depends on what else the machine does.
        with one_core(), both(side) as servers:
            requests = {who: server.request("/api/nothing") for who, server in servers.items()}
            compare_speed(results, side, f"requests on connections of their own, {words}", servers,
                          requests, clients, count, rounds, bound=0.7)
    with both(side) as servers:
        requests = {who: server.request("/api/nothing") for who, server in servers.items()}
        host = servers["host"]
        size = len(host.answer(requests["host"]))
        for clients, words in ((1, "one after the other"), (8, "eight at a time"),
                               (16, "sixteen at a time")):
            seconds, lost = drive(side, host, requests["host"], clients, 10_000, size)
            results.add(Row(side.name, f"answered of 10,000 connections, {words}",
                            f"{lost} lost, {seconds:.1f} s", 10_000 - lost, 10_000,
                            at_least=True, unit=""))
        target = f"/api/local-file?path={quote(upload_large(host), safe='')}"
        files = {who: server.request(target) for who, server in servers.items()}
        compare_speed(results, side, "files of 16 MiB, one after the other", servers, files, 1,
                      5 if quick else 10, rounds, bound=0.5)
