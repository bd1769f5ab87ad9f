"""An agent whose event streams stay open and say what a test tells them, when it tells them."""

import contextlib
import json
import socket
import threading

from support.builds import IS_WINDOWS
from support.scripted_agent import ScriptedAgent, answers

EVENTS = "/v1/chat/events"
REALTIME_EVENTS = "/v1/realtime/events"
REALTIME_START = "/v1/realtime/start"
REALTIME_STOP = "/v1/realtime/stop"
REALTIME_PTT = "/v1/realtime/ptt"
SPEAK = "/v1/speak"
PROVIDERS = "/v1/host-tool-providers"

_ANSWERED = (PROVIDERS, SPEAK, f"{SPEAK}/stop", f"{SPEAK}/pause", f"{SPEAK}/resume",
             REALTIME_START, REALTIME_STOP, REALTIME_PTT)


class Feed:
    """One open event stream, as the agent holds it."""

    def __init__(self, exchange):
        self.exchange = exchange
        self.path = exchange.path
        self.closed = threading.Event()  # by whichever side

    def send(self, data):
        """Bytes as they are; lost when the host has gone."""
        with contextlib.suppress(OSError):
            self.exchange.send(data)

    def tell(self, method, args, **more):
        event = {"method": method, "args": args, **more}
        self.exchange.note_event(event)
        self.send(f"data: {json.dumps(event)}\n\n".encode())

    def end(self):
        """Ends the stream in order and waits until that has been said."""
        with contextlib.suppress(OSError):
            self.exchange.connection.shutdown(socket.SHUT_RDWR)
        assert self.closed.wait(10)

    def expect_left(self):
        """The host leaves the stream; under Wine nothing wakes a reader whose request is closed."""
        if IS_WINDOWS:
            self.end()
        assert self.closed.wait(10)

    def serve(self):
        try:
            while self.exchange.connection.recv(4096):
                pass
        finally:
            with contextlib.suppress(OSError):
                self.exchange.connection.shutdown(socket.SHUT_RDWR)
            self.closed.set()


class FeedingAgent(ScriptedAgent):
    def __init__(self, port=8090, **handlers):
        self.feeds = []
        super().__init__(port, **handlers)
        self.on |= dict.fromkeys(_ANSWERED, answers({"ok": True}))
        self.on[EVENTS] = self.on[REALTIME_EVENTS] = self._feed

    def feeds_of(self, path=EVENTS):
        return [feed for feed in list(self.feeds) if feed.path.partition("?")[0] == path]

    def wait_feed(self, count=1, path=EVENTS, timeout=15):
        """The `count`-th stream that was opened, as soon as it is."""
        self.wait_until(lambda: len(self.feeds_of(path)) >= count,
                        f"no stream {count} on {path}", timeout)
        return self.feeds_of(path)[count - 1]

    def _feed(self, exchange):
        feed = Feed(exchange)
        exchange.stream(b": open\n\n")
        self.note(self.feeds, feed)
        feed.serve()
