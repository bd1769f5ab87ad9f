"""Turns in which the agent uses tools and runs commands."""

from __future__ import annotations

from ..chat_turn import Turn


async def tools(turn: Turn) -> None:
    await turn.say("I look at the page first. ")
    await turn.event("tool_call", id="call-1", name="browser_read", text="Reading the page")
    await turn.pace()
    await turn.event(
        "tool_result",
        id="call-1",
        name="browser_read",
        text="Read the page",
        duration_ms=412,
        path="C:\\Users\\user\\Pictures\\Screenshot.PNG",
    )
    await turn.event("tool_call", id="call-2", name="write_file")
    await turn.pace()
    await turn.event(
        "tool_result",
        id="call-2",
        name="write_file",
        duration_ms=3.5,
        path="C:\\Users\\user\\Documents\\summary.pdf",
    )
    await turn.say("The summary is in your documents.")
    await turn.finish()


async def commands(turn: Turn) -> None:
    await turn.say("I run the tests. ")
    await _run(turn, "run-1", "make test", ["compiling\n", "3 passed\n"], exit_code=0)
    await turn.say("And once more, which fails: ")
    await _run(turn, "run-2", "make broken", ["compiling\n"], exit_code=2, complaint="no rule\n")
    await turn.say("Done.")
    await turn.finish()


async def _run(
    turn: Turn, run: str, command: str, lines: list[str], exit_code: int, complaint: str = ""
) -> None:
    async def progress(event: str, **members: object) -> None:
        await turn.event("tool_file_progress", id=run, event=event, **members)

    await progress("start", command=command)
    for line in lines:
        await turn.pace()
        await progress("chunk", chunk=line, stream="stdout")
    if complaint:
        await progress("chunk", chunk=complaint, stream="stderr")
    await progress("done", exit_code=exit_code, duration_ms=120)
