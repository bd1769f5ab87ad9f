"""One chat turn as a scenario sees it: the prompt, and what can be sent to the host."""

from __future__ import annotations

import asyncio
import re
import time
from typing import Any

from aiohttp import web

from .event_stream import EventStream
from .server_state import Json, ServerState

_TAB_NOTE = re.compile(r"\A\[chrome tab\] [^\n]*\n\n")
_CHOICE = re.compile(r"\A/scenario\s+(\S+)\s*(.*)\Z", re.DOTALL)
_TOKENS_WITHOUT_A_BREAK = 32
_TOKEN = re.compile(r"\s*\S+\s*\Z|\s*\S+")


def tokens_of(text: str) -> list[str]:
    """Words with the space before them; together they are the text."""
    return _TOKEN.findall(text)


def user_prompt(body: Json) -> str:
    """What the user typed, without the note about the tab that the host puts before it."""
    messages = body.get("messages")
    content = messages[-1].get("content", "") if isinstance(messages, list) and messages else ""
    return _TAB_NOTE.sub("", str(content))


def choose_scenario(prompt: str, default: str) -> tuple[str, str]:
    """The scenario and what of the prompt is for it: "/scenario NAME REST" chooses for one turn."""
    if choice := _CHOICE.match(prompt):
        return choice[1], choice[2]
    return default, prompt


class Turn:
    def __init__(
        self, state: ServerState, request: web.Request, body: Json, text: str, stream: EventStream
    ) -> None:
        self.state = state
        self.request = request
        self.body = body
        self.text = text  # the prompt, less the choice of a scenario
        self.stream = stream
        self.model = str(body.get("model", ""))
        self.completion_tokens = 0
        self._began = time.monotonic()

    async def pace(self) -> None:
        """Waits until it is time for the next token."""
        rate = self.state.settings.tokens_per_second
        self.completion_tokens += 1
        if rate > 0:
            due = self._began + self.completion_tokens / rate
            await asyncio.sleep(max(0.0, due - time.monotonic()))
        elif self.completion_tokens % _TOKENS_WITHOUT_A_BREAK == 0:
            await asyncio.sleep(0)  # so that a cancel is heard while we write at full speed

    async def chunk(self, delta: Json, **members: Any) -> None:
        """A completion chunk; `members` replace or add to those of its one choice."""
        choice = {"index": 0, "delta": delta, "finish_reason": None, **members}
        await self.stream.send_json(self._completion([choice]))

    async def say(self, text: str) -> None:
        for token in tokens_of(text):
            await self.pace()
            await self.chunk({"content": token})

    async def think(self, text: str) -> None:
        for token in tokens_of(text):
            await self.pace()
            await self.event("thinking", text=token)

    async def event(self, kind: str, **members: Any) -> None:
        await self.stream.send_json(
            {"object": "morva.event", "type": kind, "model": self.model, **members}
        )

    def usage(self) -> Json:
        prompt = len(tokens_of(user_prompt(self.body)))
        return {
            "prompt_tokens": prompt,
            "completion_tokens": self.completion_tokens,
            "total_tokens": prompt + self.completion_tokens,
        }

    async def finish(self, usage: Json | None = None) -> None:
        """The last chunk, with the usage that was counted when no other is given."""
        choice = {"index": 0, "delta": {}, "finish_reason": "stop"}
        final = self._completion([choice])
        await self.stream.send_json(final | {"usage": self.usage() if usage is None else usage})
        await self.done()

    async def done(self) -> None:
        await self.stream.send_data("[DONE]")

    async def completion(self, choices: list[Json], **members: Any) -> None:
        """A completion object of any shape."""
        await self.stream.send_json(self._completion(choices) | members)

    def _completion(self, choices: list[Json]) -> Json:
        return {
            "id": f"standin-{len(self.state.turns)}",
            "object": "chat.completion.chunk",
            "model": self.model,
            "choices": choices,
        }
