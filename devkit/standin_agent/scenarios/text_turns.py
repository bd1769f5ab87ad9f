"""Turns that are only text."""

from __future__ import annotations

import asyncio
import json

from ..chat_turn import Turn

_DEFAULT_LENGTH = 1000

_UNICODE = (
    "Zwölf Boxkämpfer — “naïve” façade, ½ €. Ελληνικά, русский, עברית, العربية, हिन्दी, ไทย, "
    "日本語の文章, 한국어. 😀 👩‍👩‍👧‍👦 🏳️‍🌈 é (e\u0301) \u200d\ufeff 𝔘𝔫𝔦𝔠𝔬𝔡𝔢 \U0010ffff end"
)


async def hello(turn: Turn) -> None:
    await turn.think("The user says something. A short and friendly answer will do.")
    await turn.say("Hello! This is the stand-in agent. You said: ")
    await turn.say(turn.text or "(nothing)")
    await turn.say("\n\nEvery word of this answer came as an event of its own.")
    await turn.finish()


async def long(turn: Turn) -> None:
    """As many tokens as the prompt says."""
    wanted = turn.text.strip()
    for number in range(int(wanted) if wanted.isdecimal() else _DEFAULT_LENGTH):
        await turn.pace()
        await turn.chunk({"content": f"word{number} "})
    await turn.finish()


async def unicode(turn: Turn) -> None:
    await turn.think("Ümläute, 漢字 and 🧠.")
    for character in _UNICODE:
        await turn.pace()
        await turn.chunk({"content": character})
    await turn.finish()


async def echo(turn: Turn) -> None:
    """The request as the host sent it, in one piece."""
    await turn.chunk({"content": json.dumps(turn.body, ensure_ascii=False, sort_keys=True)})
    await turn.finish()


async def silent(turn: Turn) -> None:
    """Headers and nothing more, until the turn is cancelled."""
    await turn.stream.write(b": working\n\n")
    await asyncio.Event().wait()
