"""One life of the host: started, kept busy by many threads, looked at when at rest, ended."""

from __future__ import annotations

import random
import threading
import time
from contextlib import contextmanager

from actions import ACTORS, OUTLIVES_THE_HOST, Failed
from ledger import LifeOver
from panel import Panel
from support.tool_server_client import ToolServer

REST_TIMEOUT_S = 180.0
# Between two actions of one thread, so that the machine does other things too.
PAUSE_S = (0.02, 0.15)
PAUSE_AFTER_FAILURE_S = (0.2, 0.5)


class Gate:
    """Lets threads through, but for when somebody wants quiet: then it waits until all are out."""

    def __init__(self):
        self._changed = threading.Condition()
        self._closed = False
        self._inside = 0

    @contextmanager
    def passage(self, is_over):
        with self._changed:
            while self._closed and not is_over():
                self._changed.wait(0.1)
            self._inside += 1
        try:
            yield
        finally:
            with self._changed:
                self._inside -= 1
                self._changed.notify_all()

    @contextmanager
    def quiet(self, timeout):
        """Gives whether all came out in time."""
        with self._changed:
            self._closed = True
            is_quiet = self._changed.wait_for(lambda: self._inside == 0, timeout)
        try:
            yield is_quiet
        finally:
            with self._changed:
                self._closed = False
                self._changed.notify_all()


class Life:
    """What the actions see: `panel`, `agent`, `work`, `ledger`, `random()`, `tool_server()`."""

    def __init__(self, number, seed, host, agent, work, ledger):
        self.number = number
        self.agent = agent
        self.work = work
        self.ledger = ledger
        self.gate = Gate()
        self._seed = seed
        self._own = threading.local()
        self._own.random = random.Random(f"{seed}/{number}")
        self._over = threading.Event()
        self.panel = Panel(host, number, ledger, random.Random(f"{seed}/{number}/consent"))
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
            if self._server is None:
                self._server = ToolServer(self.panel)
            return self._server

    def rest(self, look):
        """Has everything come to its end, and calls `look`."""
        with self.gate.quiet(REST_TIMEOUT_S) as is_quiet:
            if not is_quiet:
                self.ledger.fault(f"host {self.number} does not come to rest")
            elif not self.is_over():
                # With an agent known and listened to, as at every other rest.
                self.panel.ask("providerRpc", method="commandEventsSubscribe")
                look()

    def end(self):
        """Closes the host's input while whatever is going on goes on. Its exit code."""
        self._over.set()
        code = self.panel.close()
        for actor in self._actors:
            if actor.name in OUTLIVES_THE_HOST:
                continue
            actor.join(REST_TIMEOUT_S)
            if actor.is_alive():
                self.ledger.fault(f"\"{actor.name}\" of host {self.number} is stuck")
        self.ledger.life_ended(self.number)  # what an actor still asked when nobody was there
        return code

    def _act(self, name):
        self._own.random = random.Random(f"{self._seed}/{self.number}/{name}")
        while not self.is_over():
            with self.gate.passage(self.is_over):
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
            if action.run(self) is not False:
                self.ledger.measured(action.name, time.monotonic() - began)
                return True
        except LifeOver:
            raise
        except (Failed, AssertionError, OSError, ValueError) as failure:
            if self.is_over():
                raise LifeOver from None
            now = time.monotonic()
            disturbed = action.needs_agent and self.ledger.disturbances.overlap(began, now)
            self.ledger.failed(action.name, disturbed)
            if not disturbed:
                print(f"   failed without a reason: {action.name}: {failure}", flush=True)
        return False
