"""Which schema a message has to satisfy: docs/schema/index.json."""

from __future__ import annotations

import json
from functools import lru_cache
from typing import Any

from .schema_store import INDEX, fault_of

_OTHER = "other"


@lru_cache(maxsize=None)
def channels() -> dict[str, Any]:
    found: dict[str, Any] = json.loads(INDEX.read_text(encoding="utf-8"))["channels"]
    return found


def name_in(channel: str, name: Any) -> str | None:
    """The name under which the index has a message; None when it has none such."""
    messages = channels()[channel]["messages"]
    if isinstance(name, str) and name in messages and name != _OTHER:
        return name
    return _OTHER if _OTHER in messages else None


def message_fault(channel: str, name: Any, value: Any) -> str:
    """What is wrong with a message; empty when nothing is."""
    known = name_in(channel, name)
    if known is None:
        return f"no message {name!r} on the channel {channel!r}"
    return fault_of(channels()[channel]["messages"][known]["schema"], value)


def reply_fault(channel: str, name: Any, value: Any) -> str:
    """What is wrong with the answer to a message; empty when nothing is."""
    known = name_in(channel, name)
    if known is None:
        return f"no message {name!r} on the channel {channel!r}"
    entry = channels()[channel]["messages"][known]
    refusal = channels()[channel].get("refusal")
    if "reply" not in entry:
        return fault_of(refusal, value) if refusal else f"{name!r} is not answered"
    fault = fault_of(entry["reply"], value)
    if fault and refusal and not fault_of(refusal, value):
        return ""
    return fault
