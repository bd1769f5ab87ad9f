"""GET /ready"""

from aiohttp import web


async def ready(_: web.Request) -> web.Response:
    return web.json_response({"ready": True})


ROUTES = [web.get("/ready", ready)]
