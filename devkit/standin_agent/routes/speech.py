"""/v1/speak...: reading aloud. The answer comes when the text has been read."""

from __future__ import annotations

from aiohttp import web

from .. import answers
from ..server_state import state_of
from ..spoken_text import SpokenText


async def speak(request: web.Request) -> web.Response:
    text = (await request.json()).get("text")
    if not isinstance(text, str) or not text.strip():
        return answers.refused("there is nothing to say")
    spoken = SpokenText(text)
    speaking = state_of(request).speaking
    speaking.add(spoken)
    try:
        return answers.data({"finished": await spoken.speak()})
    finally:
        speaking.discard(spoken)


async def stop(request: web.Request) -> web.Response:
    for spoken in state_of(request).speaking:
        spoken.stop()
    return answers.done()


async def pause(request: web.Request) -> web.Response:
    for spoken in state_of(request).speaking:
        spoken.paused = True
    return answers.done()


async def resume(request: web.Request) -> web.Response:
    for spoken in state_of(request).speaking:
        spoken.paused = False
    return answers.done()


ROUTES = [
    web.post("/v1/speak", speak),
    web.post("/v1/speak/stop", stop),
    web.post("/v1/speak/pause", pause),
    web.post("/v1/speak/resume", resume),
]
