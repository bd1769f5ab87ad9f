"""The client of the official TypeScript SDK, driven by sdk_driver.mjs; set up by `./dev setup`."""

from __future__ import annotations

import json
import os
import subprocess
from collections.abc import Mapping
from pathlib import Path
from typing import Any

from . import wine

MODULES = wine.ROOT / "build" / "mcp_tools" / "node_modules"


class SdkClient:
    """One run of the client, which starts the server by `command`."""

    def __init__(self, command: list[str], environment: Mapping[str, str]) -> None:
        driver = Path(__file__).with_name("sdk_driver.mjs")
        self._process = subprocess.Popen(
            ["node", str(driver), str(MODULES), *command], env={**os.environ, **environment},
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.greeting = self._read()

    def begin(self, **order: Any) -> None:
        """Has the client do something; sdk_driver.mjs says what."""
        assert self._process.stdin is not None
        self._process.stdin.write(json.dumps(order) + "\n")
        self._process.stdin.flush()

    def finish(self) -> Any:
        """What came of it. The SDK must have had nothing to complain of."""
        answer = self._read()
        assert answer.pop("logged") == []
        return answer

    def do(self, **order: Any) -> Any:
        self.begin(**order)
        return self.finish()

    def close(self) -> int:
        assert self._process.stdin is not None
        self._process.stdin.close()
        return self._process.wait(30)

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()
        for stream in (self._process.stdin, self._process.stdout):
            if stream is not None:
                stream.close()

    def _read(self) -> Any:
        assert self._process.stdout is not None
        return json.loads(self._process.stdout.readline())
