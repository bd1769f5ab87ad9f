"""The application's end of the command channel: challenge, proven request, reply."""

from __future__ import annotations

import asyncio
import hashlib
import hmac
import json
import secrets
import struct
from typing import Any

from protocol_check.findings import APPLICATION, HOST, Findings

FINDINGS = Findings()
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
        challenge = {"nonce": nonce.hex()}
        FINDINGS.message(APPLICATION, "application", "challenge", challenge)
        _send(writer, challenge)
        message = await _receive(reader)
        FINDINGS.message(HOST, "application", "request", message)
        reply = self._reply_to(message, nonce)
        FINDINGS.reply(APPLICATION, "application", "request", reply)
        _send(writer, reply)
        await writer.drain()

    def _reply_to(self, message: Json, nonce: bytes) -> Json:
        wanted = hashlib.sha256(nonce + self._token).hexdigest()
        if not hmac.compare_digest(wanted, str(message.get("proof", ""))):
            return {"type": "error", "error": "auth failed"}
        if message.get("action") != "command_run":
            return {"type": "error", "error": "unknown action"}
        return answer(message.get("request") or {})


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
