"""Things that end: the extension, the browser, the agent. Nothing may be left behind."""

import os
import signal

import psutil
import pytest

from devkit.browser.chromium import Browser
from devkit.browser.panel_page import PanelPage
from devkit.panel import wine
from devkit.panel.host_setup import offer_program

from support import processes
from support.standin import StandIn

RELOADS = 4


@pytest.fixture(scope="module")
def own(shared, prefix, tmp_path_factory):
    """own() gives a panel whose host starts its agent itself; a new one when the last is gone."""
    shared.close()
    environment = wine.environment(prefix) | offer_program("windows", prefix)
    panels = []

    def current():
        if not panels or not psutil.pid_exists(panels[-1].browser.pid):
            folder = tmp_path_factory.mktemp("own") / "profile"
            browser = Browser(folder, environment=environment).__enter__()
            panels.append(PanelPage(browser))
            panels[-1].open_tab("about:blank")
        panels[-1].wait_until_ready()
        panels[-1].new_chat()
        return panels[-1]

    yield current
    for panel in panels:
        panel.browser.__exit__(None, None, None)


def test_an_agent_that_is_killed_in_mid_turn_is_one_error_and_the_next_turn_works(
        shared, own, prefix):
    shared.close()
    agent = StandIn()
    try:
        panel = own()
        with panel.whole_turn():
            panel.send("/scenario silent")
            panel.wait_for(lambda: agent.running_turns == 1, "the turn did not begin")
            agent.kill()
    finally:
        agent.kill()
    [error] = panel.rows_of("error")
    assert error.text == "The agent gave no answer."
    assert not panel.busy and panel.link_state == "connected"
    panel.turn("and now")  # by the program that the host finds and starts
    assert panel.answer == ("Hello! This is the stand-in program, started by the host. "
                            "You said: and now")
    assert not panel.rows_of("error")
    processes.wait_for_count(prefix, processes.AGENT, 1)


def test_a_killed_host_is_started_again_and_a_missing_one_tried_again(own, prefix):
    panel = own()
    [host] = processes.wait_for_count(prefix, processes.HOST, 1)
    manifest = next((panel.browser.profile / "NativeMessagingHosts").iterdir())
    text = manifest.read_text()
    manifest.unlink()
    host.kill()
    # The first attempt fails at once, the next ones after longer and longer pauses.
    panel.wait_for(lambda: "host not found. Trying again in " in panel.link_text, "no word of it")
    panel.type("Is anybody there?")
    panel.wait_for(lambda: panel.rows_of("error"), "no error")
    assert panel.rows_of("error")[0].text == (
        "The message was not sent: not connected to the host")
    manifest.write_text(text)
    panel.wait_until_ready()
    [again] = processes.wait_for_count(prefix, processes.HOST, 1)
    assert again.pid != host.pid
    panel.turn("and now")
    assert panel.answer.endswith("You said: and now")


def test_reloading_the_extension_leaves_nothing_behind(own, prefix):
    panel = own()
    [first] = processes.wait_for_count(prefix, processes.HOST, 1)
    seen = {first.pid}
    for _ in range(RELOADS):
        panel.restart_extension()
        panel.wait_until_ready()
        [host] = processes.wait_for_count(prefix, processes.HOST, 1)
        seen.add(host.pid)
        processes.wait_for_count(prefix, processes.AGENT, 1)
    assert len(seen) == RELOADS + 1, "some reload kept the host"
    panel.turn("still well")
    assert "still well" in panel.answer


def test_a_killed_browser_takes_host_and_agent_with_it(own, prefix):
    panel = own()
    panel.turn("before the end")
    processes.wait_for_count(prefix, processes.HOST, 1)
    os.kill(panel.browser.pid, signal.SIGKILL)
    processes.wait_for_count(prefix, processes.HOST, 0)
    processes.wait_for_count(prefix, processes.AGENT, 0)
