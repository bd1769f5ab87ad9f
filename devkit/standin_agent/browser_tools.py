"""The agent's side of the browser tools: calls the provider that the host has registered."""

from __future__ import annotations

import json
import time
from types import TracebackType
from typing import Any

import aiohttp

from .chat_turn import Turn
from .protocol_watch import hold_tool_call
from .server_state import Json

_PROVIDER = "chrome"
_LONGEST_CALL_S = 40


class ToolFailed(Exception):
    """A tool gave no result where the scenario needs one."""


class BrowserTools:
    """The registered tools while it is entered; the turn shows each run."""

    def __init__(self, turn: Turn) -> None:
        self._turn = turn
        self._calls = 0

    async def __aenter__(self) -> BrowserTools:
        offers = [each for each in self._turn.state.providers if each.get("id") == _PROVIDER]
        if not offers:
            raise ToolFailed("the host has offered no browser tools")
        self._url = str(offers[-1]["url"])
        self._session = aiohttp.ClientSession(
            headers={"X-Morva-Session": str(offers[-1]["token"])},
            timeout=aiohttp.ClientTimeout(total=_LONGEST_CALL_S),
        )
        return self

    async def __aexit__(
        self,
        _type: type[BaseException] | None,
        _value: BaseException | None,
        _trace: TracebackType | None,
    ) -> None:
        await self._session.close()

    async def names(self) -> list[str]:
        """What the host's catalogue lists."""
        async with self._session.get(self._url) as response:
            await hold_tool_call(response, b"")
            catalogue = await response.json()
        return [tool["name"] for tool in catalogue["tools"]]

    async def note(self) -> str:
        """What the host says about the browser."""
        async with self._session.get(f"{self._url}/context") as response:
            await hold_tool_call(response, b"")
            return str((await response.json())["prompt"])

    async def call(self, name: str, **arguments: Any) -> Json:
        """Runs a tool and gives its result, whatever it is."""
        self._calls += 1
        run = f"browser-{self._calls}"
        asked = json.dumps(arguments, ensure_ascii=False) if arguments else ""
        await self._turn.event("tool_call", id=run, name=name, text=f"{name} {asked}".strip())
        began = time.monotonic()
        body = json.dumps({"name": name, "arguments": arguments}).encode()
        async with self._session.post(f"{self._url}/call", data=body) as response:
            await hold_tool_call(response, body)
            text = await response.text()
        took = int((time.monotonic() - began) * 1000)
        result: Json = json.loads(text)
        await self._turn.event("tool_result", id=run, name=name, duration_ms=took,
                               text=f"{name}: {_in_short(result)}, {len(text):,} bytes")
        return result

    async def use(self, name: str, **arguments: Any) -> Json:
        """The same, for a result that the turn cannot do without."""
        result = await self.call(name, **arguments)
        if result.get("ok") is not True or result.get("prompt_injection_detected"):
            raise ToolFailed(f"{name}: {result.get('error', 'no result')}")
        return result


def _in_short(result: Json) -> str:
    if result.get("prompt_injection_detected"):
        return f"flagged as {result.get('prompt_injection_kind')}"
    if result.get("ok") is not True:
        return str(result.get("error", "failed"))
    data = result.get("data")
    if isinstance(data, dict) and "items" in data:
        items = len(data["items"])
        return f"{items} elements of {items + data.get('itemsOmitted', 0)}"
    if "actionTrail" in result:
        return " then ".join(result["actionTrail"])
    return f"done on {result.get('title') or result.get('url', 'the page')}"
