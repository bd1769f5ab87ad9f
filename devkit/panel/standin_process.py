"""Starts and ends the stand-ins: the agent and the desktop application."""

from __future__ import annotations

import json
import subprocess
import sys
import urllib.request
from collections.abc import Sequence
from types import TracebackType
from typing import Any

from .wine import ROOT


class StandInProcess:
    """A stand-in while it is entered; `port` is where it listens. When it is left, what was said
    to it or by it against the protocol raises RuntimeError."""

    def __init__(self, arguments: Sequence[str], module: str = "standin_agent") -> None:
        self._module = module
        self._command = [sys.executable, "-m", module, *arguments]
        self.port = 0

    def __enter__(self) -> StandInProcess:
        self._process = subprocess.Popen(
            self._command,
            cwd=ROOT / "devkit",
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            text=True,
            start_new_session=True,  # Ctrl-C in the terminal is not for the agent
        )
        assert self._process.stdout is not None
        line = self._process.stdout.readline()  # ends when it listens, or dies
        if not line.startswith("ready on port "):
            raise RuntimeError(f"{self._module} ended with code {self._process.wait()}")
        self.port = int(line.split()[-1])
        return self

    def ask(self, path: str, body: object = None) -> Any:
        """What the agent answers on a path below /test/, to a GET or to a POST with a body."""
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{path}", data,
                                         {"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=60) as answer:
            return json.load(answer)

    def kill(self) -> None:
        """Ends it as a crash would; it is then as good as left."""
        self._process.kill()
        self._process.wait()

    def __exit__(
        self,
        _type: type[BaseException] | None,
        _value: BaseException | None,
        _trace: TracebackType | None,
    ) -> None:
        self._process.terminate()
        faults, _ = self._process.communicate()
        if faults.strip():
            raise RuntimeError(f"{self._module}, against the protocol:\n{faults}")
