"""An answer that is a stream of server-sent events, ended by closing the connection."""

from __future__ import annotations

import asyncio
import json
import socket
import struct
from typing import Any

from aiohttp import web

from .protocol_watch import hold_event

_TIME_TO_READ_S = 0.2
_RESET_ON_CLOSE = struct.pack("ii", 1, 0)  # linger for no time


class EventStream(web.StreamResponse):
    """No length and no chunks: the end of the connection ends the body.

    A chunk of a chunked body reaches a reader under Wine only when the next one begins, so a
    chunked stream would always show its last event too late.
    """

    # Without the check aiohttp adds neither a length nor a chunked transfer coding.
    _length_check = False

    def __init__(self, path: str, headers: dict[str, str] | None = None) -> None:
        super().__init__(headers={"Content-Type": "text/event-stream", **(headers or {})})
        self.force_close()
        self._path = path

    async def send_data(self, text: str) -> None:
        await self.write(f"data: {text}\n\n".encode("utf-8"))

    async def send_json(self, value: Any) -> None:
        hold_event(self._path, value)
        await self.send_data(json.dumps(value, ensure_ascii=False, separators=(",", ":")))


def is_gone(request: web.Request) -> bool:
    """The far side has closed the connection."""
    return request.transport is None or request.transport.is_closing()


async def reset_connection(request: web.Request) -> None:
    """Ends the connection as a dying machine would: with a reset, in the middle of everything."""
    transport = request.transport
    if transport is None:
        return
    while transport.get_write_buffer_size() > 0 and not transport.is_closing():
        await asyncio.sleep(0.01)
    await asyncio.sleep(_TIME_TO_READ_S)  # a reset takes what the reader has not yet read with it
    transport.get_extra_info("socket").setsockopt(
        socket.SOL_SOCKET, socket.SO_LINGER, _RESET_ON_CLOSE
    )
    transport.abort()
