"""The official TypeScript SDK's client, driven by sdk_driver.mjs."""

import json
import os
import subprocess
from pathlib import Path

from support import builds
from support.sanitizer_reports import sanitizer_environment

from devkit.panel import wine

MODULES = builds.ROOT / "build" / "mcp_tools" / "node_modules"


def server_command():
    loader = [wine.loader()] if builds.IS_WINDOWS else []
    return [*loader, str(builds.PROGRAM), "--mcp"]


def server_environment():
    added = wine.environment(builds.wine_prefix()) if builds.IS_WINDOWS else {}
    return {**os.environ, **added, **sanitizer_environment()}


class SdkClient:
    def __init__(self):
        self._process = subprocess.Popen(
            ["node", Path(__file__).with_name("sdk_driver.mjs"), MODULES, *server_command()],
            env=server_environment(), stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.greeting = self._read()

    def begin(self, **order):
        self._process.stdin.write(json.dumps(order) + "\n")
        self._process.stdin.flush()

    def finish(self):
        """What came of the order; no error that the SDK reports besides."""
        answer = self._read()
        assert answer.pop("logged") == []
        return answer

    def do(self, **order):
        self.begin(**order)
        return self.finish()

    def close(self):
        self._process.stdin.close()
        return self._process.wait(30)

    def kill(self):
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()

    def _read(self):
        return json.loads(self._process.stdout.readline())
