"""What can go wrong with an agent, by name.

Request faults answer a request in the wrong way, or not at all; they stand before every path but
those for tests. Turn faults take the place of the scenario.
"""

from __future__ import annotations

import argparse
import asyncio
import time
from collections.abc import Awaitable, Callable

from aiohttp import web

from .chat_turn import Turn
from .event_stream import EventStream, is_gone
from .scenarios import failing_turns
from .server_state import state_of

RequestFault = Callable[[web.Request, str], Awaitable[web.StreamResponse | None]]
TurnFault = Callable[[Turn], Awaitable[None]]

_NOT_READY = {"ready": False}


async def _never_ready(request: web.Request, _: str) -> web.StreamResponse | None:
    return web.json_response(_NOT_READY, status=503) if request.path == "/ready" else None


async def _slow_ready(request: web.Request, seconds: str) -> web.StreamResponse | None:
    late = time.monotonic() - state_of(request).started_at >= float(seconds or 5)
    return None if late else await _never_ready(request, "")


async def _mute(request: web.Request, _: str) -> web.StreamResponse | None:
    while not is_gone(request):
        await asyncio.sleep(0.2)
    return web.Response()


async def _status_500(request: web.Request, _: str) -> web.StreamResponse | None:
    if request.path == "/ready":
        return None
    return web.json_response({"ok": False, "error": "the agent is out of order"}, status=500)


async def _redirect(request: web.Request, port: str) -> web.StreamResponse | None:
    if request.path == "/ready":
        return None
    target = f"http://127.0.0.1:{port or 8099}{request.path_qs}"
    return web.Response(status=307, headers={"Location": target})


async def _models_empty(request: web.Request, _: str) -> web.StreamResponse | None:
    if request.path != "/v1/models":
        return None
    return web.json_response({"object": "list", "data": []})


async def _models_broken(request: web.Request, _: str) -> web.StreamResponse | None:
    if request.path != "/v1/models":
        return None
    return web.Response(text='{"data":[{"id":', content_type="application/json")


async def _huge_body(request: web.Request, _: str) -> web.StreamResponse | None:
    """A 200 whose body goes on for as long as somebody reads it."""
    if request.path != "/ready":
        return None
    stream = EventStream(request.path)
    await stream.prepare(request)
    while not is_gone(request):
        await stream.write(b" " * 65536)
    return stream


REQUEST_FAULTS: dict[str, RequestFault] = {
    "never-ready": _never_ready,
    "slow-ready": _slow_ready,
    "mute": _mute,
    "status-500": _status_500,
    "redirect": _redirect,
    "models-empty": _models_empty,
    "models-broken": _models_broken,
    "huge-body": _huge_body,
}

TURN_FAULTS: dict[str, TurnFault] = {
    "drop": failing_turns.drop,
    "truncate": failing_turns.cut_short,
    "malformed-json": failing_turns.malformed_json,
    "invalid-utf8": failing_turns.invalid_utf8,
    "deep-json": failing_turns.deep_json,
}

FAULT_NAMES = sorted([*REQUEST_FAULTS, *TURN_FAULTS])


def parse_fault(text: str) -> tuple[str, str]:
    """NAME or NAME=VALUE; raises ArgumentTypeError."""
    name, _, value = text.partition("=")
    if name not in FAULT_NAMES:
        raise argparse.ArgumentTypeError(f"no fault {name!r} (there are {', '.join(FAULT_NAMES)})")
    return name, value
