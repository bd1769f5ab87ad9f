"""The extension's side of the browser tools: carries out "browserUse" commands on made-up pages."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from .page_model import SHOP_URL, Json, Page, load

_TAB_ID = 7


class ToolError(Exception):
    """What the extension would say when it cannot do what it was told."""


class StandInBrowser:
    """One window with one tab."""

    def __init__(self) -> None:
        self._history = [SHOP_URL]
        self._page: Page = load(SHOP_URL)
        self._epoch = 1
        self._revision = 1
        self._tools: dict[str, Callable[[Json], Json]] = {
            "browser_read": self._read,
            "browser_find": self._find,
            "browser_scope": self._scope,
            "browser_click": self._click,
            "browser_type": self._type,
            "browser_select": self._select,
            "browser_batch": self._batch,
            "browser_navigate": self._navigate,
        }

    @staticmethod
    def is_command(frame: Any) -> bool:
        return isinstance(frame, dict) and frame.get("command") == "browserUse"

    def answer(self, command: Json) -> Json:
        """The frame that answers a command."""
        reply: Json = {"requestId": command["requestId"], "protocolVersion": 1}
        name, arguments = command["payload"]["name"], command["payload"]["arguments"]
        try:
            data = self._run(name, arguments)
        except ToolError as error:
            return reply | {"ok": False, "error": {"code": "TOOL", "message": str(error)}}
        return reply | {"ok": True, "data": data}

    def _run(self, name: str, arguments: Json) -> Json:
        if name not in self._tools:
            raise ToolError(f"no tool {name}")
        outcome = self._tools[name](arguments)
        return {
            "tool": name, "ok": True, "url": self._page.url, "title": self._page.title,
            "tabId": _TAB_ID, "epoch": self._epoch, "revision": self._revision, **outcome,
        }

    def _element(self, arguments: Json) -> Json:
        element = self._page.element(str(arguments.get("ref", "")))
        if element is None:
            raise ToolError(f"no element {arguments.get('ref')}")
        return element

    def _model(self, items: list[Json]) -> Json:
        page = self._page
        return {"count": len(page.items), "items": items, "pageText": page.text,
                "zoneHints": page.zones, "files": page.files}

    def _read(self, _: Json) -> Json:
        return {"data": self._model(self._page.items)}

    def _find(self, arguments: Json) -> Json:
        wanted = str(arguments.get("query", "")).lower()
        found = [item for item in self._page.items if wanted in item["name"].lower()]
        return {"data": self._model(found) | {"matchCount": len(found)}}

    def _scope(self, arguments: Json) -> Json:
        ref = arguments.get("ref", "z1")
        return {"scope": {"active": True, "ref": ref, "name": "zone", "source": "agent"}}

    def _click(self, arguments: Json) -> Json:
        element = self._element(arguments)
        self._revision += 1
        return {"action": "click", "data": {"clicked": element["ref"], "name": element["name"]}}

    def _type(self, arguments: Json) -> Json:
        element = self._element(arguments)
        if "value" not in element:
            raise ToolError(f"{element['ref']} takes no text")
        element["value"] = str(arguments.get("text", ""))
        self._revision += 1
        return {"action": "type", "data": {"ref": element["ref"], "value": element["value"]}}

    def _select(self, arguments: Json) -> Json:
        element = self._element(arguments)
        if arguments.get("value") not in element.get("options", []):
            raise ToolError(f"{element['ref']} has no option {arguments.get('value')!r}")
        element["value"] = arguments["value"]
        self._revision += 1
        return {"action": "select", "data": {"ref": element["ref"], "value": element["value"]}}

    def _batch(self, arguments: Json) -> Json:
        steps: list[Json] = []
        for index, step in enumerate(arguments["steps"]):
            steps.append(self._step(index, step))
            if not steps[-1]["ok"]:
                break
        failed = next((step["index"] for step in steps if not step["ok"]), None)
        return {"data": {"steps": steps, "all_ok": failed is None, "first_failure": failed}}

    def _step(self, index: int, step: Json) -> Json:
        word = step.get("action") or step.get("tool") or step.get("name")
        action = str(word).removeprefix("browser_")
        report: Json = {"index": index, "action": action, "waited_ms": 0, "ok": True}
        if action == "wait":
            return report
        try:
            arguments = step.get("arguments", step) if action == "batch" else step
            return report | {"data": self._tools[f"browser_{action}"](arguments).get("data")}
        except ToolError as error:
            return report | {"ok": False, "error": str(error)}

    def _navigate(self, arguments: Json) -> Json:
        action = arguments.get("action") or ("goto" if arguments.get("url") else "tabs")
        if action in ("goto", "new"):
            self._history.append(str(arguments.get("url") or "about:blank"))
        elif action == "back" and len(self._history) > 1:
            self._history.pop()
        if action in ("goto", "new", "back", "reload"):
            self._page = load(self._history[-1])
            self._epoch += 1
            self._revision = 1
        tab = {"id": _TAB_ID, "title": self._page.title, "url": self._page.url, "active": True}
        return {"action": action, "tabs": [tab]}
