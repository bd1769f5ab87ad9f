"""./dev demo --browser: the dev extension in a real Chromium, with the real host.

With a display, a window opens and stays until it is closed: chat in the panel, or try the messages
that are printed here. Without one, the same messages are sent by this program, and what the panel
then shows is written to build/demo/. Exit code 0 only if every turn succeeded.

./dev demo --mcp: instead of a chat, an MCP client uses the browser; pictures of the page are
written in any case. Exit code 0 only if every call ended as it should.
"""

from __future__ import annotations

import argparse
import os
import shutil
import signal
import sys
import tempfile
import time
from collections.abc import Iterator
from contextlib import ExitStack, contextmanager
from pathlib import Path

from selenium.common.exceptions import WebDriverException

from ..panel import wine
from ..panel.host_setup import demo_prefix, offer_program
from ..panel.standin_process import StandInProcess
from .chromium import Browser
from .local_site import LocalSite
from .mcp_demo import show_tools
from .panel_page import PanelPage, Row

_PICTURES = wine.ROOT / "build" / "demo"
_PANEL_SIZE = (460, 820)
_CONSENT = "/scenario consent"
_STILL_OPEN_CHECK_S = 1.0


def _parse(arguments: list[str] | None) -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./dev demo", description=__doc__)
    parser.add_argument("--browser", action="store_true", help="what brought you here")
    parser.add_argument("--mcp", action="store_true", help="show what an MCP client can do")
    parser.add_argument("--prompt", action="append", metavar="TEXT",
                        help="send this instead of the usual messages; may be repeated")
    parser.add_argument("--tokens-per-second", default="40", metavar="N", help="0: no limit")
    parser.add_argument("--launch", action="store_true",
                        help="let the host find and start morva-viewer-cli.exe, which only greets")
    parser.add_argument("--build", default="windows", metavar="PRESET",
                        help="windows (under Wine), native, asan")
    parser.add_argument("--headless", action="store_true", help="also when there is a display")
    return parser.parse_args(arguments)


def _usual_prompts(site: LocalSite) -> dict[str, str]:
    """By the name of the picture that the turn is shown in."""
    return {
        "hello": "Hello, is anybody there?",
        "browse": f"/scenario browse {site.url}",
        "hostile-page": f"/scenario hostile-page {site.url}",
        "commands": "/scenario commands",
        "tools": "/scenario tools",
    }


@contextmanager
def _surroundings(
        options: argparse.Namespace) -> Iterator[tuple[Browser, LocalSite, dict[str, str]]]:
    """The browser with its host, an agent, the site, and what is added to the environment of the
    host. Raises RuntimeError in the end when something was said against the protocol."""
    with ExitStack() as stack:
        folder = Path(stack.enter_context(tempfile.TemporaryDirectory(
            prefix="morva-browser-", ignore_cleanup_errors=True)))
        prefix = stack.enter_context(demo_prefix(options.build))
        environment = {"MORVA_CLI_TOKENS_PER_SECOND": options.tokens_per_second}
        if prefix is None:
            environment |= {"APPDATA": str(folder), "LOCALAPPDATA": str(folder)}
        else:
            environment |= wine.environment(prefix)
        if options.launch:
            environment |= offer_program(options.build, prefix)
        else:
            agent = ["--port", "8090", "--tokens-per-second", options.tokens_per_second]
            stack.enter_context(StandInProcess(agent))
        site = stack.enter_context(LocalSite())
        headless = options.headless or not os.environ.get("DISPLAY")
        report = folder / "protocol.txt"
        stack.callback(_raise_faults, report)
        browser = Browser(folder / "profile", options.build, environment, headless, report)
        yield stack.enter_context(browser), site, environment


def _raise_faults(report: Path) -> None:
    if report.exists():
        raise RuntimeError(f"against the protocol:\n{report.read_text()}")


def _show_turns(panel: PanelPage, prompts: dict[str, str]) -> bool:
    """Sends one message after the other and takes a picture of each; whether all went well."""
    panel.driver.set_window_size(*_PANEL_SIZE)
    good = True
    for name, prompt in prompts.items():
        print(f"> {prompt}", flush=True)
        rows = panel.turn(prompt, patience=120)
        good = _show(panel, rows, name) and good
    return good


def _show(panel: PanelPage, rows: list[Row], name: str) -> bool:
    for row in rows:
        print(f"  {row.kind}: {' '.join(row.text.split())[:150]}", flush=True)
    picture = _PICTURES / f"{name}.png"
    panel.driver.save_screenshot(str(picture))
    print(f"  {picture.relative_to(wine.ROOT)}", flush=True)
    return not any(row.kind == "error" for row in rows)


def _show_consent(panel: PanelPage) -> bool:
    """A turn that asks: a picture of the question, then the answer to it."""
    print(f"> {_CONSENT}", flush=True)
    panel.new_chat()
    before = panel.turns_over
    panel.send(_CONSENT)
    panel.wait_for_question()
    good = _show(panel, panel.rows[1:], "consent")
    panel.allow()
    panel.wait_for(lambda: panel.turns_over > before, "the turn did not end")
    return _show(panel, panel.rows[1:], "consent-given") and good


def _wait_until_closed(browser: Browser) -> None:
    while True:
        try:
            if not browser.driver.window_handles:
                return
        except WebDriverException:
            return
        time.sleep(_STILL_OPEN_CHECK_S)


def _run(options: argparse.Namespace) -> bool:
    shutil.rmtree(_PICTURES, ignore_errors=True)
    _PICTURES.mkdir(parents=True)
    with _surroundings(options) as (browser, site, environment):
        panel = PanelPage(browser)
        tab = panel.open_tab(f"{site.url}/shop.html")
        panel.wait_until_ready()
        print(f"the host is connected; its tool server is {panel.tool_server}", flush=True)
        if options.mcp:
            return show_tools(panel, tab, site.url, options.build, environment, _PICTURES)
        prompts = _usual_prompts(site)
        if options.prompt:
            prompts = {f"prompt-{number}": text for number, text in enumerate(options.prompt, 1)}
        if options.headless or not os.environ.get("DISPLAY"):
            good = _show_turns(panel, prompts)
            return (bool(options.prompt) or _show_consent(panel)) and good
        print("Chat in the panel, which is also behind the extension's button. Try:")
        print("\n".join(f"  {prompt}" for prompt in [*prompts.values(), _CONSENT]))
        print("Close the window to end.", flush=True)
        _wait_until_closed(browser)
        return True


def main(arguments: list[str] | None = None) -> int:
    # So that an end by signal also ends what was started.
    for ending in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(ending, lambda number, _: sys.exit(128 + number))
    try:
        return 0 if _run(_parse(arguments)) else 1
    except (FileNotFoundError, RuntimeError, WebDriverException) as error:
        print(f"demo: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
