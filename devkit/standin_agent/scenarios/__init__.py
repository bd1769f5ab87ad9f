"""What the agent can play, by name. A scenario is a coroutine that takes the turn."""

from __future__ import annotations

from collections.abc import Awaitable, Callable

from ..chat_turn import Turn
from . import browser_turns, chunk_shapes, consent_turns, failing_turns, text_turns, tool_turns

Scenario = Callable[[Turn], Awaitable[None]]

SCENARIOS: dict[str, Scenario] = {
    "hello": text_turns.hello,
    "long": text_turns.long,
    "unicode": text_turns.unicode,
    "echo": text_turns.echo,
    "silent": text_turns.silent,
    "tools": tool_turns.tools,
    "commands": tool_turns.commands,
    "consent": consent_turns.consent,
    "browse": browser_turns.browse,
    "hostile-page": browser_turns.hostile_page,
    "error": failing_turns.error_object,
    "error-text": failing_turns.error_text,
    "null-content": chunk_shapes.null_content,
    "usage-none": chunk_shapes.usage_none,
    "usage-twice": chunk_shapes.usage_twice,
    "usage-alone": chunk_shapes.usage_alone,
    "no-final-blank-line": chunk_shapes.no_final_blank_line,
}
