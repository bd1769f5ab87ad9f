"""Where the agent is told that tools are to be had."""

import time

import pytest

from support.scripted_agent import ScriptedAgent, answers
from support.tool_server_client import ToolServer

PATH = "/v1/host-tool-providers"
VARIABLE = "MORVA_CHROME_HOST_TOOL"


def registrations(agent):
    return [exchange.json() for exchange in agent.seen(PATH)]


def browser_tools(server):
    return {"id": "chrome", "token": server.token,
            "url": f"http://127.0.0.1:{server.port}/api/agent-tools"}


def test_every_agent_that_is_ready_is_told(start_panel, agent):
    agent.on[PATH] = answers({"ok": True})
    panel = start_panel()
    server = ToolServer(panel)
    before = len(registrations(agent))
    for turns in range(1, 4):
        panel.run_turn()
        told = registrations(agent)[before:]
        assert len(told) == turns
        assert told == [browser_tools(server)] * turns
    exchange = agent.seen(PATH)[0]
    assert exchange.method == "POST"
    assert b": " not in exchange.body and b", " not in exchange.body
    lines = [text for text in panel.log_lines() if text.startswith("chrome browser tools")]
    assert set(lines) == {f"chrome browser tools http://127.0.0.1:{server.port}/api/agent-tools"}
    panel.end()


def test_an_agent_that_was_started_again_is_told_again(start_panel):
    panel = start_panel()
    server = ToolServer(panel)
    for _ in range(2):
        with ScriptedAgent() as agent:
            agent.on[PATH] = answers({"ok": True})
            panel.run_turn()
            assert registrations(agent)[-1] == browser_tools(server)
    panel.end()


@pytest.mark.parametrize("status", ["404 Not Found", "500 Internal Server Error"])
def test_a_refusal_does_not_stop_the_turn(start_panel, agent, status):
    agent.on[PATH] = answers(b"", status=status)
    panel = start_panel()
    ToolServer(panel)
    assert panel.run_turn().done == (True, "")
    assert len(registrations(agent)) == 1
    panel.end()


VARIABLES = {
    "dev=http://127.0.0.1:9/x?a=b": {"id": "dev", "url": "http://127.0.0.1:9/x?a=b"},
    "a==": {"id": "a", "url": "="},
    "a=" + "u" * 509: {"id": "a", "url": "u" * 509},
    "a=" + "u" * 510: None,
    "=url": None,
    "id=": None,
    "none": None,
}


@pytest.mark.parametrize("value", VARIABLES, ids=lambda value: value[:12])
def test_a_second_provider_comes_from_the_environment(start_panel, agent, value):
    agent.on[PATH] = answers({"ok": True})
    panel = start_panel(env={VARIABLE: value})
    server = ToolServer(panel)
    panel.run_turn()
    wanted = [VARIABLES[value]] if VARIABLES[value] else []
    assert registrations(agent) == [*wanted, browser_tools(server)]
    panel.end()


def test_a_slow_agent_is_told_before_the_turn_begins(start_panel, agent):
    def slowly(exchange):
        time.sleep(0.3)
        exchange.answer({"ok": True})

    agent.on[PATH] = slowly
    panel = start_panel()
    ToolServer(panel)
    panel.run_turn()
    paths = [exchange.path for exchange in agent.exchanges]
    assert paths.index(PATH) < paths.index("/v1/chat/completions")
    panel.end()
