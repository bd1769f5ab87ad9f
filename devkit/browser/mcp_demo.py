"""What a client of the Model Context Protocol does in ./dev demo --mcp: it starts a server of its
own, and through it uses the page in the browser, while the panel is only there."""

from __future__ import annotations

import json
from collections.abc import Mapping
from pathlib import Path
from typing import Any

from ..panel import wine
from ..panel.mcp_client import McpClient
from .panel_page import PanelPage

_PAGE_SIZE = (1000, 700)
_SHOWN = 150  # of a call and of its result


class _Show:
    """Makes calls and shows what comes of them, with pictures of the page."""

    def __init__(self, client: McpClient, panel: PanelPage, tab: str, pictures: Path) -> None:
        self._client, self._driver = client, panel.driver
        self._tab, self._pictures = tab, pictures

    def use(self, tool: str, picture: str = "", is_error: bool = False, **arguments: Any) -> Any:
        """The result of a call. Raises RuntimeError when it is not as expected."""
        print(f"> browser_{tool} {json.dumps(arguments)}"[:_SHOWN], flush=True)
        result = self._client.call(f"browser_{tool}", arguments)
        text = result["content"][0]["text"]
        value = result.get("structuredContent", {})
        shown = value.get("error") or value.get("data") or value or text
        print(f"  {json.dumps(shown)}"[:_SHOWN] + f" ({len(text)} bytes)", flush=True)
        if result["isError"] != is_error:
            raise RuntimeError(f"browser_{tool}: {text}")
        if picture:
            self._take(self._pictures / f"mcp-{picture}.png")
        return result["structuredContent"]

    def ref(self, query: str) -> str:
        return str(self.use("find", query=query)["data"]["items"][0]["ref"])

    def _take(self, picture: Path) -> None:
        self._driver.switch_to.window(self._tab)
        self._driver.execute_cdp_cmd("Page.bringToFront", {})  # others are not painted
        self._driver.set_window_size(*_PAGE_SIZE)
        self._driver.save_screenshot(str(picture))
        print(f"  {picture.relative_to(wine.ROOT)}", flush=True)


def _use_all_tools(show: _Show, site: str) -> None:
    show.use("navigate", url=f"{site}/shop.html")
    show.use("read", picture="shop")
    show.use("batch", picture="search", steps=[
        {"action": "type", "ref": show.ref("search the shop"), "text": "desk"},
        {"action": "click", "ref": show.ref("start the search")},
        {"action": "find", "query": "sorted by"}])
    show.use("select", picture="sorted", ref=show.ref("sort by"), value="name")
    show.use("scope", name="News")
    show.use("type", picture="typed", ref=show.ref("e-mail"), text="ann@example.org")
    show.use("scope", clear=True)
    show.use("click", picture="basket", ref=show.ref("desk lamp 6"))
    show.use("navigate", action="back")
    show.use("navigate", url=f"{site}/reviews.html")
    show.use("read", picture="hostile-page", is_error=True)


def show_tools(panel: PanelPage, tab: str, site: str, build: str, environment: Mapping[str, str],
               pictures: Path) -> bool:
    """All tools, on the site's pages in this tab; pictures of it go into the folder. Whether the
    server ended in order. Raises RuntimeError when a call does not end as it should."""
    with McpClient(build, env=environment) as client:
        server = client.initialize()
        about = server["serverInfo"]
        print(f"{about['name']} {about['version']} speaks {server['protocolVersion']}; "
              f"{len(client.ask('tools/list')['tools'])} tools", flush=True)
        _use_all_tools(_Show(client, panel, tab, pictures), site)
        code, took = client.end()
    print(f"the server ended with {code} within {took * 1000:.0f} ms of the end of its input")
    return code == 0
