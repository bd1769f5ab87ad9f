"""The frames of one host, both ways: each is held against its schema, each reply against that of
the message which it answers."""

from __future__ import annotations

import json
import struct
import threading
from collections.abc import Iterable
from typing import Any

from .findings import EXTENSION, HOST, PANEL, PIPE_CLIENT, Findings
from .message_index import reply_fault

_SOURCE = "morva-chat"
_LONGEST_ECHO = 1024 // 4  # characters that surely fit into a reply that was too large
_HEADER = struct.Struct("<I")

Json = dict[str, Any]


def _token(message: Json) -> str | None:
    """What pairs a message with its reply. The host reads half a surrogate pair as U+FFFD."""
    if "chromeRequestId" not in message:
        return None
    text = json.dumps(message["chromeRequestId"], sort_keys=True, ensure_ascii=False)
    return text.encode("utf-16", "surrogatepass").decode("utf-16", "replace")


class HostTraffic:
    """`sent` may be called from any thread, the rest from one at a time."""

    def __init__(self, findings: Findings) -> None:
        self._findings = findings
        self._lock = threading.Lock()
        self._bytes = bytearray()  # on their way to the host, not yet looked at
        self._asked: dict[str, list[tuple[str, Any]]] = {}  # by token: channel and name
        self._asked_without_token: set[tuple[str, Any]] = set()
        self._commands: set[str] = set()
        self._unreadable = False  # something was sent of which we cannot tell what it asks

    def sent(self, data: bytes) -> None:
        """Bytes that were written to the host's standard input."""
        with self._lock:
            self._bytes += data

    def check(self, received: Iterable[Any]) -> None:
        """Looks at what was sent since the last call, and at frames that came from the host."""
        received = list(received)
        for frame in received:
            if isinstance(frame, dict) and frame.get("command") == "browserUse":
                self._commands.add(str(frame.get("requestId")))
        for body in self._take_bodies():
            self._take_sent(body)
        for frame in received:
            self.from_host(frame)

    # --- to the host ---

    def _take_bodies(self) -> list[bytes]:
        bodies, start = [], 0
        with self._lock:
            while len(self._bytes) - start >= _HEADER.size:
                (length,) = _HEADER.unpack_from(self._bytes, start)
                end = start + _HEADER.size + length
                if end > len(self._bytes):
                    break
                bodies.append(bytes(self._bytes[start + _HEADER.size:end]))
                start = end
            del self._bytes[:start]
        return bodies

    def _take_sent(self, body: bytes) -> None:
        try:
            message = json.loads(body.decode("utf-8")) if body else {}
        except (ValueError, RecursionError) as error:
            self._unreadable = True
            self._findings.fault(PANEL, f"a frame to the host is not JSON ({error}): {body[:80]!r}")
            return
        self.to_host(message)

    def to_host(self, message: Any) -> None:
        if isinstance(message, dict) and message.get("source") == _SOURCE:
            self._take_panel_message(message)
        elif isinstance(message, dict) and "ok" in message and "requestId" in message:
            own = str(message["requestId"]) in self._commands
            name = ("browser", "browserUse") if own else ("pipe", "request")
            self._findings.reply(EXTENSION, *name, message)
        else:
            self._findings.fault(PANEL, "a frame to the host is neither a panel message nor an "
                                        f"answer: {json.dumps(message)[:200]}")

    def _take_panel_message(self, message: Json) -> None:
        kind = message.get("kind", "")
        asked = ("providerRpc", message.get("method", "")) if kind == "providerRpc" else (
            "panel", kind)
        self._findings.message(PANEL, *asked, message)
        token = _token(message)
        if token is not None:
            self._asked.setdefault(token, []).append(asked)
        if (token is None or len(token) > _LONGEST_ECHO) and isinstance(asked[1], str):
            self._asked_without_token.add(asked)

    # --- from the host ---

    def from_host(self, frame: Any) -> None:
        if isinstance(frame, dict) and frame.get("command") == "browserUse":
            self._findings.message(HOST, "browser", "browserUse", frame)
        elif not isinstance(frame, dict) or "source" not in frame:
            # All that the host says itself has a source: this came through the inspect pipe.
            self._findings.message(PIPE_CLIENT, "pipe", "request", frame)
        elif (token := _token(frame)) is not None:
            self._take_reply(token, frame)
        elif frame.get("kind") == "hostStatus" or (
                frame.get("kind") == "hostChatEvents" and "ok" not in frame):
            self._findings.message(HOST, "host", frame["kind"], frame)
            for event in frame.get("events", ()):
                self._take_event(event)
        else:
            self._take_unnamed_reply(frame)

    def _take_event(self, event: Any) -> None:
        """One of the host's own, or one that the agent published, which may have any name."""
        if not isinstance(event, dict):
            self._findings.fault(HOST, f"an event that is no object: {event}")
        elif "id" in event or "sender" in event:
            self._findings.message(HOST, "event", "other", event)
        else:
            self._findings.event(event)

    def _take_reply(self, token: str, frame: Json) -> None:
        asked = self._asked.get(token)
        if asked:
            self._findings.reply(HOST, *asked.pop(0), frame)
        elif not self._unreadable:
            self._findings.fault(HOST, f"a reply that nobody asked for, or a second one: "
                                       f"{json.dumps(frame)[:200]}")

    def _take_unnamed_reply(self, frame: Json) -> None:
        """A reply to a message without a token: it must fit one of those that were sent."""
        faults = [reply_fault(*asked, frame) for asked in self._asked_without_token]
        if not faults and not self._unreadable:
            self._findings.fault(HOST, f"a frame that answers nothing: {json.dumps(frame)[:200]}")
        elif faults and all(faults):
            self._findings.fault(HOST, faults[0])
