"""Turns in which the agent uses the user's browser, by the tools that the host offers."""

from __future__ import annotations

from ..browser_tools import BrowserTools, ToolFailed
from ..chat_turn import Turn

_BASKET_URL = "https://example.org/basket"
_HOSTILE_URL = "https://hostile.example/reviews"


def _site(turn: Turn) -> str:
    """The address of a real site with the pages, when the prompt is one; else they are made up."""
    text = turn.text.strip().rstrip("/")
    return text if text.startswith("http://") else ""


async def browse(turn: Turn) -> None:
    """Reads the page, finds, clicks, types, selects, runs a batch, and goes elsewhere."""
    site = _site(turn)
    try:
        async with BrowserTools(turn) as browser:
            await turn.say(f"I have {len(await browser.names())} browser tools. ")
            await turn.think(await browser.note())
            if site:
                await browser.use("browser_navigate", url=f"{site}/shop.html")
            await _shop(turn, browser, f"{site}/basket.html" if site else _BASKET_URL)
    except ToolFailed as failure:
        await turn.stream.send_json({"error": {"message": str(failure)}})
        return
    await turn.finish()


async def _shop(turn: Turn, browser: BrowserTools, basket: str) -> None:
    page = await browser.use("browser_read")
    field = await _ref_of(browser, "search the shop")
    button = await _ref_of(browser, "start the search")
    await turn.say(f"The page has {page['data']['count']} elements; I search for a lamp. ")
    await browser.use("browser_click", ref=field)
    await browser.use("browser_type", ref=field, text="reading lamp")
    sort = await _ref_of(browser, "sort by")
    await browser.use("browser_select", ref=sort, value="rating")
    batch = await browser.use("browser_batch", steps=[
        {"action": "type", "ref": field, "text": "desk lamp"},
        {"tool": "browser_click", "ref": button},
        {"action": "wait"},
        {"action": "read"},
    ])
    if batch.get("all_ok") is not True:
        raise ToolFailed("the batch did not run to its end")
    await browser.use("browser_navigate", url=basket)
    await browser.use("browser_navigate", action="back")
    refused = await browser.call("browser_navigate", action="forward")
    await turn.say(f"Forward is not possible: {refused.get('error')}. Done.")


async def _ref_of(browser: BrowserTools, name: str) -> str:
    found = await browser.use("browser_find", query=name)
    items = found["data"]["items"]
    if not items:
        raise ToolFailed(f"nothing is called {name!r}")
    return str(items[0]["ref"])


async def hostile_page(turn: Turn) -> None:
    """Reads a page with instructions for agents, and stops as the host says."""
    site = _site(turn)
    try:
        async with BrowserTools(turn) as browser:
            await browser.use("browser_navigate",
                              url=f"{site}/reviews.html" if site else _HOSTILE_URL)
            page = await browser.call("browser_read")
            await browser.use("browser_navigate", action="back")
    except ToolFailed as failure:
        await turn.stream.send_json({"error": {"message": str(failure)}})
        return
    if not page.get("prompt_injection_detected"):
        await turn.stream.send_json({"error": {"message": "the page was not flagged"}})
        return
    await turn.say(f"Flagged: {page['prompt_injection_kind']}. ")
    for item in page["data"]["items"]:
        if item["name"].startswith("[redacted"):
            await turn.say(f"Element {item['ref']} reads: {item['name']}. ")
    await turn.say(f"I refuse to go on: {page['error']}")
    await turn.finish()
