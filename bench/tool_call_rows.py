"""What a browser tool's answer costs: in the host's parts, and through a whole host."""

from __future__ import annotations

import json
import re
import socket
import statistics
import subprocess
import threading
import time

from driven_program import DrivenProgram, ProgramError, Side, encode
from results import Results, Row

LEAST_SPEED_UP = 10  # judging text, next to a search for each phrase in turn
MOST_OVERHEAD = 1.25  # an answer of 1 MB, next to parsing its frame and dumping the result
MOST_GROWTH = 1.25  # a byte of 10 MB next to one of 1 KB, beyond what parsing has of that
ITEMS = 3000  # make a page of about 1 MB


def measured_parts(side: Side) -> dict:
    command = side.command("tool_call_cost", ())
    done = subprocess.run(command, env=side.environment, check=False, capture_output=True,
                          stdin=subprocess.DEVNULL, text=True)
    if done.returncode != 0 or done.stderr.count("unexpected result"):
        raise SystemExit(f"tool_call_cost failed:\n{done.stdout}{done.stderr}")
    return json.loads(done.stdout)


def add_parts(results: Results, side: Side) -> None:
    costs = measured_parts(side)
    judged = costs["classify"]
    results.add(Row(side.name, "judging 200,000 bytes of page text",
                    f"{judged['ours']:.0f} us, each phrase in turn {judged['plain']:.0f} us",
                    judged["plain"] / judged["ours"], LEAST_SPEED_UP, at_least=True))
    for call in costs["calls"]:
        figures = f"{call['ours']:.0f} us, parsing and dumping alone {call['plain']:.0f} us"
        is_judged = 1_000_000 <= call["bytes"] < 10_000_000
        results.add(Row(side.name, f"answer to a tool call, {call['bytes'] / 1e3:,.0f} KB", figures,
                        call["ours"] / call["plain"], MOST_OVERHEAD if is_judged else None))
    few, many = costs["calls"][0], costs["calls"][-1]
    ours, plain = (many[who] / few[who] / (many["bytes"] / few["bytes"])
                   for who in ("ours", "plain"))
    # Parsing alone leaves the processor's caches as the page grows; what is ours must not add.
    results.add(Row(side.name, "growth of a byte's cost from 1 KB to 10 MB",
                    f"{ours:.2f} x, parsing and dumping alone {plain:.2f} x", ours / plain,
                    MOST_GROWTH))


# Through the host

def page() -> dict:
    items = [{"ref": f"e{i}", "role": "link", "name": f"Element number {i}", "path": "div > " * 20,
              "bounds": {"x": 20, "y": i, "width": 240, "height": 24}} for i in range(ITEMS)]
    return {"tool": "browser_read", "ok": True, "data": {
        "count": ITEMS, "items": items, "pageText": "It comes with a cable. " * 15_000}}


class HostUnderCalls:
    """A host with its tool server's port and token."""

    def __init__(self, host: DrivenProgram) -> None:
        self.host = host
        host.send(encode({"source": "morva-chat", "kind": "contextImportUrl"}))
        offer = self._frame(lambda frame: "token" in frame)
        self._token = offer["token"]
        self._port = int(re.search(r":(\d+)/", offer["url"])[1])

    def _frame(self, wanted) -> dict:
        while True:
            frame = json.loads(self.host.read_frame())
            if wanted(frame):
                return frame

    def call_s(self, data: bytes) -> float:
        """From the extension's frame to the last byte of the agent's answer."""
        request = (f"POST /api/agent-tools/call HTTP/1.1\r\nHost: 127.0.0.1:{self._port}\r\n"
                   f"X-Morva-Session: {self._token}\r\nContent-Length: 23\r\n\r\n"
                   '{"name":"browser_read"}').encode()
        with socket.create_connection(("127.0.0.1", self._port)) as agent:
            agent.sendall(request)
            command = self._frame(lambda frame: frame.get("command") == "browserUse")
            body = b'{"requestId":"' + command["requestId"].encode() + b'","ok":true,"data":' + data
            body += b"}"
            frame = len(body).to_bytes(4, "little") + body
            sender = threading.Thread(target=self.host.send, args=(frame,))
            begin = time.perf_counter()
            sender.start()
            answer = b""
            while piece := agent.recv(1 << 16):
                answer += piece
            took = time.perf_counter() - begin
            sender.join()
        if b"itemsOmitted" not in answer:
            raise ProgramError(f"the call was answered with {answer[:300]!r}")
        return took


def measure_tool_calls(results: Results, side: Side, quick: bool) -> None:
    add_parts(results, side)
    data = json.dumps(page(), separators=(",", ":")).encode()
    with DrivenProgram(side, "morva-chrome-host") as host:
        time.sleep(1)  # until its port is bound
        calls = HostUnderCalls(host)
        times = [calls.call_s(data) for _ in range(5 if quick else 30)]
    results.samples[f"{side.name}: tool call"] = times
    results.add(Row(side.name, f"tool call through the host, {len(data) / 1e6:.1f} MB",
                    f"median {statistics.median(times) * 1e3:.1f} ms"))
