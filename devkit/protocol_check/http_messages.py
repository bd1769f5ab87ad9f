"""HTTP requests and answers in the form in which the schemas describe them."""

from __future__ import annotations

import json
from collections.abc import Iterable
from typing import Any

_OPENING = 200  # of a body that is no JSON: schemas do not look into it
_SMALL = 1 << 16
_UPLOAD_PATH = "/api/context-file"

Json = dict[str, Any]


def _headers(lines: Iterable[tuple[str, str]]) -> Json:
    return {name.lower(): value for name, value in lines}


def _opening(body: bytes) -> str:
    return body[:_OPENING].decode("latin-1")


def body_value(body: bytes) -> Any:
    """A JSON body parsed, of any other the beginning as text."""
    if not body:
        return ""
    if len(body) < _SMALL or body[:1] in b'{["':  # else it is a file, and parsing it in vain costs
        try:
            return json.loads(body)
        except (ValueError, RecursionError):
            pass
    return _opening(body)


def request_value(
    method: str, target: str, headers: Iterable[tuple[str, str]], body: bytes
) -> Json:
    path, _, query = target.partition("?")
    # A file is bytes, also one that happens to be JSON.
    value = _opening(body) if path == _UPLOAD_PATH else body_value(body)
    return {"method": method, "path": path, "query": query, "headers": _headers(headers),
            "body": value}


def message_name(method: str, target: str) -> str:
    """The name of a request in the index."""
    return method if method == "OPTIONS" else f"{method} {target.partition('?')[0]}"


def answer_value(data: bytes) -> Json:
    """A whole answer as it came over the connection. Raises ValueError when it is none."""
    end = data.find(b"\r\n\r\n")
    first, *lines = data[:max(end, 0)].decode("latin-1").split("\r\n")
    version, _, status = first.partition(" ")
    number, _, reason = status.partition(" ")
    if end < 0 or version != "HTTP/1.1":
        raise ValueError(f"no HTTP answer: {data[:80]!r}")
    headers = _headers(tuple(line.split(": ", 1)) for line in lines)  # type: ignore[misc]
    if headers.get("content-type") == "application/json":
        body = body_value(data[end + 4:])
    else:
        body = _opening(data[end + 4:])
    return {"status": int(number), "reason": reason, "headers": headers, "body": body}
