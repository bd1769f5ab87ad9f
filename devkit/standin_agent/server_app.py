"""Puts the server together: every module of `routes` brings its list of paths."""

from __future__ import annotations

import argparse
import json
import time
from collections.abc import Awaitable, Callable

from aiohttp import web

from .fault_table import REQUEST_FAULTS
from .protocol_watch import hold_answer, hold_request
from .routes import (
    chat_commands,
    chat_completions,
    chat_event_feed,
    chat_sessions,
    consent_answers,
    introspection,
    model_list,
    readiness,
    realtime,
    speech,
    tool_providers,
    workspace,
)
from .server_state import STATE, ServerState, state_of

Handler = Callable[[web.Request], Awaitable[web.StreamResponse]]

_SUBJECTS = (
    readiness,
    model_list,
    chat_completions,
    consent_answers,
    tool_providers,
    chat_event_feed,
    chat_sessions,
    chat_commands,
    workspace,
    speech,
    realtime,
    introspection,
)
_LARGEST_BODY = 64 << 20


@web.middleware
async def _contain(request: web.Request, handler: Handler) -> web.StreamResponse:
    """A bad request is refused, and a host that goes away in the middle is nothing special."""
    try:
        return await handler(request)
    except (json.JSONDecodeError, argparse.ArgumentTypeError) as error:
        return web.json_response({"ok": False, "error": str(error)}, status=400)
    except ConnectionError:
        return web.Response()  # reaches nobody


def _is_for_tests(request: web.Request) -> bool:
    return request.path.startswith("/test/")


@web.middleware
async def _remember(request: web.Request, handler: Handler) -> web.StreamResponse:
    """Keeps what was asked, byte for byte where it is text, before anything answers it."""
    if not _is_for_tests(request):
        state = state_of(request)
        hold_request(request, await request.read())
        text = (await request.read()).decode("utf-8", "replace")
        try:
            body = json.loads(text) if text else None
        except ValueError:
            body = None
        state.requests.append(
            {
                "method": request.method,
                "path": request.raw_path,
                "headers": dict(request.headers),
                "text": text,
                "json": body,
                "at": time.monotonic() - state.started_at,
            }
        )
    return await handler(request)


@web.middleware
async def _misbehave(request: web.Request, handler: Handler) -> web.StreamResponse:
    if not _is_for_tests(request):
        for name, value in state_of(request).settings.faults.items():
            if fault := REQUEST_FAULTS.get(name):
                response = await fault(request, value)
                if response is not None:
                    return response
    return await handler(request)


@web.middleware
async def _hold_answers(request: web.Request, handler: Handler) -> web.StreamResponse:
    response = await handler(request)
    if not _is_for_tests(request):
        hold_answer(request, response)
    return response


_MIDDLEWARES = (_contain, _remember, _misbehave, _hold_answers)


def make_app(state: ServerState) -> web.Application:
    app = web.Application(middlewares=_MIDDLEWARES, client_max_size=_LARGEST_BODY)
    app[STATE] = state
    for subject in _SUBJECTS:
        app.add_routes(subject.ROUTES)
    return app
