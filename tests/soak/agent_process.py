"""The stand-in agent of a soak run: it can crash, and comes back."""

from __future__ import annotations

import http.client
import json
import threading
import urllib.request

from devkit.panel.standin_process import StandInProcess

PORT = 8090
TOKENS_PER_SECOND = 400  # slow enough for a stop or a crash to fall into a turn
_ANSWER_TIMEOUT_S = 60


class AgentProcess:
    def __init__(self):
        self.crashes = 0
        self._published = 0
        self._publishing = threading.Lock()
        self.start()

    def start(self):
        for last in (False, False, False, True):  # its port may be a moment late to be free
            try:
                self._process = StandInProcess(["--port", str(PORT), "--tokens-per-second",
                                                str(TOKENS_PER_SECOND)]).__enter__()
                return
            except RuntimeError:
                if last:
                    raise

    def crash(self):
        """Ends without a word to anybody: connections are reset, what it knew is gone."""
        self.crashes += 1
        self._process.kill()

    def end(self):
        self._process.kill()

    def ask(self, path, body=None):
        """A JSON answer of the agent itself; None when it is not there."""
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(
            f"http://127.0.0.1:{PORT}{path}", data, {"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=_ANSWER_TIMEOUT_S) as answer:
                return json.load(answer)
        except (OSError, http.client.HTTPException, ValueError):  # it dies in the midst of it, too
            return None

    def publish(self):
        """Sends a numbered event to every host that listens. Its number and how many listened, as
        seen before; None when the agent is not there."""
        with self._publishing:
            running = self.ask("/test/running")
            self._published += 1
            event = {"method": "soakEvent", "args": [{"number": self._published}]}
            if running is None or self.ask("/test/events", event) is None:
                return None
            return self._published, running["events"]
