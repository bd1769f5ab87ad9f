"""The shape of every answer that is no stream."""

from __future__ import annotations

from typing import Any

from aiohttp import web


def data(value: Any) -> web.Response:
    return web.json_response({"ok": True, "data": value})


def done() -> web.Response:
    return web.json_response({"ok": True})


def refused(error: str, status: int = 200, **members: Any) -> web.Response:
    return web.json_response({"ok": False, "error": error, **members}, status=status)
