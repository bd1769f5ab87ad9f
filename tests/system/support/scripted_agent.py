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

from support.protocol import AGENT, HOST, findings

from devkit.protocol_check.http_messages import body_value, message_name, request_value

COMPLETIONS = "/v1/chat/completions"
MODELS = "/v1/models"
READY = "/ready"
CONSENT = "/v1/chat/consent"

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
        self.headers = [tuple(line.split(": ", 1)) for line in lines if line]
        self.finished = threading.Event()
        self.error = None  # the socket error that ended the answer, when one did

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
        """Breaks the connection off with a reset instead of an orderly end."""
        linger = b"\x01\x00\x00\x00\x00\x00\x00\x00"
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger)
        self.connection.close()


def answers(*args, **kwargs):
    """A handler that gives one fixed ordinary answer."""
    return lambda exchange: exchange.answer(*args, **kwargs)


def streams(*pieces):
    """A handler that streams the pieces and ends."""
    return lambda exchange: exchange.stream(*pieces)


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


class ScriptedAgent:
    """Listens on 127.0.0.1:`port`. `on` maps a path to its handler; unknown paths get 404."""

    def __init__(self, port=8090, turn=None, **handlers):
        self.port = port
        self.cancelled = threading.Event()
        self.on = {
            READY: handlers.get("ready", answers({"ready": True})),
            MODELS: handlers.get("models", answers(MODEL_LIST)),
            CONSENT: handlers.get("consent", cancels),
            COMPLETIONS: turn or streams(delta("hello"), "[DONE]"),
        }
        self.exchanges = []
        self.failures = []
        self._changed = threading.Condition()
        self._connections = set()
        self._listener = socket.create_server(("127.0.0.1", port), backlog=128)
        threading.Thread(target=self._accept, daemon=True).start()

    def turn(self, handler):
        """Sets what the next turns are answered with."""
        self.cancelled.clear()
        self.on[COMPLETIONS] = handler

    def seen(self, path):
        with self._changed:
            return [exchange for exchange in self.exchanges if exchange.path == path]

    def wait_for(self, path, count=1, timeout=15):
        """The `count`-th request for the path, as soon as it has come in."""
        with self._changed:
            arrived = self._changed.wait_for(lambda: len(self._on_path(path)) >= count, timeout)
            assert arrived, f"request {count} for {path} did not come within {timeout} s"
            return self._on_path(path)[count - 1]

    def close(self):
        # A thread blocked in accept keeps a socket alive that is only closed.
        with contextlib.suppress(OSError):
            self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self.cancelled.set()
        with self._changed:
            connections = list(self._connections)
        for connection in connections:
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)
        assert not self.failures, self.failures

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def _on_path(self, path):
        return [exchange for exchange in self.exchanges if exchange.path == path]

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        with self._changed:
            self._connections.add(connection)
        try:
            exchange = self._receive(connection)
            if exchange is not None:
                self._handle(exchange)
        except OSError:
            pass  # hung up in the middle of its request
        finally:
            with self._changed:
                self._connections.discard(connection)
            connection.close()

    def _receive(self, connection):
        data = b""
        while b"\r\n\r\n" not in data:
            piece = connection.recv(65536)
            if not piece:
                return None
            data += piece
        head, _, body = data.partition(b"\r\n\r\n")
        exchange = Exchange(self, connection, head, b"")
        length = int((exchange.header("Content-Length") or ["0"])[0])
        while len(body) < length:
            piece = connection.recv(65536)
            if not piece:
                return None
            body += piece
        exchange.body = body
        findings.message(
            HOST, "agent", message_name(exchange.method, exchange.path),
            request_value(exchange.method, exchange.path, exchange.headers, body))
        return exchange

    def _handle(self, exchange):
        with self._changed:
            self.exchanges.append(exchange)
            self._changed.notify_all()
        handler = self.on.get(exchange.path, answers({"ok": False}, status="404 Not Found"))
        try:
            handler(exchange)
        except OSError as error:
            exchange.error = error
        except Exception as error:  # a mistake in a test's handler must not pass unseen
            self.failures.append(repr(error))
        finally:
            exchange.finished.set()
