"""A client of the Model Context Protocol: starts the program as such clients do, and talks to it.

    with McpClient("windows", wineprefix=prefix) as client:
        client.initialize()
        result = client.call("browser_read")
"""

from __future__ import annotations

import itertools
import json
import os
import subprocess
import threading
import time
from collections import defaultdict
from collections.abc import Mapping
from pathlib import Path
from types import TracebackType
from typing import Any

from . import wine

LATEST = "2025-11-25"


def server_command(build: str, program: Path | None = None) -> list[str]:
    """How a client starts the server of a build."""
    windows = build == "windows"
    suffix = ".exe" if windows else ""
    program = program or wine.ROOT / "build" / build / f"morva-chrome-host{suffix}"
    return [*([wine.loader()] if windows else []), str(program), "--mcp"]


def server_environment(build: str, wineprefix: Path | None) -> dict[str, str]:
    """What to add to its environment."""
    return wine.environment(wineprefix or wine.default_prefix()) if build == "windows" else {}


class McpClient:
    """One run of the program. A thread takes what it writes; each line must be a JSON message."""

    def __init__(self, build: str = "windows", wineprefix: Path | None = None,
                 program: Path | None = None, env: Mapping[str, str] | None = None,
                 reads: bool = True) -> None:
        environment = {**os.environ, **server_environment(build, wineprefix), **(env or {})}
        self._windows = build == "windows"
        self._ids = itertools.count(1)
        self._arrived = threading.Condition()
        self.messages: list[Any] = []  # as they came
        self._replies: defaultdict[object, list[Any]] = defaultdict(list)  # by id
        self._process = subprocess.Popen(
            server_command(build, program), env=environment, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self._reader = threading.Thread(target=self._read, daemon=True)
        if reads:
            self._reader.start()

    # Sending

    def send_raw(self, data: bytes) -> None:
        assert self._process.stdin is not None
        self._process.stdin.write(data)
        self._process.stdin.flush()

    def send(self, message: Any) -> None:
        self.send_raw(json.dumps(message).encode() + b"\n")

    def notify(self, method: str, **params: Any) -> None:
        self.send({"jsonrpc": "2.0", "method": method, "params": params})

    def begin(self, method: str, **params: Any) -> int:
        """Sends a request and returns its id."""
        number = next(self._ids)
        self.send({"jsonrpc": "2.0", "id": number, "method": method, "params": params})
        return number

    def begin_call(self, tool: str, arguments: object = None, **params: Any) -> int:
        if arguments is not None:
            params["arguments"] = arguments
        return self.begin("tools/call", name=tool, **params)

    # Receiving

    def reply(self, number: int, timeout: float = 60) -> Any:
        """The reply to a request, once it is there."""
        deadline = time.monotonic() + timeout
        with self._arrived:
            while not (found := self.replies(number)):
                left = deadline - time.monotonic()
                if left <= 0 or not self._arrived.wait(left):
                    raise TimeoutError(f"no reply to request {number}: {self.messages[-3:]}")
        return found[0]

    def replies(self, number: int) -> list[Any]:
        """All replies to a request that have come so far."""
        return self._replies.get(number, [])

    def notifications(self, method: str) -> list[Any]:
        """The parameters of all that have come so far."""
        return [each["params"] for each in self.messages
                if isinstance(each, dict) and each.get("method") == method]

    def ask(self, method: str, **params: Any) -> Any:
        """The result of a request; an error raises LookupError."""
        return self._result(self.begin(method, **params))

    def call(self, tool: str, arguments: object = None, **params: Any) -> Any:
        """The result of a call."""
        return self._result(self.begin_call(tool, arguments, **params))

    def initialize(self, revision: str = LATEST) -> Any:
        result = self.ask("initialize", protocolVersion=revision, capabilities={},
                          clientInfo={"name": "devkit", "version": "1"})
        self.notify("notifications/initialized")
        return result

    # The end

    def close_stdin(self) -> None:
        assert self._process.stdin is not None
        self._process.stdin.close()

    def end(self, timeout: float = 30) -> tuple[int, float]:
        """Closes its input; the exit code and how many seconds it took."""
        began = time.monotonic()
        self.close_stdin()
        process = self._process
        code = wine.wait(process, timeout) if self._windows else process.wait(timeout)
        took = time.monotonic() - began
        if self._reader.is_alive():
            self._reader.join(2)
        return code, took

    @property
    def pid(self) -> int:
        return self._process.pid

    def __enter__(self) -> McpClient:
        return self

    def __exit__(self, _type: type[BaseException] | None, _value: BaseException | None,
                 _trace: TracebackType | None) -> None:
        if self._process.poll() is None:
            self._process.kill()
        self._process.wait()
        for stream in (self._process.stdin, self._process.stdout, self._process.stderr):
            try:
                assert stream is not None
                stream.close()
            except OSError:
                pass  # what was not taken any more

    def _result(self, number: int) -> Any:
        reply = self.reply(number)
        if "error" in reply:
            raise LookupError(f"{reply['error']['code']}: {reply['error']['message']}")
        return reply["result"]

    def _read(self) -> None:
        assert self._process.stdout is not None
        for line in self._process.stdout:
            message = json.loads(line)
            with self._arrived:
                self.messages.append(message)
                if isinstance(message, dict) and "method" not in message:
                    self._replies[message.get("id")].append(message)
                self._arrived.notify_all()
