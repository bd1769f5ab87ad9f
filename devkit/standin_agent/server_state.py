"""What the server knows: its settings, what it was asked, what is running."""

from __future__ import annotations

import asyncio
import copy
import time
from dataclasses import dataclass, field
from typing import Any

from aiohttp import web

from .sample_library import SESSIONS
from .spoken_text import SpokenText

Json = dict[str, Any]


@dataclass
class Settings:
    scenario: str = "hello"
    tokens_per_second: float = 0
    faults: dict[str, str] = field(default_factory=dict)  # name to value, "" without one


@dataclass
class TurnRecord:
    """One completions request, as tests see it."""

    body: Json
    scenario: str = ""
    ended: str = ""  # "", then "finished", "cancelled", "dropped" or "disconnected"


class ServerState:
    def __init__(self, settings: Settings) -> None:
        self.settings = settings
        self.started_at = time.monotonic()
        self.requests: list[Json] = []
        self.providers: list[Json] = []
        self.turns: list[TurnRecord] = []
        self.running: set[asyncio.Task[None]] = set()
        self.consent_questions: dict[str, asyncio.Future[Json]] = {}
        self.chat_events: list[Json] = []
        self.event_listeners: set[asyncio.Queue[Json | None]] = set()
        self.sessions: dict[str, Json] = {each["id"]: copy.deepcopy(each) for each in SESSIONS}
        self.speaking: set[SpokenText] = set()
        self.voice: asyncio.Queue[Json | None] | None = None  # None: no voice session runs

    def cancel_turns(self) -> int:
        """Ends every stream that is running; their number."""
        running = list(self.running)
        for task in running:
            task.cancel()
        return len(running)

    def publish_event(self, event: Json) -> None:
        event["id"] = len(self.chat_events) + 1
        self.chat_events.append(event)
        for listener in self.event_listeners:
            listener.put_nowait(event)

    def end_voice(self) -> None:
        if self.voice is not None:
            self.voice.put_nowait(None)
        self.voice = None

    def end_everything(self) -> None:
        self.cancel_turns()
        self.end_voice()
        for spoken in self.speaking:
            spoken.stop()
        for listener in self.event_listeners:
            listener.put_nowait(None)


STATE = "state"


def state_of(request: web.Request) -> ServerState:
    state: ServerState = request.app[STATE]
    return state
