"""The end of standard input ends the host, soon and in order, whatever it is doing."""

import os
import threading

import pytest

from support import builds
from support.panel_side import exit_limit_seconds
from support.scripted_agent import (
    COMPLETIONS, MODELS, READY, ScriptedAgent, delta, holds, streams, streams_then_holds)

# The longest that an end may take when a child must be waited for.
CHILD_LIMIT_SECONDS = 2.3

# A busy machine may spoil one measurement, but not each of a few.
TRIES = 3


def ends_soon(start_busy, limit, alive=True):
    """start_busy() gives a host in the middle of something; the fastest of a few ends counts."""
    took = []
    for _ in range(TRIES):
        panel, clean_up = start_busy()
        took.append(panel.end(alive=alive))
        clean_up()
        if took[-1] <= limit * builds.SLOWER:
            return
    pytest.fail(f"the host took {took} s to end")


def nothing():
    pass


def test_when_idle(start_panel):
    ends_soon(lambda: (start_panel(), nothing), exit_limit_seconds())


BUSY = {
    "in the middle of an answer": {"turn": streams_then_holds(delta("a"))},
    "before the answer begins": {"turn": holds},
    "while the preset is looked up": {"models": holds},
    "while the agent is looked for": {"ready": holds},
}
PATHS = {"turn": COMPLETIONS, "models": MODELS, "ready": READY}


@pytest.mark.parametrize("name", BUSY)
def test_in_a_turn(start_panel, name):
    def start_busy():
        agent = ScriptedAgent(**BUSY[name])
        panel = start_panel()
        mark = panel.mark()
        panel.send("send", prompt="hi", preset="" if "models" in BUSY[name] else "p")
        (handler,) = BUSY[name]
        agent.wait_for(PATHS[handler])
        if name == "in the middle of an answer":
            panel.wait_event("appendAssistantDelta", since=mark)
        return panel, agent.close

    ends_soon(start_busy, exit_limit_seconds())


def test_in_twenty_turns_that_stream_as_fast_as_they_can(start_panel):
    def start_busy():
        ended = threading.Event()

        def floods(exchange):
            exchange.stream()
            while not ended.is_set():
                exchange.more(*(delta("word ") for _ in range(20)))

        agent = ScriptedAgent(turn=floods)
        panel = start_panel()
        for _ in range(20):
            panel.send("send", prompt="hi", preset="p")
        agent.wait_for(COMPLETIONS, 20, timeout=30)

        def clean_up():
            ended.set()
            agent.close()

        return panel, clean_up

    ends_soon(start_busy, 0.6)


def test_while_a_stop_waits_for_the_agent(start_panel):
    """The dispatcher itself is blocked, in a request; messages behind it wait."""
    def start_busy():
        agent = ScriptedAgent(consent=holds)
        panel = start_panel()
        panel.run_turn()
        panel.send("stop")
        agent.wait_for("/v1/chat/consent")
        panel.send("getStatus")
        return panel, agent.close

    # 500 ms for what had arrived before the end, should the request not be cut off at once.
    ends_soon(start_busy, 0.9, alive=False)


def test_messages_that_had_arrived_still_get_their_replies(start_panel):
    """They wait behind a request to the agent when the input ends, and it takes a moment."""
    ended = threading.Event()

    def slow(exchange):
        ended.wait(10)
        threading.Event().wait(0.15)
        exchange.answer({"ok": True})

    with ScriptedAgent(consent=slow) as agent:
        panel = start_panel()
        panel.run_turn()
        mark = panel.mark()
        tokens = [panel.send("stop")] + [panel.send("getStatus") for _ in range(100)]
        agent.wait_for("/v1/chat/consent")
        panel.host.close_stdin()
        ended.set()
        panel.expect_exit()
    frames = panel.frames_since(mark)
    assert [f["chromeRequestId"] for f in frames if "chromeRequestId" in f] == tokens


@pytest.mark.parametrize("behaviour", [{"never_ready": 1}, {"mute": 1}])
def test_while_an_agent_starts(start_panel, cli, behaviour):
    def start_busy():
        begun = len(cli.starts())
        panel = start_panel(env=cli.env(**behaviour))
        panel.send("send", prompt="hi", preset="p")
        cli.wait_for_starts(begun + 1)
        return panel, cli.wait_until_gone

    ends_soon(start_busy, CHILD_LIMIT_SECONDS)


