"""One life of the host: started, kept busy by many threads, looked at when at rest, ended."""

from __future__ import annotations

import random
import threading
import time

from actions import ACTORS, OUTLIVES_THE_HOST, Failed
from ledger import LifeOver
from panel import Panel
from support.tool_server_client import ToolServer

REST_TIMEOUT_S = 180.0
# Between two actions of one thread, so that the machine does other things too.
PAUSE_S = (0.02, 0.15)
PAUSE_AFTER_FAILURE_S = (0.2, 0.5)


class Life:
    """What the actions see: `panel`, `agent`, `work`, `ledger`, `random()`, `tool_server()`."""

    def __init__(self, number, seed, host, agent, work, ledger):
        self.number, self.agent, self.work, self.ledger = number, agent, work, ledger
        self._acting = {name: threading.Lock() for name in ACTORS}  # each held during an action
        self._seed = f"{seed}/{number}"
        self._own = threading.local()
        self._over = threading.Event()
        self.panel = Panel(host, number, ledger, random.Random(f"{self._seed}/consent"))
        self._server = None
        self._server_lock = threading.Lock()
        self._actors = [threading.Thread(target=self._act, args=(name,), name=name, daemon=True)
                        for name in ACTORS]

    def begin(self):
        for actor in self._actors:
            actor.start()

    def is_over(self):
        return self._over.is_set()

    def random(self):
        """Of the calling thread, so that its choices depend on the seed alone."""
        return self._own.random

    def tool_server(self):
        with self._server_lock:
            self._server = self._server or ToolServer(self.panel)
            return self._server

    def rest(self, look):
        """Has everything come to its end, and calls `look`."""
        quiet = [each for each in self._acting.values() if each.acquire(timeout=REST_TIMEOUT_S)]
        try:
            if len(quiet) < len(ACTORS):
                self.ledger.fault(f"host {self.number} does not come to rest")
            elif not self.is_over():
                # With an agent known and listened to, as at every other rest.
                self.panel.ask("providerRpc", method="commandEventsSubscribe")
                look()
        finally:
            for each in quiet:
                each.release()

    def end(self):
        """Closes the host's input while whatever is going on goes on. Its exit code."""
        self._over.set()
        code = self.panel.close()
        for actor in self._actors:
            if actor.name not in OUTLIVES_THE_HOST:
                actor.join(REST_TIMEOUT_S)
                if actor.is_alive():
                    self.ledger.fault(f"\"{actor.name}\" of host {self.number} is stuck")
        self.ledger.life_ended(self.number)  # what an actor still asked when nobody was there
        return code

    def _act(self, name):
        self._own.random = random.Random(f"{self._seed}/{name}")
        while not self.is_over():
            with self._acting[name]:
                action = self.random().choice(ACTORS[name])
                try:
                    is_done = self._do(action)
                except LifeOver:
                    return
                except Exception as failure:  # ours; without this thread the run would say less
                    self.ledger.fault(f"\"{action.name}\" broke: {failure!r}")
                    raise
            pause = PAUSE_S if is_done else PAUSE_AFTER_FAILURE_S
            self._over.wait(self.random().uniform(*pause))

    def _do(self, action):
        """Whether it was done; what went wrong is in the ledger then."""
        began = time.monotonic()
        try:
            is_done = action.run(self) is not False
        except (Failed, AssertionError, OSError, ValueError) as failure:
            if self.is_over():
                raise LifeOver from None
            disturbed = action.needs_agent and self.ledger.disturbances.overlap(began)
            (self.ledger.refused if disturbed else self.ledger.unexpected)[action.name] += 1
            if not disturbed:
                print(f"   failed without a reason: {action.name}: {failure}", flush=True)
            return False
        if is_done:
            self.ledger.latencies[action.name].append((time.monotonic() - began) * 1000)
        return is_done
