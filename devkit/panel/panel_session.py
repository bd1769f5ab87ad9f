"""The panel's end of the connection: requests with ids, replies, events, the debug log."""

from __future__ import annotations

import json
import time
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import IO, Any

from .host_process import HostProcess, HostTimeout
from .standin_browser import StandInBrowser

Json = dict[str, Any]


@dataclass(frozen=True)
class PanelEvent:
    method: str
    args: list[Any]

    @property
    def first(self) -> Json:
        """The one object that most events carry."""
        return self.args[0] if self.args and isinstance(self.args[0], dict) else {}


class Transcript:
    """Every frame in both directions, one line of JSON each."""

    def __init__(self, path: Path | None) -> None:
        self._file: IO[str] | None = path.open("w", encoding="utf-8") if path else None
        self._began = time.monotonic()

    def note(self, direction: str, frame: Any) -> None:
        if self._file:
            at = round(time.monotonic() - self._began, 4)
            self._file.write(json.dumps({"at": at, direction: frame}, ensure_ascii=False) + "\n")
            self._file.flush()


class PanelSession:
    def __init__(self, host: HostProcess, transcript: Transcript) -> None:
        self.host = host
        self.log: list[str] = []
        self._transcript = transcript
        self._last_id = 0
        self._received = 0
        self._browser = StandInBrowser()

    def post(self, kind: str, **members: Any) -> int:
        """Sends a panel message; its reply will carry the id that is returned."""
        self._last_id += 1
        message = {
            "source": "morva-chat", "kind": kind, "chromeRequestId": self._last_id, **members
        }
        self._transcript.note("to host", message)
        self.host.send(message)
        return self._last_id

    @property
    def received_at(self) -> float:
        """When the frame that receive() gave last had come, on the clock of time.monotonic()."""
        return self.host.arrivals[self._received - 1]

    def receive(self, timeout: float) -> Json | None:
        """The next frame; None when none came in time. Lines of the debug log are kept, and the
        browser does what a frame tells it."""
        try:
            frame = self.host.read(timeout)
        except HostTimeout:
            return None
        self._received += 1
        self._transcript.note("from host", frame)
        if self._browser.is_command(frame):
            self._answer(frame)
        for event in events_of(frame):
            if event.method == "appendDebugLog":
                self.log.append(f"{event.first.get('level', '')}: {event.first.get('text', '')}")
        return frame if isinstance(frame, dict) else {}

    def _answer(self, command: Json) -> None:
        answer = self._browser.answer(command)
        self._transcript.note("to host", answer)
        self.host.send(answer)


def events_of(frame: Any) -> Iterator[PanelEvent]:
    if isinstance(frame, dict) and frame.get("kind") == "hostChatEvents":
        for event in frame.get("events", []):
            yield PanelEvent(event["method"], event["args"])