def test_at_any_moment_of_a_start(start_panel, cli):
    """However far the start has come: no child is left behind."""
    for delay in (0, 0.01, 0.03, 0.05, 0.1, 0.2):
        panel = start_panel(env=cli.env())
        mark = panel.mark()
        panel.send("send", prompt="hi", preset="p")
        panel.wait_event("agentStarted", since=mark)
        threading.Event().wait(delay)
        panel.end(alive=False)
        cli.wait_until_gone()


def test_with_children_that_die_one_after_the_other(start_panel, cli):
    panel = start_panel(env=cli.env(exit=1))
    panel.send("send", prompt="hi", preset="p")
    cli.wait_for_starts(2)
    panel.end(limit=CHILD_LIMIT_SECONDS)
    cli.wait_until_gone()


@pytest.mark.parametrize("words", [1, 100_000])
def test_an_owned_agent_goes_with_the_host(start_panel, cli, words):
    def start_busy():
        panel = start_panel(env=cli.env(words=words, tokens_per_second=1000))
        mark = panel.mark()
        panel.send("send", prompt="hi", preset="p")
        panel.wait_event("appendAssistantDelta", since=mark, timeout=30)
        assert cli.running()
        return panel, cli.wait_until_gone

    ends_soon(start_busy, CHILD_LIMIT_SECONDS)


def test_a_found_agent_stays(start_panel):
    with ScriptedAgent() as agent:
        panel = start_panel()
        panel.run_turn()
        panel.end()
        asked = len(agent.exchanges)
        other = start_panel()
        assert other.run_turn().text == "hello"
        assert len(agent.exchanges) > asked
        other.end()


def test_in_a_flood_of_log_lines(start_panel, cli):
    def start_busy():
        panel = start_panel(env=cli.env(lines=5_000_000))
        mark = panel.mark()
        panel.send("send", prompt="hi", preset="p")
        panel.wait_event(
            "appendDebugLog", lambda a: a[0]["text"].startswith("line "), mark, timeout=30)
        return panel, cli.wait_until_gone

    ends_soon(start_busy, CHILD_LIMIT_SECONDS)


def test_while_the_browser_does_not_read(start_panel):
    """Writers are blocked, and the end must not wait for them."""
    def start_busy():
        agent = ScriptedAgent(turn=streams(*(delta("x" * 1000) for _ in range(500))))
        panel = start_panel()
        panel.host.pause_reading()
        for _ in range(5):
            panel.send("send", prompt="hi", preset="p")
        agent.wait_for(COMPLETIONS, 1)
        panel.host.close_stdin()
        return panel, agent.close

    for _ in range(2):
        panel, clean_up = start_busy()
        code = panel.host._process.wait(3)
        panel.host.resume_reading()
        assert code == 0
        clean_up()


def test_a_browser_that_closed_its_side_does_not_end_the_host(start_panel):
    """What it writes fails; it goes on until its input ends, and then ends in order."""
    with ScriptedAgent() as agent:
        panel = start_panel()
        panel.prove_alive()
        panel.close_output()
        for n in range(3):
            panel.send("send", prompt=f"turn {n}", preset="p")
            agent.wait_for(COMPLETIONS, n + 1)
        agent.seen(COMPLETIONS)[-1].finished.wait(10)
        panel.end(alive=False)


def test_end_after_end_under_load(start_panel):
    """Two turns stream and messages arrive while the input is closed."""
    count = 20
    ended = threading.Event()

    def streams_on(exchange):
        exchange.stream()
        while not ended.is_set():
            exchange.more(delta("word "))

    with ScriptedAgent(turn=streams_on) as agent:
        for n in range(count):
            panel = start_panel()
            for _ in range(2):
                panel.send("send", prompt="hi", preset="p")
            agent.wait_for(COMPLETIONS, 2 * n + 1, timeout=30)
            for _ in range(n % 7):
                panel.send("getStatus")
            panel.end(alive=n % 2 == 0)
        ended.set()


@pytest.mark.posix_only
def test_a_signal_that_interrupts_reading_does_no_harm(panel):
    for _ in range(10):
        os.kill(panel.pid, 19)  # stop
        os.kill(panel.pid, 18)  # continue
        panel.prove_alive()
    panel.end()
