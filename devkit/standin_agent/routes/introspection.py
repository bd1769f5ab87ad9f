"""/test/...: what tests ask about the server and change in it while it runs."""

from __future__ import annotations

from dataclasses import asdict

from aiohttp import web

from ..fault_table import parse_fault
from ..server_state import Settings, state_of


async def requests(request: web.Request) -> web.Response:
    """Everything received in order; ?path=/ready gives those whose path begins so."""
    path = request.query.get("path", "")
    seen = [entry for entry in state_of(request).requests if entry["path"].startswith(path)]
    return web.json_response(seen)


async def providers(request: web.Request) -> web.Response:
    return web.json_response(state_of(request).providers)


async def turns(request: web.Request) -> web.Response:
    return web.json_response([asdict(turn) for turn in state_of(request).turns])


async def running(request: web.Request) -> web.Response:
    """How many turns and event streams are open, and the id of the last event."""
    state = state_of(request)
    return web.json_response({"turns": len(state.running), "events": len(state.event_listeners),
                              "lastEvent": len(state.chat_events)})


async def feed_event(request: web.Request) -> web.Response:
    """The body, a JSON object, goes to every open event stream."""
    state_of(request).publish_event(await request.json())
    return web.json_response({"ok": True})


async def change_settings(request: web.Request) -> web.Response:
    """{"scenario", "tokens_per_second", "faults": ["NAME=VALUE"]}: what is missing is as before."""
    state = state_of(request)
    wanted = await request.json()
    old = state.settings
    faults = wanted.get("faults")
    state.settings = Settings(
        wanted.get("scenario", old.scenario),
        wanted.get("tokens_per_second", old.tokens_per_second),
        old.faults if faults is None else dict(parse_fault(text) for text in faults),
    )
    return web.json_response(asdict(state.settings))


ROUTES = [
    web.get("/test/requests", requests),
    web.get("/test/providers", providers),
    web.get("/test/turns", turns),
    web.get("/test/running", running),
    web.post("/test/events", feed_event),
    web.post("/test/settings", change_settings),
]
