"""POST /v1/chat/consent: the user's answer, or {"cancel": true} for everything that runs."""

from aiohttp import web

from ..server_state import state_of


async def consent(request: web.Request) -> web.Response:
    state = state_of(request)
    answer = await request.json()
    if answer.get("cancel") is True:
        return web.json_response({"ok": True, "data": {"cancelled": state.cancel_turns()}})
    question = state.consent_questions.pop(str(answer.get("id", "")), None)
    if question is None or question.done():
        return web.json_response({"ok": False, "error": "no such consent request"})
    question.set_result(answer)
    return web.json_response({"ok": True})


ROUTES = [web.post("/v1/chat/consent", consent)]
