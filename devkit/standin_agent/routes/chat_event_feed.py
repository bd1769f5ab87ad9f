"""GET /v1/chat/events?after=N&sender=S: a stream of events that stays open."""

from __future__ import annotations

import asyncio

from aiohttp import web

from ..event_stream import EventStream, is_gone
from ..server_state import Json, state_of

_LOOK_FOR_THE_HOST_S = 0.2


async def events(request: web.Request) -> web.StreamResponse:
    state = state_of(request)
    stream = EventStream(request.path)
    await stream.prepare(request)
    listener: asyncio.Queue[Json | None] = asyncio.Queue()
    for past in state.chat_events[_after(request):]:
        listener.put_nowait(past)
    state.event_listeners.add(listener)
    try:
        await _forward(request, stream, listener)
    finally:
        state.event_listeners.discard(listener)
    return stream


def _after(request: web.Request) -> int:
    text = request.query.get("after", "0")
    return int(text) if text.isdecimal() else 0


async def _forward(
    request: web.Request, stream: EventStream, listener: asyncio.Queue[Json | None]
) -> None:
    sender = request.query.get("sender", "")
    await stream.write(b": open\n\n")  # so that the headers go out at once
    while not is_gone(request):
        try:
            event = await asyncio.wait_for(listener.get(), _LOOK_FOR_THE_HOST_S)
        except asyncio.TimeoutError:
            continue
        if event is None:
            return
        if not sender or event.get("sender", sender) == sender:
            await stream.send_json(event)


ROUTES = [web.get("/v1/chat/events", events)]
