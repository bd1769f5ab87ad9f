"""POST /v1/host-tool-providers: somebody offers tools to the agent."""

from aiohttp import web

from ..server_state import state_of


async def register(request: web.Request) -> web.Response:
    state_of(request).providers.append(await request.json())
    return web.json_response({"ok": True})


ROUTES = [web.post("/v1/host-tool-providers", register)]
