"""An agent on a raw socket, for answers that no decent HTTP library would give.

Each path has a handler, a plain function that gets the Exchange and writes whatever bytes it likes.
Every connection has a thread of its own; everything that was asked is kept for the test to look at.
"""

import contextlib
import json
import select
import socket
import threading
import time

from support.builds import IS_WINDOWS
from support.listener import Listener, receive_request, reset
from support.protocol import AGENT, HOST, findings

from devkit.protocol_check.http_messages import body_value, message_name, request_value

COMPLETIONS = "/v1/chat/completions"
MODELS = "/v1/models"
READY = "/ready"
CONSENT = "/v1/chat/consent"
EVENTS = "/v1/chat/events"
RUN = "/v1/chat/commands/run"
PROVIDERS = "/v1/host-tool-providers"
REALTIME_EVENTS = "/v1/realtime/events"
REALTIME_START = "/v1/realtime/start"
REALTIME_STOP = "/v1/realtime/stop"
REALTIME_PTT = "/v1/realtime/ptt"
SPEAK = "/v1/speak"

# What is answered with no more than that it is well.
_OK = (PROVIDERS, SPEAK, f"{SPEAK}/stop", f"{SPEAK}/pause", f"{SPEAK}/resume",
       REALTIME_START, REALTIME_STOP, REALTIME_PTT)

MODEL_LIST = {"object": "list", "data": [{"id": "plain", "morva_is_default": True}]}

# How long a handler holds a connection that nobody ends.
LONGEST_HOLD_SECONDS = 30

STREAM_HEAD = b"HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n"


def event_bytes(data):
    """One event block: `data` is JSON to send, or the text of the data line as it is."""
    text = data if isinstance(data, str) else json.dumps(data)
    return f"data: {text}\n\n".encode()


def delta(content, **more):
    """A completion chunk with one piece of the answer."""
    return {"choices": [{"delta": {"content": content}}], **more}


def agent_event(kind, **keys):
    return {"object": "morva.event", "type": kind, **keys}


class Exchange:
    """One request as it came in, and the socket to answer it on."""

    def __init__(self, agent, connection, head, body):
        self.agent = agent
        self.connection = connection
        self.head = head
        self.body = body
        request_line, *lines = head.decode("latin-1").split("\r\n")
        self.method, self.path, self.version = request_line.split(" ", 2)
        self.headers = [(name, value) for name, _, value in
                        (line.partition(": ") for line in lines if line)]
        self.finished = threading.Event()

    def header(self, name):
        """All values of a header."""
        return [value for key, value in self.headers if key.lower() == name.lower()]

    def json(self):
        return json.loads(self.body)

    def send(self, data):
        """Bytes as they are: nobody holds them against the protocol."""
        self.connection.sendall(data)

    def answer(self, body=b"", status="200 OK", headers=()):
        """A whole ordinary answer; `body` is bytes, or something to send as JSON."""
        data = body if isinstance(body, bytes) else json.dumps(body).encode()
        findings.reply(AGENT, "agent", message_name(self.method, self.path),
                       {"status": int(status.split()[0]), "body": body_value(data)})
        lines = [f"HTTP/1.1 {status}", f"Content-Length: {len(data)}", "Connection: close"]
        lines += [f"{name}: {value}" for name, value in headers]
        self.send("\r\n".join(lines).encode() + b"\r\n\r\n" + data)

    def stream(self, *pieces):
        """The head of an event stream, then the pieces: bytes as they are, the rest as events."""
        self.send(STREAM_HEAD)
        self.more(*pieces)

    def more(self, *pieces):
        for piece in pieces:
            if not isinstance(piece, bytes):
                self.note_event(piece)
            self.send(piece if isinstance(piece, bytes) else event_bytes(piece))

    def note_event(self, event):
        """Holds an event that is about to be sent against the protocol."""
        value = body_value(event.encode()) if isinstance(event, str) else event
        findings.published(value)
        findings.message(AGENT, "agentStream", self.path.partition("?")[0], value)

    def hold(self):
        """Waits until the client hangs up, or the agent is told to cancel."""
        deadline = time.monotonic() + LONGEST_HOLD_SECONDS
        while time.monotonic() < deadline and not self.agent.cancelled.is_set():
            readable, _, _ = select.select([self.connection], [], [], 0.02)
            if readable and not self.connection.recv(4096):
                return

    def reset(self):
        reset(self.connection)


