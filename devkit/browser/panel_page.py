"""The panel in a browser: what a user does there, and what the page then shows."""

from __future__ import annotations

import json
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from typing import Any, TypeVar

from selenium.common.exceptions import TimeoutException
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.remote.webdriver import WebDriver
from selenium.webdriver.support.wait import WebDriverWait

from .chromium import PANEL_URL, Browser

Json = dict[str, Any]
Seen = TypeVar("Seen")

_PATIENCE_S = 60  # a start of Wine or of a page may take long on a busy machine

_LOAD_AGAIN_S = 0.7

_ROWS = """
  return [...document.querySelectorAll('#chat > *')].map((row) => ({
    kind: row.className, tag: row.tagName, text: row.innerText, data: {...row.dataset}}));
"""


_REQUEST = """
  const [request, done] = arguments;
  const port = chrome.runtime.connect({name: 'panel'});
  port.onMessage.addListener((message) => {
    if (message.id !== 1) return;
    port.disconnect();
    done(message.reply ?? message.error);
  });
  port.postMessage({id: 1, request});
"""


@dataclass(frozen=True)
class Row:
    """One thing in the conversation; `kind` is its class, "message user" for example."""

    kind: str
    text: str
    data: Json


def _is_panel(driver: WebDriver) -> bool:
    return bool(driver.execute_script(
        "return location.href === arguments[0] && 'turnsOver' in (document.body?.dataset ?? {})",
        PANEL_URL))


class PanelPage:
    """The panel in the first tab of a browser. Calls make that tab the driver's current one."""

    def __init__(self, browser: Browser) -> None:
        self.browser = browser
        self.driver = browser.driver
        self._handle = self.driver.current_window_handle
        self.open()

    def open(self) -> None:
        """Opens the panel, or loads it anew."""
        self.show()
        self.driver.get(PANEL_URL)
        self._wait_until_open()

    def _wait_until_open(self) -> None:
        self.show()
        deadline = time.monotonic() + _PATIENCE_S
        patience = _LOAD_AGAIN_S
        while True:
            try:
                WebDriverWait(self.driver, patience, 0.05).until(_is_panel)
                return
            except TimeoutException:
                if time.monotonic() > deadline:
                    raise
            # An error page, if the extension is not there yet; or a page that takes its time, and
            # loading it again too often would never let it end.
            patience *= 2
            self.driver.get(PANEL_URL)

    def restart_extension(self) -> None:
        """Reloads the extension, which closes the panel's page, and opens the panel anew.

        Another tab must be open: the browser ends with its last one.
        """
        stays = next(each for each in self.driver.window_handles if each != self._handle)
        self.run("setTimeout(() => chrome.runtime.reload(), 0)")
        self.driver.switch_to.window(stays)
        WebDriverWait(self.driver, _PATIENCE_S, 0.05).until(
            lambda driver: self._handle not in driver.window_handles, "the panel stays open")
        self._handle = stays
        self.open()
        self.open_tab("about:blank")

    def open_tab(self, url: str) -> str:
        """Opens an address in a tab behind the panel; gives the tab's handle."""
        before = set(self.driver.window_handles)
        self.run("chrome.tabs.create({url: arguments[0], active: false})", url)
        WebDriverWait(self.driver, _PATIENCE_S, 0.05).until(
            lambda driver: set(driver.window_handles) - before, "the tab does not open")
        return (set(self.driver.window_handles) - before).pop()

    def show(self) -> None:
        self.driver.switch_to.window(self._handle)

    def run(self, script: str, *args: object) -> Any:
        self.show()
        return self.driver.execute_script(script, *args)

    def wait_for(self, condition: Callable[[], Seen], what: str, patience: float = _PATIENCE_S
                 ) -> Seen:
        """Waits until the condition gives something; fails with `what` and what is there."""
        self.show()
        try:
            return WebDriverWait(self.driver, patience, 0.05).until(lambda _: condition())
        except TimeoutException:
            raise AssertionError(f"{what}\n{self.state()}") from None

    def state(self) -> str:
        """What the panel shows, in words, for whoever has to find out why it waits."""
        shown = "\n".join(f"  {row.kind}: {row.text[:200]}" for row in self.rows)
        return (f"link: {self.link_text!r}, agent: {self.agent_state!r}, "
                f"tool server: {self.tool_server!r}, log: {self.log_lines}\n{shown}")

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
        script = """
          return [...document.querySelectorAll('#debug-log li')].map((line) => line.textContent);
        """
        return self.run(script)

    def wait_until_ready(self) -> None:
        """The host is there, its tool server is known, and the agent has told its presets."""
        self.wait_for(lambda: self.link_state == "connected", "no connection to the host")
        self.wait_for(lambda: self.tool_server.startswith("http"), "no tool server")
        self.wait_for(lambda: self.run("return document.getElementById('preset').dataset.loaded"),
                      "no presets")

    def request(self, **message: object) -> Json:
        """The host's reply to a message, past what the panel offers."""
        self.show()
        reply: Json = self.driver.execute_async_script(_REQUEST, message)
        return reply

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
        return int(self.run("return Number(document.body.dataset.turnsOver)"))

    def wait_for_question(self) -> Row:
        """The card on which the agent asks for consent."""
        script = "return document.querySelector('.consent button') !== null"
        self.wait_for(lambda: self.run(script), "no question")
        return self.rows_of("consent")[-1]

    def allow(self) -> None:
        """Presses the button that gives consent."""
        self.run("document.querySelector('.consent button.primary').click()")

    @contextmanager
    def whole_turn(self, patience: float = _PATIENCE_S) -> Iterator[None]:
        """What is done inside begins or ends a turn; afterwards it is over."""
        before = self.turns_over
        yield
        self.wait_for(lambda: self.turns_over > before, "the turn did not end", patience)

    def turn(self, prompt: str, patience: float = _PATIENCE_S) -> list[Row]:
        """A whole turn in a chat of its own; everything that it showed."""
        self.new_chat()
        with self.whole_turn(patience):
            self.send(prompt)
        return self.rows[1:]
