"""Turns that go wrong."""

from __future__ import annotations

from ..chat_turn import Turn
from ..event_stream import reset_connection

_DEPTH = 200_000


async def error_object(turn: Turn) -> None:
    await turn.say("I will try. ")
    await turn.stream.send_json({"error": {"message": "the model is overloaded", "code": 529}})


async def error_text(turn: Turn) -> None:
    await turn.stream.send_json({"error": "boom"})


async def drop(turn: Turn) -> None:
    """The connection is reset after some words."""
    await turn.say("This answer will not be")
    await reset_connection(turn.request)


async def cut_short(turn: Turn) -> None:
    """The connection is closed in good order, but before all that was announced has come."""
    await turn.say("This answer will not be")


async def malformed_json(turn: Turn) -> None:
    await turn.say("Now something broken: ")
    await turn.stream.send_data('{"choices":[{"delta":{"content":"half')
    await turn.say("never read")
    await turn.finish()


async def invalid_utf8(turn: Turn) -> None:
    await turn.say("Now bytes that are no text: ")
    await turn.stream.write(b'data: {"choices":[{"delta":{"content":"a\xffb"}}]}\n\n')
    await turn.finish()


async def deep_json(turn: Turn) -> None:
    await turn.say("Now something deep: ")
    await turn.stream.send_data('{"choices":' + "[" * _DEPTH + "]" * _DEPTH + "}")
    await turn.finish()
