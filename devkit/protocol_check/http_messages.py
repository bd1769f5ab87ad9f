"""HTTP requests and answers in the form in which the schemas describe them."""

from __future__ import annotations

import json
from collections.abc import Iterable
from typing import Any

_OPENING = 200  # of a body that is no JSON: schemas do not look into it

Json = dict[str, Any]


def _headers(lines: Iterable[tuple[str, str]]) -> Json:
    return {name.lower(): value for name, value in lines}


def body_value(body: bytes) -> Any:
    """A JSON body parsed, any other as text; what no text is, as the beginning of it."""
    if not body:
        return ""
    try:
        return json.loads(body)
    except (ValueError, RecursionError):
        return body[:_OPENING].decode("latin-1")


def request_value(
    method: str, target: str, headers: Iterable[tuple[str, str]], body: bytes
) -> Json:
    path, _, query = target.partition("?")
    return {"method": method, "path": path, "query": query, "headers": _headers(headers),
            "body": body_value(body)}


def message_name(method: str, target: str) -> str:
    """The name of a request in the index."""
    return method if method == "OPTIONS" else f"{method} {target.partition('?')[0]}"


def answer_value(data: bytes) -> Json:
    """A whole answer as it came over the connection. Raises ValueError when it is none."""
    head, end, body = data.partition(b"\r\n\r\n")
    first, *lines = head.decode("latin-1").split("\r\n")
    version, _, status = first.partition(" ")
    number, _, reason = status.partition(" ")
    if not end or version != "HTTP/1.1":
        raise ValueError(f"no HTTP answer: {data[:80]!r}")
    headers = _headers(tuple(line.split(": ", 1)) for line in lines)  # type: ignore[misc]
    is_json = headers.get("content-type") == "application/json"
    text = body[:_OPENING].decode("latin-1")
    return {"status": int(number), "reason": reason, "headers": headers,
            "body": body_value(body) if is_json else text}
