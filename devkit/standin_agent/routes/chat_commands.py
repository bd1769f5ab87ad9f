"""/v1/chat/commands...: what can be run by name."""

from __future__ import annotations

from aiohttp import web

from .. import answers
from ..sample_library import COMMAND_RESULTS, COMMANDS
from ..server_state import state_of


async def commands(_: web.Request) -> web.Response:
    return answers.data({"commands": COMMANDS})


async def run(request: web.Request) -> web.Response:
    """Runs a command, tells all event streams of it, and leaves what needs a window to others."""
    wanted = str((await request.json()).get("id", ""))
    if wanted in COMMAND_RESULTS:
        state_of(request).publish_event(
            {"method": "appendText", "args": [{"role": "tool", "text": f"ran {wanted}"}]}
        )
        return answers.data({"text": COMMAND_RESULTS[wanted]})
    if any(command["id"] == wanted for command in COMMANDS):
        return answers.refused("needs the application's window", needsUi=True)
    return answers.refused("no such command", status=404)


ROUTES = [web.get("/v1/chat/commands", commands), web.post("/v1/chat/commands/run", run)]
