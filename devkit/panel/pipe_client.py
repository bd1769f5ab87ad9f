"""A local program that asks the extension through the host's inspect pipe.

    with PipeClient("windows", wineprefix=prefix) as client:
        answer = client.ask({"requestId": "a", "command": "tabs"})

On Windows the pipe is reached through morva-pipe-client.exe. The native builds have a local stream
socket in its place, in the abstract name space.
"""

from __future__ import annotations

import json
import os
import socket
import subprocess
import threading
import time
from collections.abc import Mapping
from pathlib import Path
from typing import Any

from . import wine
from .frames import encode_body, frame

PIPE_NAME = r"\\.\pipe\morva-chrome-inspect"
_CONNECT_S = 60.0


class PipeClient:
    """One connection. `hold`: never reads, and stays until close()."""

    def __init__(self, build: str = "windows", wineprefix: Path | None = None,
                 hold: bool = False, env: Mapping[str, str] | None = None) -> None:
        self._process: subprocess.Popen[bytes] | None = None
        self._socket: socket.socket | None = None
        if build == "windows":
            self._process = _start_program(build, wineprefix, hold, env)
        else:
            self._socket = _connect_socket()

    # Sending

    def send_raw(self, data: bytes) -> None:
        """Raises OSError when the host does not take it any more."""
        if self._socket is not None:
            self._socket.sendall(data)
            return
        assert self._process is not None and self._process.stdin is not None
        self._process.stdin.write(data)
        self._process.stdin.flush()

    def send(self, value: Any) -> None:
        self.send_raw(frame(encode_body(value)))

    def finish(self) -> None:
        """After the last byte of the request: from now on the answer is read."""
        if self._process is not None and self._process.stdin is not None:
            self._process.stdin.close()

    # Receiving

    def read_all(self, timeout: float = 60.0) -> bytes:
        """All that the host sends until it ends the connection."""
        if self._socket is not None:
            return self._read_socket(timeout)
        assert self._process is not None and self._process.stdout is not None
        watch = threading.Timer(timeout, self._process.kill)
        watch.start()
        try:
            return self._process.stdout.read()
        finally:
            watch.cancel()

    def read(self, timeout: float = 60.0) -> Any:
        """The one answer; None when the connection ended without a whole one."""
        return _message(self.read_all(timeout))

    def ask(self, value: Any, timeout: float = 60.0) -> Any:
        """Sends a request and gives its answer."""
        return self.ask_raw(frame(encode_body(value)), timeout)

    def ask_raw(self, request: bytes, timeout: float = 60.0) -> Any:
        """The same with the bytes of a request."""
        self.send_raw(request)
        self.finish()
        return self.read(timeout)

    def close(self) -> None:
        """Ends the connection, whatever is under way."""
        if self._socket is not None:
            self._socket.close()
        if self._process is None:
            return
        if self._process.poll() is None:
            self._process.kill()
        self._process.wait()
        for stream in (self._process.stdin, self._process.stdout, self._process.stderr):
            try:
                stream.close()
            except OSError:
                pass  # what was not taken any more

    def __enter__(self) -> PipeClient:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def _read_socket(self, timeout: float) -> bytes:
        self._socket.settimeout(timeout)
        received = bytearray()
        while True:
            try:
                piece = self._socket.recv(1 << 20)
            except ConnectionError:
                piece = b""
            if not piece:
                return bytes(received)
            received += piece


def _message(data: bytes) -> Any:
    size = int.from_bytes(data[:4], "little")
    return json.loads(data[4:]) if len(data) >= 4 and len(data) - 4 == size else None


def _start_program(build: str, wineprefix: Path | None, hold: bool,
                   env: Mapping[str, str] | None) -> subprocess.Popen[bytes]:
    program = wine.ROOT / "build" / build / "morva-pipe-client.exe"
    command = wine.command(program, *(["--hold"] if hold else []))
    prefix = wineprefix or wine.default_prefix()
    environment = {**os.environ, **wine.environment(prefix), **(env or {})}
    for _ in range(3):  # one start in 3000 ends without a word under Wine
        process = subprocess.Popen(command, env=environment, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        if process.stderr.readline().strip() == b"connected":
            return process
        process.kill()
        process.wait()
    raise ConnectionError("nobody serves the inspect pipe")


def _connect_socket() -> socket.socket:
    client = socket.socket(socket.AF_UNIX)
    deadline = time.monotonic() + _CONNECT_S
    while client.connect_ex("\0" + PIPE_NAME) != 0:  # the host has only just been started
        if time.monotonic() > deadline:
            raise ConnectionError("nobody serves the inspect pipe")
        time.sleep(0.01)
    return client
