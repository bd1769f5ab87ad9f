"""The panel in a browser: what a user does there, and what the page then shows."""

from __future__ import annotations

import json
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any, TypeVar

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

from .chromium import PANEL_URL, Browser

Json = dict[str, Any]
Seen = TypeVar("Seen")

_PATIENCE_S = 45  # a start of Wine or of a page may take long on a busy machine

_ROWS = """
  return [...document.querySelectorAll('#chat > *')].map((row) => ({
    kind: row.className, tag: row.tagName, text: row.innerText, data: {...row.dataset}}));
"""


@dataclass(frozen=True)
class Row:
    """One thing in the conversation; `kind` is its class, "message user" for example."""

    kind: str
    text: str
    data: Json


class PanelPage:
    """The panel in a tab of its own. Calls make that tab the current one of the driver."""

    def __init__(self, browser: Browser) -> None:
        self.browser = browser
        self.driver = browser.driver
        self._handle = browser.open_tab(PANEL_URL)

    def show(self) -> None:
        self.driver.switch_to.window(self._handle)

    def run(self, script: str, *args: object) -> Any:
        self.show()
        return self.driver.execute_script(script, *args)

    def wait_for(self, condition: Callable[[], Seen], what: str, patience: float = _PATIENCE_S
                 ) -> Seen:
        """Waits until the condition gives something; fails with what was waited for."""
        self.show()
        note = f"{what}; link: {self.link_text!r}"
        return WebDriverWait(self.driver, patience, 0.05).until(lambda _: condition(), note)

    # The host

    @property
    def link_text(self) -> str:
        return str(self.run("return document.getElementById('link-text').textContent"))

    @property
    def link_state(self) -> str:
        return str(self.run("return document.getElementById('link-state').dataset.state"))

    @property
    def agent_state(self) -> str:
        return str(self.run("return document.getElementById('agent-state').textContent"))

    @property
    def tool_server(self) -> str:
        return str(self.run("return document.getElementById('host-tools').textContent"))

    @property
    def log_lines(self) -> list[str]:
        return self.run(
            "return [...document.querySelectorAll('#debug-log li')].map((line) => line.innerText)")

    def wait_until_ready(self) -> None:
        """The host is there, its tool server is known, and the agent has told its presets."""
        self.wait_for(lambda: self.link_state == "connected", "no connection to the host")
        self.wait_for(lambda: self.tool_server.startswith("http"), "no tool server")
        self.wait_for(lambda: self.run("return document.getElementById('preset').dataset.loaded"),
                      "no presets")

    # The conversation

    @property
    def rows(self) -> list[Row]:
        return [Row(row["kind"], row["text"], row["data"]) for row in self.run(_ROWS)]

    def rows_of(self, kind: str) -> list[Row]:
        return [row for row in self.rows if row.kind == kind]

    @property
    def busy(self) -> bool:
        return self.run("return document.body.dataset.busy") == "true"

    @property
    def answer(self) -> str:
        """The text of the last answer as it stands, without its usage line."""
        script = """
          const all = [...document.querySelectorAll('.message.assistant')];
          const run = all[all.length - 1]?.dataset.run;
          return all.filter((box) => box.dataset.run === run).flatMap((box) => [...box.childNodes])
            .filter((node) => node.nodeType === Node.TEXT_NODE).map((node) => node.data).join('');
        """
        return str(self.run(script))

    @property
    def usage(self) -> Json | None:
        script = "return [...document.querySelectorAll('.usage')].pop()?.dataset.usage"
        text = self.run(script)
        return json.loads(text) if text else None

    def new_chat(self) -> None:
        self.run("document.getElementById('new-chat').click()")

    def type(self, prompt: str) -> None:
        """Writes the message and sends it with the Enter key."""
        self.show()
        field = self.driver.find_element(By.ID, "prompt")
        field.send_keys(prompt)
        field.send_keys(Keys.ENTER)

    def send(self, prompt: str) -> None:
        """The same, past the keyboard: for long messages."""
        self.run("""
          document.getElementById('prompt').value = arguments[0];
          document.getElementById('composer').requestSubmit();
        """, prompt)

    @property
    def turns_over(self) -> int:
        """How many turns have ended since the panel was opened."""
        return int(self.run("return Number(document.body.dataset.turnsOver ?? 0)"))

    def turn(self, prompt: str, patience: float = _PATIENCE_S) -> list[Row]:
        """A whole turn in a chat of its own; everything that it showed."""
        self.new_chat()
        before = self.turns_over
        self.send(prompt)
        self.wait_for(lambda: self.turns_over > before, "the turn did not end", patience)
        return self.rows[1:]
