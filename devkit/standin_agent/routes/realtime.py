"""/v1/realtime/...: a voice session. Whoever lets go of the key gets an answer."""

from __future__ import annotations

import asyncio

from aiohttp import web

from .. import answers
from ..chat_turn import tokens_of
from ..event_stream import EventStream, is_gone
from ..server_state import Json, state_of

_LOOK_FOR_THE_HOST_S = 0.2
_HEARD = "What is on this page?"
_SAID = "A short text about examples, and one link."


def _event(method: str, **members: object) -> Json:
    return {"method": method, "args": [members]}


def _spoken_answer() -> list[Json]:
    said = [_event("realtimeDelta", role="assistant", text=token) for token in tokens_of(_SAID)]
    return [
        _event("realtimeState", state="thinking"),
        _event("realtimeTranscript", role="user", text=_HEARD),
        *said,
        _event("realtimeTranscript", role="assistant", text=_SAID),
        _event("realtimeState", state="listening"),
    ]


async def start(request: web.Request) -> web.Response:
    state = state_of(request)
    wanted: Json = await request.json()
    if wanted.get("mic_send") is not True:
        return answers.refused("no microphone")
    state.end_voice()
    state.voice = asyncio.Queue()
    state.voice.put_nowait(_event("realtimeState", state="listening"))
    return answers.done()


async def push_to_talk(request: web.Request) -> web.Response:
    voice = state_of(request).voice
    if voice is None:
        return answers.refused("no session")
    wanted: Json = await request.json()
    if wanted.get("held"):
        voice.put_nowait(_event("realtimeState", state="hearing"))
    elif wanted.get("finishInputTurn"):
        for event in _spoken_answer():
            voice.put_nowait(event)
    return answers.done()


async def stop(request: web.Request) -> web.Response:
    state_of(request).end_voice()
    return answers.done()


async def events(request: web.Request) -> web.StreamResponse:
    voice = state_of(request).voice
    if voice is None:
        return answers.refused("no session", status=404)
    stream = EventStream(request.path)
    await stream.prepare(request)
    await stream.write(b": open\n\n")
    while not is_gone(request):
        try:
            event = await asyncio.wait_for(voice.get(), _LOOK_FOR_THE_HOST_S)
        except asyncio.TimeoutError:
            continue
        if event is None:
            await stream.send_json({"method": "realtimeDone", "args": []})
            break
        await stream.send_json(event)
    return stream


ROUTES = [
    web.post("/v1/realtime/start", start),
    web.post("/v1/realtime/ptt", push_to_talk),
    web.post("/v1/realtime/stop", stop),
    web.get("/v1/realtime/events", events),
]
