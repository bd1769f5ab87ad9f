"""What comes over HTTP: tool calls, the catalogue, files; and judging a page's text."""

from __future__ import annotations

import contextlib
import json
import re
import socket
import subprocess
import tempfile
import time
from collections.abc import Iterator
from dataclasses import dataclass, replace
from pathlib import Path
from urllib.parse import quote

from pages import INJECTION, encoded, page
from programs import HOST, LEAST, DrivenProgram, ProgramError, Side, in_turns, load, one_core
from results import Results, growth

LEAST_PORT = 39290
THREADS = 16  # as many requests as the host serves at a time
ORIGIN = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc"
FILE_BYTES = 16 * 1024 * 1024
ATTEMPTS = 100
# The page's size, and how many calls a sample has.
CALLS = {"call 1 KB": (1_000, 50), "call 10 KB": (10_000, 50), "call 100 KB": (100_000, 10),
         "call 1 MB": (1_000_000, 5), "flagged": (1_000_000, 5), "call 10 MB": (10_000_000, 2)}


@dataclass(frozen=True)
class Server:
    port: int
    token: str = ""

    def request(self, target: str, body: bytes = b"", origin: str = "") -> bytes:
        lines = [f"{'POST' if body else 'GET'} {target} HTTP/1.1", f"Host: 127.0.0.1:{self.port}",
                 f"X-Morva-Session: {self.token}", "Connection: close"]
        lines += [f"Origin: {origin}"] if origin else []
        lines += [f"Content-Length: {len(body)}"] if body else []
        return ("\r\n".join(lines) + "\r\n\r\n").encode() + body

    def answer(self, request: bytes) -> bytes:
        with socket.create_connection(("127.0.0.1", self.port), 30) as connection:
            connection.sendall(request)
            return b"".join(iter(lambda: connection.recv(1 << 20), b""))


def body_of(answer: bytes) -> bytes:
    return answer.partition(b"\r\n\r\n")[2]


def server_of(program: DrivenProgram) -> Server:
    """As soon as it listens."""
    for _ in range(ATTEMPTS):
        if program.who != LEAST:
            reply = program.ask("contextImportUrl")
            if reply["ok"]:
                return Server(int(re.search(r":(\d+)/", reply["url"])[1]), reply["token"])
        else:
            with contextlib.suppress(OSError), \
                    socket.create_connection(("127.0.0.1", LEAST_PORT), 1):
                return Server(LEAST_PORT)
        time.sleep(0.05)
    raise ProgramError(f"{program.who} does not listen")


@contextlib.contextmanager
def own_folder(side: Side) -> Iterator[Side]:
    """The side with a folder of its own for what the host keeps, and the catalogue for peers."""
    with tempfile.TemporaryDirectory() as folder:
        catalogue = Path(folder) / "catalogue.json"
        own = replace(side, own_environment={"APPDATA": folder, "BENCH_CATALOGUE": str(catalogue)})
        with own.start(HOST) as host:
            server = server_of(host)
            catalogue.write_bytes(body_of(server.answer(server.request("/api/agent-tools"))))
        yield own


def give_answer(program: DrivenProgram, answer: bytes) -> None:
    """What the least server answers to a GET; it listens then."""
    program.send(len(answer).to_bytes(4, "little") + answer)


# --- tool calls ---

def must_be_right(who: str, model: dict, answer: bytes, host: dict) -> None:
    """The host and the peers leave the same of a page; a flagged one is marked as such, in words of
    their own. The least program sends the beginning of the extension's frame."""
    if who == LEAST:
        right = encoded(model)[:200] in answer
    else:
        came = json.loads(body_of(answer))
        words = {"error", "prompt_injection_kind", "prompt_injection_reason"}
        right = (without(came, words) == without(host, words)
                 and len(came["data"]["items"]) == min(12, len(model["data"]["items"]))
                 and ("prompt_injection_detected" in came) == (
                     INJECTION in model["data"]["pageText"]))
    if not right:
        raise ProgramError(f"{who}: the call was answered with {answer[:1000]!r}")


def without(value: dict, keys: set[str]) -> dict:
    return {key: value[key] for key in value if key not in keys}


