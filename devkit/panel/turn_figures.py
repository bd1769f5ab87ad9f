"""What a turn is measured by: the first token, the speed, the tokens."""

from __future__ import annotations

import time

from .panel_session import Json, PanelEvent


class TurnFigures:
    def __init__(self) -> None:
        self._sent = time.monotonic()
        self._first = 0.0
        self._last = 0.0
        self._deltas = 0
        self._usage: Json = {}

    def note(self, event: PanelEvent, at: float) -> None:
        """`at` is when the event came, which may be long before it is shown."""
        if event.method == "appendAssistantDelta":
            self._last = at
            self._first = self._first or self._last
            self._deltas += 1
        elif event.method == "setTurnLlmUsage":
            self._usage = event.first

    def summary(self) -> str:
        parts = []
        if self._deltas:
            parts.append(f"first token after {(self._first - self._sent) * 1000:.0f} ms")
        if self._deltas > 1 and self._last > self._first:
            speed = (self._deltas - 1) / (self._last - self._first)
            parts.append(f"{speed:.0f} tokens per second")
        if self._usage:
            counts = ((name, self._usage.get(f"{name}_tokens", 0)) for name in _COUNTS)
            parts.append("tokens: " + ", ".join(f"{count} {name}" for name, count in counts))
        return " · ".join(parts) or "no answer"


_COUNTS = ("prompt", "completion", "total")
