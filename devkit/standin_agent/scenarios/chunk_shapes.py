"""Streams that are right, but not shaped like the usual one."""

from __future__ import annotations

from ..chat_turn import Turn


async def null_content(turn: Turn) -> None:
    """The first delta names the role and has no text, as many servers begin."""
    await turn.chunk({"role": "assistant", "content": None})
    await turn.chunk({"role": "assistant"})
    await turn.say("The first delta was null.")
    await turn.finish()


async def usage_none(turn: Turn) -> None:
    await turn.say("Nobody counted this.")
    await turn.chunk({}, finish_reason="stop")
    await turn.done()


async def usage_twice(turn: Turn) -> None:
    """The later one counts; one without any known count does not."""
    await turn.say("Counted twice.")
    choice = {"index": 0, "delta": {}, "finish_reason": None}
    await turn.completion([choice], usage={"prompt_tokens": 1, "completion_tokens": 1})
    await turn.completion([choice], usage=turn.usage())
    await turn.completion([choice], usage={"cost": 1})
    await turn.chunk({}, finish_reason="stop")
    await turn.done()


async def usage_alone(turn: Turn) -> None:
    """The usage comes in a chunk of its own, without choices."""
    await turn.say("Counted apart.")
    await turn.chunk({}, finish_reason="stop")
    await turn.completion([], usage=turn.usage())
    await turn.done()


async def no_final_blank_line(turn: Turn) -> None:
    """The last block ends with the connection, not with an empty line."""
    await turn.say("The last block has")
    await turn.stream.write(b'data: {"choices":[{"delta":{"content":" no end"}}]}')