def call_times(side: Side, programs: dict[str, DrivenProgram], servers: dict[str, Server],
               model: dict, count: int, rounds: int) -> dict[str, list[float]]:
    data = encoded(model)
    answers: dict[str, bytes] = {}

    def sample(who: str) -> list[float]:
        request = servers[who].request("/api/agent-tools/call", b'{"name":"browser_read"}')
        times, answers[who] = load(side, "calls", servers[who].port, count, files=(request, data),
                                   program=programs[who])
        must_be_right(who, model, answers[who], json.loads(body_of(answers[HOST])))
        return times

    return in_turns(programs, rounds, sample)


def measure_calls(results: Results, side: Side, quick: bool) -> None:
    rounds = 2 if quick else 8
    with one_core(), own_folder(side) as own, \
            own.everybody("least_server", str(LEAST_PORT), "1") as programs:
        give_answer(programs[LEAST], b"")
        servers = {who: server_of(program) for who, program in programs.items()}
        call_times(own, programs, servers, page(1_000), 20, 1)  # warms up
        seen = {}
        for key, (size, count) in CALLS.items():
            model = page(size, flagged=key == "flagged")
            seen[key] = call_times(own, programs, servers, model, count, rounds)
            results.add(side.name, key, seen[key])
        results.add(side.name, "page growth", {
            HOST: growth(seen["call 1 MB"][HOST], seen["call 10 MB"][HOST], 10)})
        results.add(side.name, "peak", {
            who: [program.peak_memory_mb()] for who, program in programs.items()})


# --- requests ---

def rates(side: Side, servers: dict[str, Server], requests: dict[str, bytes], clients: int,
          count: int, rounds: int) -> dict[str, list[float]]:
    """Requests in a second. All bodies of answers must be the same value."""
    answers: dict[str, bytes] = {}

    def sample(who: str) -> list[float]:
        times, answer = load(side, "requests", servers[who].port, clients, count,
                             files=(requests[who],))
        answers[who] = body_of(answer)
        if answers[who] != answers[HOST] and json.loads(answers[who]) != json.loads(answers[HOST]):
            raise ProgramError(f"{who}: answered {answer[:300]!r}")
        return [count / each for each in times]

    in_turns(servers, 1, sample)  # warms up
    return in_turns(servers, rounds, sample)


def measure_requests(results: Results, side: Side, quick: bool) -> None:
    count, rounds = (300, 3) if quick else (1000, 15)
    with one_core(), own_folder(side) as own, \
            own.everybody("least_server", str(LEAST_PORT), str(THREADS)) as programs:
        host = server_of(programs[HOST])
        give_answer(programs[LEAST], host.answer(host.request("/api/agent-tools")))
        servers = {who: server_of(program) for who, program in programs.items()}
        requests = {who: each.request("/api/agent-tools") for who, each in servers.items()}
        for clients in (1, 8):
            results.add(side.name, f"catalogue {clients}",
                        rates(own, servers, requests, clients, count, rounds))


def measure_files(results: Results, side: Side, quick: bool) -> None:
    with own_folder(side) as own, own.start(HOST) as host, \
            own.start(LEAST, "least_server", str(LEAST_PORT), str(THREADS)) as least:
        server = server_of(host)
        upload = server.answer(server.request("/api/context-file?name=large.png",
                                              b"x" * FILE_BYTES, ORIGIN))
        path = quote(json.loads(body_of(upload))["path"], safe="")
        request = server.request(f"/api/local-file?path={path}", origin=ORIGIN)
        give_answer(least, server.answer(request))
        servers = {HOST: server, LEAST: server_of(least)}
        results.add(side.name, "files", rates(own, servers, dict.fromkeys(servers, request), 1,
                                              5 if quick else 10, 3 if quick else 15))


def measure_judging(results: Results, side: Side, _: bool) -> None:
    done = subprocess.run(side.command("bench/judging"), env=side.environment, check=True,
                          capture_output=True, stdin=subprocess.DEVNULL, text=True)
    if done.stderr.count("found"):
        raise ProgramError(done.stderr)
    ours_us, plain_us = (float(word) for word in done.stdout.split())
    results.add(side.name, "judging", {HOST: [0.2e6 / ours_us], LEAST: [0.2e6 / plain_us]})