def answers(*args, **kwargs):
    """A handler that gives one fixed ordinary answer."""
    return lambda exchange: exchange.answer(*args, **kwargs)


def streams(*pieces):
    """A handler that streams the pieces and ends."""
    return lambda exchange: exchange.stream(*pieces)


def sends(*pieces, then_resets=False):
    """A handler that sends bytes as they are and ends the connection."""

    def handler(exchange):
        for piece in pieces:
            exchange.send(piece)
        if then_resets:
            exchange.reset()

    return handler


resets = sends(then_resets=True)


def streams_then_holds(*pieces):
    """A handler that streams the pieces and then says nothing more."""

    def handler(exchange):
        exchange.stream(*pieces)
        exchange.hold()

    return handler


def holds(exchange):
    """A handler that accepts and never answers."""
    exchange.hold()


def cancels(exchange):
    exchange.agent.cancelled.set()
    exchange.answer({"ok": True})


class Feed:
    """One open event stream, as the agent holds it: it says what a test tells it to."""

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
        self.send(event_bytes(event))

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


class ScriptedAgent(Listener):
    """Listens on 127.0.0.1:`port`. `on` maps a path, or one without its query, to its handler;
    unknown paths get 404. Event streams are kept open as `feeds`."""

    def __init__(self, port=8090, turn=None, **handlers):
        self.cancelled = threading.Event()
        self.feeds = []
        self.on = dict.fromkeys(_OK, answers({"ok": True})) | {
            READY: handlers.get("ready", answers({"ready": True})),
            MODELS: handlers.get("models", answers(MODEL_LIST)),
            CONSENT: handlers.get("consent", cancels),
            COMPLETIONS: turn or streams(delta("hello"), "[DONE]"),
            EVENTS: self._feed, REALTIME_EVENTS: self._feed,
        }
        self.exchanges = []
        self._changed = threading.Condition()
        super().__init__(port)

    def turn(self, handler):
        """Sets what the next turns are answered with."""
        self.cancelled.clear()
        self.on[COMPLETIONS] = handler

    def seen(self, path):
        return [exchange for exchange in list(self.exchanges) if exchange.path == path]

    def wait_until(self, test, what, timeout=15):
        """Until the test is true, which is asked with each request and each event stream."""
        with self._changed:
            assert self._changed.wait_for(test, timeout), f"{what} within {timeout} s"

    def wait_for(self, path, count=1, timeout=15):
        """The `count`-th request for the path, as soon as it has come in."""
        self.wait_until(lambda: len(self.seen(path)) >= count, f"no request {count} for {path}",
                        timeout)
        return self.seen(path)[count - 1]

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

    def close(self):
        self.cancelled.set()
        super().close()

    def serve(self, connection):
        request = receive_request(connection)
        if request is None:
            return
        exchange = Exchange(self, connection, *request)
        findings.message(
            HOST, "agent", message_name(exchange.method, exchange.path),
            request_value(exchange.method, exchange.path, exchange.headers, exchange.body))
        self.note(self.exchanges, exchange)
        handler = self.on.get(exchange.path) or self.on.get(
            exchange.path.partition("?")[0], answers({"ok": False}, status="404 Not Found"))
        try:
            handler(exchange)
        finally:
            exchange.finished.set()

    def note(self, where, what):
        with self._changed:
            where.append(what)
            self._changed.notify_all()
