"""One life of the host: kept busy by many threads, while one takes what it says; looked at when at
rest; ended."""

from __future__ import annotations

import contextlib
import functools
import http.client
import random
import threading
import time

from devkit.panel.host_process import HostError, HostTimeout
from devkit.panel.panel_session import events_of
from devkit.panel.standin_browser import StandInBrowser

from actions import ACTIONS, LARGE_PAGE, NEED_NO_AGENT, OUTLIVES_THE_HOST, PIPE_COMMAND
from ledger import Ledger, LifeOver, numbers
from support.tool_server_client import ToolServer

REST_TIMEOUT_S = 180.0
# Between two actions of one thread, so that the machine does other things too.
PAUSE_S = (0.02, 0.15)
PAUSE_AFTER_FAILURE_S = (0.2, 0.5)
LARGE_PAGE_ITEMS = [{"ref": f"e{number}", "role": "link", "name": "lamp " * 100}
                    for number in range(20_000)]


class Life:
    """Its `ask` is what the clients of the system tests want of a panel, too."""

    def __init__(self, number, seed, host, agent, work, record, actors, preset):
        self.number, self.host, self.agent, self.work = number, host, agent, work
        self.record, self.ledger = record, Ledger(record, number)
        self.over = threading.Event()
        self.preset = preset  # of its turns
        self.took = 0.0  # seconds from the end of its input to its own
        self._seed = f"{seed}/{number}"
        self._browser = StandInBrowser()
        self._sending = threading.Lock()
        self._actions = actors
        self._acting = {name: threading.Lock() for name in actors}  # each held during an action
        self._pump = threading.Thread(target=self._take_all, daemon=True)
        self._actors = [threading.Thread(target=self._act, args=(name,), name=name, daemon=True)
                        for name in actors]
        for thread in [self._pump, *self._actors]:
            thread.start()

    @functools.cached_property
    def tool_server(self):
        return ToolServer(self)

    def post(self, kind, **members):
        """Sends a message; its reply is the ledger's to await."""
        number = next(numbers)
        awaited = self.ledger.expect_reply(number, kind)
        self._send({"source": "morva-chat", "kind": kind, "chromeRequestId": number, **members})
        return awaited

    def ask(self, kind, **members):
        """Sends a message and waits for its reply."""
        awaited = self.post(kind, **members)
        self.ledger.wait(awaited)
        return awaited.reply

    def rest(self, look):
        """Has everything come to its end, and calls `look`."""
        quiet = [each for each in self._acting.values() if each.acquire(timeout=REST_TIMEOUT_S)]
        try:
            if len(quiet) < len(self._acting):
                self.ledger.fault("it does not come to rest")
            elif not self.over.is_set():
                # With an agent known and listened to, as at every other rest.
                self.ask("providerRpc", method="commandEventsSubscribe")
                look()
        finally:
            for each in quiet:
                each.release()

    def end(self, late_seconds, last_words, killed=False):
        """Closes the host's input while whatever is going on goes on, after so many last messages,
        whose replies are read late; or both pipes at once, in the midst of a message, as the end of
        a browser that is killed. Its exit code."""
        self.over.set()
        self.host.pause_reading()
        with contextlib.suppress(LifeOver):  # it has ended by itself
            for _ in range(last_words):
                self.post("getStatus")
        with self._sending:
            if killed:
                self.host.close_stdout()
                with contextlib.suppress(OSError):
                    self.host.send_raw(b"\xff\0\0\0{")
            self.host.close_stdin()
        began = time.monotonic()
        time.sleep(late_seconds)
        self.host.resume_reading()
        try:
            return self.host.wait(60)
        finally:
            self.took = (self.host.ended_at or time.monotonic()) - began
            self._pump.join(30)
            self.ledger.close()
            for actor in self._actors:
                if actor.name not in OUTLIVES_THE_HOST:
                    actor.join(REST_TIMEOUT_S)
                    if actor.is_alive():
                        self.ledger.fault(f'"{actor.name}" is stuck')
            self.ledger.close()  # what an actor still asked when nobody was there

    # --- What the host says ---

    def _send(self, message):
        try:
            with self._sending:
                self.host.send(message)
        except (OSError, ValueError) as error:  # its input is closed, by us or by its end
            if not self.over.is_set():
                self.ledger.fault(f"it takes no more messages: {error}")
            raise LifeOver from None

    def _take_all(self):
        answers = random.Random(f"{self._seed}/consent")
        while True:
            try:
                self._take(self.host.read(1), answers)
            except HostTimeout:
                continue
            except LifeOver:
                pass  # what is still to come is counted, but answered no more
            except HostError as error:
                if not self.over.is_set():
                    self.ledger.fault(f"it ended by itself: {error}")
                    self.ledger.close()
                return

    def _take(self, frame, answers):
        if not isinstance(frame, dict):
            return self.ledger.fault(f"a frame that is no object: {str(frame)[:200]}")
        self.ledger.note(frame)
        for event in events_of(frame):
            if event.method == "consentRequest":
                self.post("consentReply", id=event.first.get("id"), allow=answers.random() < 0.5)
        if self._browser.is_command(frame):
            answer = self._browser.answer(frame)
            if frame["payload"]["arguments"].get("query") == LARGE_PAGE:
                answer["data"]["data"]["items"] = LARGE_PAGE_ITEMS
            self._send(answer)
        if frame.get("command") == PIPE_COMMAND:
            self._send({"requestId": frame["requestId"], "ok": True, "text": frame["text"]})

    # --- What is done with it ---

    def _act(self, name):
        own = random.Random(f"{self._seed}/{name}")  # so that its choices depend on the seed alone
        while not self.over.is_set():
            with self._acting[name]:
                action = own.choice(self._actions[name])
                try:
                    is_done = self._do(action, own)
                except LifeOver:
                    return
                except Exception as failure:  # ours; without this thread the run would say less
                    self.ledger.fault(f'"{action}" broke: {failure!r}')
                    raise
            self.over.wait(own.uniform(*(PAUSE_S if is_done else PAUSE_AFTER_FAILURE_S)))

    def _do(self, action, own):
        """Whether it was done; what went wrong is in the record then."""
        began = time.monotonic()
        try:
            is_done = ACTIONS[action](self, own) is not False
        except (AssertionError, OSError, ValueError, http.client.HTTPException) as failure:
            if self.over.is_set():
                raise LifeOver from None
            disturbed = action not in NEED_NO_AGENT and self.record.disturbed_until >= began
            (self.record.refused if disturbed else self.record.unexpected)[action] += 1
            if not disturbed:
                print(f"   failed without a reason: {action}: {failure}", flush=True)
            return False
        if is_done:
            self.record.times[action].append((time.monotonic() - began) * 1000)
        return is_done
