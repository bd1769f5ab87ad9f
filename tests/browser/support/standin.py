"""The stand-in agent on port 8090, and what tests ask it."""

import json
import urllib.request

from devkit.panel.standin_process import StandInProcess

PORT = 8090


class StandIn:
    def __init__(self):
        self._process = StandInProcess(["--port", str(PORT)])
        self._process.__enter__()

    def end(self):
        self._process.__exit__(None, None, None)

    def kill(self):
        """As a crash would end it."""
        self._process.kill()

    def set(self, **settings):
        """Changes "scenario", "tokens_per_second", "faults"."""
        return self.post("/test/settings", settings)

    def reset(self):
        self.set(scenario="hello", tokens_per_second=0, faults=[])

    @property
    def last_turn(self):
        return self.get("/test/turns")[-1]

    @property
    def running_turns(self):
        return self.get("/test/running")["turns"]

    @property
    def provider(self):
        """The browser tools that were registered last: their address and token."""
        return [each for each in self.get("/test/providers") if each["id"] == "chrome"][-1]

    def get(self, path):
        with urllib.request.urlopen(f"http://127.0.0.1:{PORT}{path}", timeout=30) as answer:
            return json.load(answer)

    def post(self, path, body):
        headers = {"Content-Type": "application/json"}
        request = urllib.request.Request(
            f"http://127.0.0.1:{PORT}{path}", json.dumps(body).encode(), headers)
        with urllib.request.urlopen(request, timeout=60) as answer:
            return json.load(answer)
