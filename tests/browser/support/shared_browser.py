"""One browser and one stand-in agent for the tests that leave them as they found them."""

from devkit.browser.chromium import Browser
from devkit.browser.panel_page import PanelPage
from devkit.panel import wine

from support.agent_tools import AgentTools
from support.standin import StandIn


class SharedBrowser:
    """Started when first asked for, and again after close(): whoever needs the agent's port, or no
    other host, closes it first."""

    def __init__(self, folder, prefix):
        self._folder = folder
        self._prefix = prefix
        self._starts = 0
        self.report = folder / "protocol.txt"  # what was said against it
        self.browser = None
        self._panel = None
        self._agent = None

    @property
    def agent(self):
        if self._agent is None:
            self._agent = StandIn()
        return self._agent

    @property
    def panel(self):
        if self._panel is None:
            self.agent.reset()
            self._starts += 1
            if self.browser is not None:  # its panel did not become ready
                self.browser.__exit__(None, None, None)
            browser = Browser(
                self._folder / f"profile-{self._starts}",
                environment=wine.environment(self._prefix), report=self.report)
            self.browser = browser.__enter__()
            panel = PanelPage(self.browser)
            self.page_tab = panel.open_tab("about:blank")
            panel.wait_until_ready()
            self._panel = panel
        return self._panel

    @property
    def tools(self):
        assert self.panel
        return AgentTools(self.agent.provider)

    def close(self):
        browser, agent = self.browser, self._agent
        self.browser = self._panel = self._agent = None
        if browser is not None:
            browser.__exit__(None, None, None)
        if agent is not None:
            agent.__exit__(None, None, None)
