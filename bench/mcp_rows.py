"""The server for MCP clients: its start, calls through the pipe of a running host, idling."""

from __future__ import annotations

import json
import socket
import time

from call_rows import LEAST_PORT, Server, give_answer, own_folder, server_of
from frame_rows import acknowledged, wake_ups
from pages import encoded, page
from programs import HOST, LEAST, DrivenProgram, ProgramError, Side, in_turns, one_core, status
from results import Results

CALLS = {"mcp call 1 KB": (1_000, 50), "mcp call 1 MB": (1_000_000, 5)}


class LineProgram(DrivenProgram):
    """What it says is a message a line."""

    _left: bytes

    def read_frame(self) -> bytes:
        pieces = [self._left]
        while b"\n" not in pieces[-1]:
            pieces.append(self._more())
        line, _, self._left = b"".join(pieces).partition(b"\n")
        return line


def request(method: str, **params: object) -> bytes:
    return json.dumps({"jsonrpc": "2.0", "id": 1, "method": method,
                       "params": params}).encode() + b"\n"


def start_server(side: Side) -> LineProgram:
    """With "initialize" in the pipe when it starts."""
    program = LineProgram(
        HOST, side.command("morva-chrome-host", "--mcp"), side.environment,
        request("initialize", protocolVersion="2025-11-25", capabilities={},
                clientInfo={"name": "bench", "version": "1"}))
    if b'"protocolVersion":"2025-11-25"' not in program.first_reply:
        raise ProgramError(f"no session: {program.first_reply!r}")
    return program


def measure_mcp_start(results: Results, side: Side, quick: bool) -> None:
    def first_reply(who: str) -> list[float]:
        with start_server(side) if who == HOST else side.start(LEAST, first=status()) as program:
            if who == LEAST:
                acknowledged(who, status(), program.first_reply)
            return [program.first_reply_s]

    with one_core():
        results.add(side.name, "mcp start", in_turns([HOST, LEAST], 10 if quick else 60,
                                                     first_reply))


def answer_command(browser: DrivenProgram, model: bytes) -> None:
    """What the extension does, in no time: the page lies ready."""
    marker = b'"requestId":"'
    while b'"browserUse"' not in (command := browser.read_frame()):
        pass
    name = command.partition(marker)[2].partition(b'"')[0]
    body = b"{" + marker + name + b'","ok":true,"data":' + model + b"}"
    browser.send(len(body).to_bytes(4, "little") + body)


def ask_least(program: DrivenProgram, server: Server, model: bytes) -> bytes:
    """Over HTTP, since the least program knows no pipe."""
    with socket.create_connection(("127.0.0.1", server.port), 30) as connection:
        connection.sendall(server.request("/api/agent-tools/call", b'{"name":"browser_read"}'))
        answer_command(program, model)
        return b"".join(iter(lambda: connection.recv(1 << 20), b""))


def measure_mcp_calls(results: Results, side: Side, quick: bool) -> None:
    """From the client's first byte to the end of the answer."""
    rounds = 2 if quick else 8
    call = request("tools/call", name="browser_read", arguments={})
    with one_core(), own_folder(side) as own, own.start(HOST, first=status()) as browser, \
            start_server(own) as client, \
            own.start(LEAST, "least_server", str(LEAST_PORT), "1") as least:
        give_answer(least, b"")
        server = server_of(least)

        def ask(who: str, model: bytes) -> bytes:
            if who == LEAST:
                return ask_least(least, server, model)
            client.send(call)
            answer_command(browser, model)
            return client.read_frame()

        for key, (size, count) in CALLS.items():
            model = page(size)

            def sample(who: str, count: int = count, model: dict = model) -> list[float]:
                text = encoded(model)
                times = []
                for _ in range(count):
                    begin = time.perf_counter()
                    answer = ask(who, text)
                    times.append(time.perf_counter() - begin)
                must_be_right(who, model, answer)
                return times

            in_turns((HOST, LEAST), 1, sample)  # warms up
            results.add(side.name, key, in_turns((HOST, LEAST), rounds, sample))


def must_be_right(who: str, model: dict, answer: bytes) -> None:
    """The least program sends the beginning of the extension's frame."""
    if who == LEAST:
        right = encoded(model)[:200] in answer
    else:
        result = json.loads(answer)["result"]
        items = result["structuredContent"]["data"]["items"]
        right = not result["isError"] and len(items) == min(12, len(model["data"]["items"]))
    if not right:
        raise ProgramError(f"{who}: the call was answered with {answer[:1000]!r}")


def measure_mcp_idle(results: Results, side: Side, quick: bool) -> None:
    """How often its threads sleep again once a call has been made, which fails: no host runs."""
    with start_server(side) as client:
        client.send(request("tools/call", name="browser_read", arguments={},
                            _meta={"progressToken": 1}))
        client.read_frame()
        results.add(side.name, "mcp wake-ups", {HOST: [wake_ups(client, quick)]})
