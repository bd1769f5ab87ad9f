"""What the panel shows around a chat: skills, paths, search, artifacts, credit; opening things."""

from __future__ import annotations

import re

from aiohttp import web

from .. import answers
from ..sample_library import (
    ARTIFACTS,
    CREDIT,
    FILE_NAMES,
    FOLDER_SKILL,
    RECENT_PATHS,
    SKILLS,
    TYPEAHEAD_PRESETS,
)
from ..server_state import Json

_WORD = re.compile(r"\w+")


async def skills(request: web.Request) -> web.Response:
    folder = request.query.get("cwd", "")
    found = [*SKILLS, {**FOLDER_SKILL, "folder": folder}] if folder else SKILLS
    return answers.data({"skills": found})


async def recent_paths(_: web.Request) -> web.Response:
    return answers.data({"paths": RECENT_PATHS})


async def typeahead_presets(_: web.Request) -> web.Response:
    return answers.data({"presets": TYPEAHEAD_PRESETS})


async def search_names(request: web.Request) -> web.Response:
    wanted: Json = await request.json()
    query = str(wanted.get("query", "")).casefold()
    found = [name for name in FILE_NAMES if query in name.casefold()]
    limit = wanted.get("headLimit") or len(found)
    return answers.data({"names": found[:limit], "total": len(found)})


async def artifacts(request: web.Request) -> web.Response:
    limit = int(request.query.get("limit", len(ARTIFACTS)))
    return answers.data({"artifacts": ARTIFACTS[:limit]})


async def credit(_: web.Request) -> web.Response:
    return answers.data(CREDIT)


async def rank(request: web.Request) -> web.Response:
    """Items of the page by how many words they share with the query, the best first."""
    wanted: Json = await request.json()
    words = set(_WORD.findall(str(wanted.get("query", "")).casefold()))
    items = wanted.get("model", {}).get("items", [])

    def shared(item: Json) -> int:
        return len(words & set(_WORD.findall(str(item.get("text", "")).casefold())))

    ranked = sorted(items, key=shared, reverse=True)[: int(wanted.get("topK") or 10)]
    return answers.data({"items": [{**item, "score": shared(item)} for item in ranked]})


async def open_section(request: web.Request) -> web.Response:
    section = (await request.json()).get("section")
    known = section in ("chat", "voice", "privacy", "about")
    return answers.done() if known else answers.refused(f"no section {section}")


async def open_file(request: web.Request) -> web.Response:
    paths = (await request.json()).get("paths", [])
    return answers.done() if paths and all(paths) else answers.refused("no path was given")


ROUTES = [
    web.get("/v1/chat/skills", skills),
    web.get("/v1/chat/recent-paths", recent_paths),
    web.get("/v1/chat/typeahead-presets", typeahead_presets),
    web.post("/v1/chat/search-names", search_names),
    web.get("/v1/chat/vumbo-artifacts", artifacts),
    web.get("/v1/credit", credit),
    web.post("/v1/browser/page-model/rank", rank),
    web.post("/v1/ui/open", open_section),
    web.post("/v1/ui/open-file", open_file),
]
