"""GET /v1/models"""

from aiohttp import web

_MODELS: list[dict[str, object]] = [
    {"id": "Stand-in quick", "morva_preset_id": "standin-quick", "morva_is_default": False},
    {"id": "Stand-in", "morva_preset_id": "standin", "morva_is_default": True},
]


async def models(_: web.Request) -> web.Response:
    data = [{"object": "model"} | model for model in _MODELS]
    return web.json_response({"object": "list", "data": data})


ROUTES = [web.get("/v1/models", models)]
