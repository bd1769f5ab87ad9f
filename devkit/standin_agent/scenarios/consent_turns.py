"""Turns that ask the user before they go on."""

from __future__ import annotations

import asyncio
import itertools

from ..chat_turn import Turn
from ..server_state import Json

_numbers = itertools.count(1)


async def consent(turn: Turn) -> None:
    await turn.say("That needs your consent. ")
    allowed = (await _ask(turn, "Delete 3 files?", "rm report-1 report-2 report-3")).get("allow")
    await turn.say("Thank you, done." if allowed is True else "Then I leave them.")
    await turn.finish()


async def _ask(turn: Turn, title: str, detail: str) -> Json:
    """Sends the question and waits for the answer on /v1/chat/consent."""
    questions = turn.state.consent_questions
    question = f"consent-{next(_numbers)}"
    answered = questions[question] = asyncio.get_running_loop().create_future()
    try:
        await turn.event("consent", id=question, title=title, detail=detail, tool="run_command")
        answer = await answered
    finally:
        questions.pop(question, None)
    await turn.event("consent.dismiss", id=question)
    return answer
