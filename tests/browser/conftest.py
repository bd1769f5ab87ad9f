"""Fixtures: a real Chromium with the dev extension and the Windows host, an agent, a site."""

import os
import re
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))  # for devkit

from devkit.browser.chromium import Browser  # noqa: E402
from devkit.browser.local_site import LocalSite  # noqa: E402
from devkit.panel import wine  # noqa: E402
from support.agent_tools import FINDINGS  # noqa: E402
from support.shared_browser import SharedBrowser  # noqa: E402

SCREENSHOTS = ROOT / "build" / "test" / "browser-screenshots"


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    if outcome.get_result().failed and call.when == "call":
        _take_screenshots(re.sub(r"[^\w.-]+", "-", item.name))


def _take_screenshots(name):
    SCREENSHOTS.mkdir(parents=True, exist_ok=True)
    for number, browser in enumerate(Browser.running):
        try:
            for tab, handle in enumerate(browser.driver.window_handles):
                browser.driver.switch_to.window(handle)
                browser.driver.execute_cdp_cmd("Page.bringToFront", {})  # others are not painted
                browser.driver.save_screenshot(str(SCREENSHOTS / f"{name}-{number}-{tab}.png"))
        except Exception as error:  # a picture that cannot be taken must not hide the failure
            print(f"no screenshot of browser {number}: {error}")


@pytest.fixture(scope="session")
def prefix():
    """The Wine prefix of this run. Its server must live in the network that the tests use."""
    return Path(os.environ.get("MORVA_WINEPREFIX") or wine.default_prefix()).resolve()


@pytest.fixture(scope="session")
def site():
    with LocalSite(Path(__file__).parent / "site") as serving:
        yield serving


@pytest.fixture(scope="session")
def shared(tmp_path_factory, prefix):
    shared = SharedBrowser(tmp_path_factory.mktemp("shared"), prefix)
    yield shared
    shared.close()


@pytest.fixture
def panel(shared):
    """The panel in a tab, connected, with an empty chat."""
    panel = shared.panel
    panel.new_chat()
    panel.driver.set_window_size(460, 820)
    yield panel
    shared.agent.reset()


@pytest.fixture(autouse=True)
def nothing_against_the_protocol(shared):
    """What is said between extension and host, and between agent and tool server."""
    yield
    faults = [f"{each.side}: {each.text}" for each in FINDINGS.take()]
    if shared.report.exists():
        faults.append(shared.report.read_text())
        shared.report.unlink()
    assert not faults, "\n".join(faults)[:20_000]


@pytest.fixture
def agent(shared):
    return shared.agent


@pytest.fixture
def tools(panel, shared):
    """The browser tools as the agent uses them."""
    return shared.tools


@pytest.fixture
def page(panel, shared):
    """page(script) runs a script in the tab that the agent works on."""

    def run(script, *args):
        panel.driver.switch_to.window(shared.page_tab)
        return panel.driver.execute_script(script, *args)

    return run
