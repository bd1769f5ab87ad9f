"""What has been found wrong, and who said it."""

from __future__ import annotations

import json
import os
import threading
from collections import deque
from dataclasses import dataclass
from typing import Any

from .message_index import message_fault, name_in, reply_fault

# Everybody who says something on a channel.
HOST = "host"
PANEL = "panel"
EXTENSION = "extension"
AGENT = "agent"
CLIENT = "client"  # of the tool server
PIPE_CLIENT = "pipe client"
APPLICATION = "application"
SIDES = (HOST, PANEL, EXTENSION, AGENT, CLIENT, PIPE_CLIENT, APPLICATION)

_MOST_KEPT = 200

Json = dict[str, Any]


@dataclass(frozen=True)
class Finding:
    side: str
    text: str


class Findings:
    """Collects from any thread."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._kept: list[Finding] = []
        self._published: deque[tuple[Any, Any]] = deque(maxlen=_MOST_KEPT)
        self._recorder = Recorder(os.environ.get("MORVA_PROTOCOL_RECORD"))

    def message(self, side: str, channel: str, name: Any, value: Any) -> None:
        """Holds a message of `side` against its schema."""
        self._recorder.note(channel, name, "message", value)
        self.fault(side, message_fault(channel, name, value))

    def reply(self, side: str, channel: str, name: Any, value: Any) -> None:
        self._recorder.note(channel, name, "reply", value)
        self.fault(side, reply_fault(channel, name, value))

    def fault(self, side: str, text: str) -> None:
        if text:
            with self._lock:
                if len(self._kept) < _MOST_KEPT:
                    self._kept.append(Finding(side, text))

    def published(self, event: Any) -> None:
        """An event that the agent said on a feed, and which the host passes on as it is."""
        if isinstance(event, dict):
            self._published.append((event.get("method"), event.get("args")))

    def event(self, event: Json) -> None:
        """Holds a panel event of the host, or one that it passed on, against its schema."""
        method = event.get("method")
        self._recorder.note("event", method, "message", event)
        if fault := message_fault("event", method, event):
            passed_on = (method, event.get("args")) in self._published
            self.fault(AGENT if passed_on else HOST, fault)

    def take(self) -> list[Finding]:
        """Everything since the last call."""
        with self._lock:
            taken, self._kept = self._kept, []
        return taken


class Recorder:
    """Writes the first messages of each name to a file, when one is named: what the examples of
    docs/protocol.md are made of."""

    _PER_NAME = 8

    def __init__(self, path: str | None) -> None:
        self._path = path
        self._seen: dict[tuple[str, str, str], int] = {}

    def note(self, channel: str, name: Any, part: str, value: Any) -> None:
        if not self._path:
            return
        key = (channel, str(name_in(channel, name)), part)
        self._seen[key] = self._seen.get(key, 0) + 1
        if self._seen[key] <= self._PER_NAME:
            line = {"channel": channel, "name": name, "part": part, "value": value}
            with open(self._path, "a", encoding="utf-8") as file:
                file.write(json.dumps(line, ensure_ascii=True) + "\n")
