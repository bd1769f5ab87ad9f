"""The application's end of the command channel: challenge, proven request, reply."""

from __future__ import annotations

import asyncio
import hashlib
import hmac
import json
import secrets
import struct
from typing import Any

_LARGEST = 16 * 1024 * 1024
_PATIENCE_S = 15

Json = dict[str, Any]

_RESULTS = {"open-report": "The quarterly report is open in a window of its own."}


def answer(request: Json) -> Json:
    command = str(request.get("id", ""))
    if command in _RESULTS:
        return {"ok": True, "data": {"text": _RESULTS[command]}}
    return {"ok": False, "error": f"the application has no command {command!r}"}


class CommandChannel:
    def __init__(self, token: str) -> None:
        self._token = bytes.fromhex(token)

    async def serve(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        try:
            await asyncio.wait_for(self._exchange(reader, writer), _PATIENCE_S)
        except (asyncio.TimeoutError, asyncio.IncompleteReadError, ConnectionError, ValueError):
            pass  # not one of ours
        finally:
            writer.close()

    async def _exchange(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        nonce = secrets.token_bytes(32)
        _send(writer, {"nonce": nonce.hex()})
        message = await _receive(reader)
        wanted = hashlib.sha256(nonce + self._token).hexdigest()
        if not hmac.compare_digest(wanted, str(message.get("proof", ""))):
            _send(writer, {"type": "error", "error": "auth failed"})
        elif message.get("action") != "command_run":
            _send(writer, {"type": "error", "error": "unknown action"})
        else:
            _send(writer, answer(message.get("request") or {}))
        await writer.drain()


def _send(writer: asyncio.StreamWriter, message: Json) -> None:
    body = json.dumps(message).encode()
    writer.write(struct.pack("<I", len(body)) + body)


async def _receive(reader: asyncio.StreamReader) -> Json:
    (length,) = struct.unpack("<I", await reader.readexactly(4))
    if length > _LARGEST:
        raise ValueError("frame too large")
    message = json.loads(await reader.readexactly(length))
    if not isinstance(message, dict):
        raise ValueError("not an object")
    return message
