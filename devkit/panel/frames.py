"""Frames as the browser writes and reads them: a 4-byte little-endian length, then UTF-8 JSON."""

from __future__ import annotations

import json
import re
import struct
from typing import Any

_HEADER = struct.Struct("<I")
_LONE_SURROGATE = re.compile("[\ud800-\udfff]")


def encode_body(message: Any) -> bytes:
    """Compact JSON in raw UTF-8. A lone surrogate leaves as an escape, as the browser sends it."""
    text = json.dumps(message, ensure_ascii=False, separators=(",", ":"))
    return _LONE_SURROGATE.sub(lambda half: f"\\u{ord(half[0]):04x}", text).encode("utf-8")


def frame(body: bytes) -> bytes:
    return _HEADER.pack(len(body)) + body


class FrameSplitter:
    """Cuts a byte stream into frame bodies, however the bytes arrive."""

    def __init__(self) -> None:
        self._pending = bytearray()

    def feed(self, piece: bytes) -> list[bytes]:
        self._pending += piece
        bodies = []
        start = 0
        while len(self._pending) - start >= _HEADER.size:
            (length,) = _HEADER.unpack_from(self._pending, start)
            end = start + _HEADER.size + length
            if end > len(self._pending):
                break
            bodies.append(bytes(self._pending[start + _HEADER.size:end]))
            start = end
        del self._pending[:start]
        return bodies

    @property
    def leftover(self) -> bytes:
        """What has arrived of a frame that is not whole yet."""
        return bytes(self._pending)
