"""Two profiles at once: each has a host of its own, and all hosts share one agent."""

from devkit.browser.chromium import Browser
from devkit.browser.panel_page import PanelPage
from devkit.panel import wine

from support.agent_tools import AgentTools


def test_two_profiles_chat_and_the_last_one_gets_the_tools(
        panel, tools, agent, page, site, tmp_path, prefix):
    tools.goto(f"{site.url}/form.html")
    assert agent.provider["url"].startswith(panel.tool_server)
    with Browser(tmp_path / "second", environment=wine.environment(prefix)) as browser:
        second = PanelPage(browser)
        second.open_tab("about:blank")
        second.wait_until_ready()
        assert (panel.tool_server, second.tool_server) == (
            "http://127.0.0.1:39270", "http://127.0.0.1:39271")

        second.turn("from the second")
        assert "from the second" in second.answer
        panel.turn("from the first")
        assert "from the first" in panel.answer
        assert not any("second" in row.text for row in panel.rows)
        assert not any("first" in row.text for row in second.rows)

        # The tools of a turn reach the host that registered last, whoever asked.
        last, other = (second, panel) if agent.provider["url"].startswith(
            second.tool_server) else (panel, second)
        for each in (last, other):
            each.run("delete document.body.dataset.lastTool")
        AgentTools(agent.provider).goto(f"{site.url}/basket.html")
        last.wait_for(lambda: last.run("return document.body.dataset.lastTool"),
                      "the panel does not say that the agent acted there")
        assert other.run("return document.body.dataset.lastTool ?? ''") == ""
        assert "reach the host that registered last" in last.run(
            "return document.getElementById('host-details').textContent.replace(/\\s+/g, ' ')")
    # The one that stays goes on alone.
    panel.turn("alone again")
    assert "alone again" in panel.answer
