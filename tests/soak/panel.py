"""The browser's side of one host: many threads ask, one takes what comes."""

from __future__ import annotations

import threading

from devkit.panel.host_process import HostError, HostTimeout
from devkit.panel.panel_session import events_of
from devkit.panel.standin_browser import StandInBrowser

from ledger import REPLY_TIMEOUT_S, LifeOver

PIPE_COMMAND = "soakPipe"  # what local programs say, who get back what they sent


class Panel:
    """Its `ask` is what the clients of the system tests want of a panel, too."""

    def __init__(self, host, life, ledger, random):
        self.host, self.life, self.ledger, self._random = host, life, ledger, random
        self._browser = StandInBrowser()
        self._sending = threading.Lock()
        self._ending = False
        self._pump = threading.Thread(target=self._take_all, daemon=True)
        self._pump.start()

    def post(self, kind, **members):
        """Sends a message; what comes of it is the ledger's."""
        number, pending = self.ledger.expect_reply(kind, self.life)
        self._send({"source": "morva-chat", "kind": kind, "chromeRequestId": number, **members})
        return pending

    def ask(self, kind, **members):
        """Sends a message and waits for its reply."""
        return self.reply_to(self.post(kind, **members))

    def reply_to(self, pending):
        if not pending.done.wait(REPLY_TIMEOUT_S):
            self.ledger.fault(f"no reply to \"{pending.kind}\" within {REPLY_TIMEOUT_S:.0f} s")
            raise LifeOver
        if pending.cut:
            raise LifeOver
        return pending.reply

    def close(self):
        """Closes the host's input, at whatever moment that is; its exit code."""
        self._ending = True
        with self._sending:
            self.host.close_stdin()
        try:
            return self.host.wait(60)
        finally:
            self._pump.join(30)
            self.ledger.life_ended(self.life)

    def _send(self, message):
        try:
            with self._sending:
                self.host.send(message)
        except (OSError, ValueError) as error:  # its input is closed, by us or by its end
            if not self._ending:
                self.ledger.fault(f"host {self.life} takes no more messages: {error}")
            raise LifeOver from None

    def _take_all(self):
        while True:
            try:
                self._take(self.host.read(1))
            except HostTimeout:
                continue
            except LifeOver:
                pass  # what is still to come is counted, but answered no more
            except HostError as error:
                if not self._ending:
                    self.ledger.fault(f"host {self.life} ended by itself: {error}")
                    self.ledger.life_ended(self.life)
                return

    def _take(self, frame):
        if not isinstance(frame, dict):
            self.ledger.fault(f"a frame that is no object: {str(frame)[:200]}")
            return
        if "chromeRequestId" in frame:
            self.ledger.note_reply(self.life, frame)
        for event in events_of(frame):
            self.ledger.note_event(self.life, event)
            if event.method == "consentRequest":
                allow = self._random.random() < 0.5
                self.post("consentReply", id=event.first.get("id"), allow=allow)
        if self._browser.is_command(frame):
            self._send(self._browser.answer(frame))
        if frame.get("command") == PIPE_COMMAND:
            self._send({"requestId": frame["requestId"], "ok": True, "text": frame["text"]})
