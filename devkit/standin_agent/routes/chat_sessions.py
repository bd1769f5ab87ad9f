"""/v1/chat/session...: the conversations that are kept."""

from __future__ import annotations

from urllib.parse import unquote

from aiohttp import web

from .. import answers
from ..server_state import Json, state_of

_SUMMARY = ("id", "title", "updatedUnixMs", "preset")


def _asked_id(request: web.Request) -> str:
    """All that stands behind "id=": the host sends ids as they are, also with "&" in them."""
    return unquote(request.raw_path.partition("?id=")[2])


async def sessions(request: web.Request) -> web.Response:
    kept = state_of(request).sessions.values()
    newest_first = sorted(kept, key=lambda session: session["updatedUnixMs"], reverse=True)
    return answers.data(
        {"sessions": [{key: session.get(key) for key in _SUMMARY} for session in newest_first]}
    )


async def load(request: web.Request) -> web.Response:
    session = state_of(request).sessions.get(_asked_id(request))
    return answers.data(session) if session else answers.refused("no such session")


async def save(request: web.Request) -> web.Response:
    session: Json = await request.json()
    if not isinstance(session, dict) or not isinstance(session.get("id"), str):
        return answers.refused("a session needs an id")
    state_of(request).sessions[session["id"]] = {"updatedUnixMs": 0, **session}
    return answers.data({"id": session["id"]})


async def delete(request: web.Request) -> web.Response:
    removed = state_of(request).sessions.pop(_asked_id(request), None)
    return answers.done() if removed else answers.refused("no such session")


ROUTES = [
    web.get("/v1/chat/sessions", sessions),
    web.post("/v1/chat/sessions", save),
    web.get("/v1/chat/session", load),
    web.delete("/v1/chat/session", delete),
]
