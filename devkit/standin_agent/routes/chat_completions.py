"""POST /v1/chat/completions: one turn, played by a scenario."""

from __future__ import annotations

import asyncio
from collections.abc import Awaitable, Callable

from aiohttp import ClientConnectionError, web

from ..chat_turn import Turn, choose_scenario, user_prompt
from ..event_stream import EventStream, is_gone
from ..fault_table import TURN_FAULTS
from ..scenarios import SCENARIOS
from ..server_state import Settings, TurnRecord, state_of

_LOOK_FOR_THE_HOST_S = 0.2

Script = Callable[[Turn], Awaitable[None]]


def _refusal(text: str) -> web.Response:
    return web.json_response({"error": {"message": text}}, status=400)


def _script(name: str, settings: Settings) -> Script | None:
    for fault in settings.faults:
        if fault in TURN_FAULTS:
            return TURN_FAULTS[fault]
    return SCENARIOS.get(name)


def _headers(settings: Settings) -> dict[str, str]:
    # More than will ever come: the end of the connection then cuts the body short.
    return {"Content-Length": "1000000"} if "truncate" in settings.faults else {}


async def completions(request: web.Request) -> web.StreamResponse:
    state = state_of(request)
    body = await request.json()
    if not isinstance(body, dict):
        return _refusal("the request is not an object")
    name, text = choose_scenario(user_prompt(body), state.settings.scenario)
    record = TurnRecord(body, name)
    state.turns.append(record)
    script = _script(name, state.settings)
    if script is None:
        record.ended = "finished"
        return _refusal(f"no scenario {name!r}")
    stream = EventStream(request.path, _headers(state.settings))
    await stream.prepare(request)
    record.ended = await _play(script, Turn(state, request, body, text, stream))
    return stream


async def _play(script: Script, turn: Turn) -> str:
    """Runs the script until it ends, or is cancelled, or the host has gone; says which."""
    task = asyncio.ensure_future(script(turn))
    turn.state.running.add(task)
    try:
        while not task.done():
            await asyncio.wait({task}, timeout=_LOOK_FOR_THE_HOST_S)
            if is_gone(turn.request) and not task.done():
                task.cancel()
                await asyncio.wait({task})
                return "disconnected"
        return _outcome(task, turn)
    finally:
        turn.state.running.discard(task)


def _outcome(task: asyncio.Future[None], turn: Turn) -> str:
    if task.cancelled():
        return "cancelled"
    error = task.exception()
    if isinstance(error, (ConnectionError, ClientConnectionError)):  # of the turn, of a tool call
        return "disconnected"
    if error is not None:
        raise error
    return "dropped" if is_gone(turn.request) else "finished"


ROUTES = [web.post("/v1/chat/completions", completions)]
