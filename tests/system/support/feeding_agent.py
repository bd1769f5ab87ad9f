"""An agent whose event streams stay open and say what a test tells them, when it tells them."""

import contextlib
import json
import select
import threading

from support.scripted_agent import ScriptedAgent, answers

EVENTS = "/v1/chat/events"
REALTIME_EVENTS = "/v1/realtime/events"
SPEAK = "/v1/speak"
PROVIDERS = "/v1/host-tool-providers"

_LOOK_SECONDS = 0.02


def feed_bytes(method, args, **more):
    """One event of a feed as the agent writes it."""
    return f"data: {json.dumps({'method': method, 'args': args, **more})}\n\n".encode()


class Feed:
    """One open event stream, as the agent holds it."""

    def __init__(self, exchange):
        self.exchange = exchange
        self.path = exchange.path
        self.closed = threading.Event()  # by whichever side
        self._over = threading.Event()

    def send(self, data):
        """False when the host has gone."""
        try:
            self.exchange.send(data)
        except OSError:
            return False
        return True

    def tell(self, method, args, **more):
        self.exchange.note_event({"method": method, "args": args, **more})
        return self.send(feed_bytes(method, args, **more))

    def end(self):
        """Ends the stream in order and waits until that has been said."""
        self._over.set()
        assert self.closed.wait(10)

    def serve(self):
        connection = self.exchange.connection
        try:
            while not self._over.is_set():
                readable, _, _ = select.select([connection], [], [], _LOOK_SECONDS)
                if readable and not connection.recv(4096):
                    return
        finally:
            with contextlib.suppress(OSError):
                connection.shutdown(2)
            self.closed.set()


class _Paths(dict):
    """Handlers by path; one that is named without its query answers every query."""

    def get(self, path, default=None):
        return super().get(path) or super().get(path.partition("?")[0], default)


class FeedingAgent(ScriptedAgent):
    def __init__(self, port=8090, **handlers):
        self.feeds = []
        self._feeds_changed = threading.Condition()
        super().__init__(port, **handlers)
        self.on = _Paths(self.on)
        ok = answers({"ok": True})
        for path in (PROVIDERS, SPEAK, f"{SPEAK}/stop", f"{SPEAK}/pause", f"{SPEAK}/resume",
                     "/v1/realtime/start", "/v1/realtime/stop", "/v1/realtime/ptt"):
            self.on[path] = ok
        self.on[EVENTS] = self.on[REALTIME_EVENTS] = self._feed

    def feeds_of(self, path=EVENTS):
        with self._feeds_changed:
            return [feed for feed in self.feeds if feed.path.partition("?")[0] == path]

    def open_feeds(self, path=EVENTS):
        return [feed for feed in self.feeds_of(path) if not feed.closed.is_set()]

    def wait_feed(self, count=1, path=EVENTS, timeout=15):
        """The `count`-th stream that was opened, as soon as it is."""
        with self._feeds_changed:
            assert self._feeds_changed.wait_for(
                lambda: len(self._opened(path)) >= count, timeout), (
                f"{len(self._opened(path))} of {count} streams on {path}")
            return self._opened(path)[count - 1]

    def close(self):
        for feed in list(self.feeds):
            feed._over.set()
        super().close()

    def _opened(self, path):
        return [feed for feed in self.feeds if feed.path.partition("?")[0] == path]

    def _feed(self, exchange):
        feed = Feed(exchange)
        exchange.stream(b": open\n\n")
        with self._feeds_changed:
            self.feeds.append(feed)
            self._feeds_changed.notify_all()
        feed.serve()
