"""The end of standard input ends the host, soon and in order, whatever it is doing."""

import contextlib
import ctypes
import os
import threading
import time
from typing import Any

import pytest

from support import builds
from support.panel_side import exit_limit_seconds
from support.scripted_agent import (
    COMPLETIONS, CONSENT, EVENTS, MODELS, READY, REALTIME_EVENTS, REALTIME_PTT, REALTIME_START,
    REALTIME_STOP, SPEAK, ScriptedAgent, delta, holds, streams, streams_then_holds)
from support.waiting import until

# The longest that an end may take when a child must be waited for.
CHILD_LIMIT_SECONDS = 2.3

# Which of the host's threads watches over its end, in the order of their start.
GUARD = 1

# A busy machine may spoil one measurement, but not each of a few.
TRIES = 3

CREDIT = "/v1/credit"


def ends_soon(start_busy, limit, alive=True):
    """start_busy(stack) returns a host in the middle of something, and leaves to the stack what is
    to be done after its end; the fastest of a few ends counts."""
    took = []
    for _ in range(TRIES):
        with contextlib.ExitStack() as stack:
            took.append(start_busy(stack).end(alive=alive))
        if took[-1] <= limit * builds.SLOWER:
            return
    pytest.fail(f"the host took {took} s to end")


@pytest.mark.parametrize("busy", [False, True])
def test_when_idle_or_in_the_middle_of_an_answer_and_of_event_streams(start_panel, busy):
    def start_busy(stack):
        agent = stack.enter_context(ScriptedAgent(turn=streams_then_holds(delta("a"))))
        panel = start_panel()
        if not busy:
            return panel
        panel.ask_for_ack("realtimeStart")
        panel.start_turn(until="appendAssistantDelta")
        agent.wait_feed(1)
        agent.wait_feed(1, REALTIME_EVENTS)
        return panel

    ends_soon(start_busy, exit_limit_seconds())


# What is under way, and the path on which the agent says no more.
STALLED = [
    ("send", READY), ("send", MODELS), ("send", COMPLETIONS), ("commandEventsSubscribe", EVENTS),
    ("speak", SPEAK), ("speakPause", f"{SPEAK}/pause"), ("agentReload", f"{SPEAK}/stop"),
    ("realtimeStart", REALTIME_START), ("realtimeStart", REALTIME_EVENTS),
    ("realtimeStop", REALTIME_STOP), ("realtimePushToTalk", REALTIME_PTT), ("stop", CONSENT),
    ("providerRpc", CREDIT),
]
KEYS = {"send": {"prompt": "hi", "preset": ""}, "speak": {"text": "a"},
        "providerRpc": {"method": "getCreditInfo"}}


@pytest.mark.parametrize("kind,path", STALLED, ids=lambda value: value)
def test_an_agent_that_stalls_does_not_hold_up_the_end(start_panel, kind, path):
    """The dispatcher itself may be blocked, in a request; messages behind it wait."""
    def start_busy(stack):
        agent = stack.enter_context(ScriptedAgent())
        agent.on[path] = holds
        panel = start_panel()
        if path != READY:
            panel.find_agent()
        if kind.startswith("realtime") and kind != "realtimeStart":
            panel.ask_for_ack("realtimeStart")
        if kind != "commandEventsSubscribe":
            panel.send(kind, **KEYS.get(kind, {}))
        agent.wait_until(lambda: [e for e in agent.exchanges if e.path.startswith(path)], path)
        for _ in range(4108 if path == CREDIT else 1):  # more than are queued
            panel.send("getStatus")
        return panel

    if kind == "send":  # which has a thread of its own
        ends_soon(start_busy, exit_limit_seconds())
    else:  # 500 ms for what had arrived before the end, should the request not be cut off at once
        ends_soon(start_busy, 0.9, alive=False)


WORDS = b'data: {"choices":[{"delta":{"content":"word "}}]}\n\n' * 20


@pytest.mark.parametrize("alive", [True, False])
def test_in_turns_that_stream_as_fast_as_they_can(start_panel, alive):
    """Messages arrive while the input is closed."""
    def floods(exchange):
        exchange.stream()
        while not exchange.agent.cancelled.is_set():
            exchange.send(WORDS)

    def start_busy(stack):
        agent = stack.enter_context(ScriptedAgent(turn=floods))
        panel = start_panel()
        panel.start_turn(2 if alive else 20)
        agent.wait_for(COMPLETIONS, 2 if alive else 20, timeout=30)
        panel.send("getStatus")
        return panel

    ends_soon(start_busy, 0.6, alive)


def send_large(panel):
    """More replies than a pipe takes, to a browser that does not read."""
    panel.host.pause_reading()
    return [panel.send("getStatus", chromeRequestId=f"{number} " + 20_000 * "x")
            for number in range(200)]


def test_messages_that_had_arrived_get_their_replies_though_they_are_read_late(start_panel):
    """They wait behind a request to the agent when the input ends, and it takes a moment."""
    ended = threading.Event()

    def slow(exchange):
        ended.wait(10)
        threading.Event().wait(0.15)  # that the host has seen the end of its input shows nowhere
        exchange.answer({"ok": True})

    with ScriptedAgent(consent=slow) as agent:
        panel = start_panel()
        panel.run_turn()
        mark = panel.mark()
        tokens = [panel.send("stop"), *send_large(panel)]
        agent.wait_for(CONSENT)
        panel.host.close_stdin()
        ended.set()
        threading.Event().wait(1)  # late
        panel.host.resume_reading()
        panel.expect_exit()
    frames = panel.frames_since(mark)
    assert [f["chromeRequestId"] for f in frames if "chromeRequestId" in f] == tokens


@pytest.mark.linux_side
def test_a_browser_that_never_reads_is_waited_for_no_longer_than_two_seconds(launch):
    """Whoever is blocked in writing: replies and turns."""
    longest = 2.4 * builds.SLOWER
    with ScriptedAgent(turn=streams(*(delta("x" * 1000) for _ in range(500)))) as agent:
        for number in range(TRIES):
            panel = launch()
            panel.host.pause_reading()
            panel.start_turn(5, until=None)
            agent.wait_for(COMPLETIONS, 5 * number + 1)
            send_large(panel)
            began = time.monotonic()
            panel.host.close_stdin()
            assert panel.host._process.wait(10) == 0
            took = time.monotonic() - began
            panel.host.kill()
            if took <= longest:
                break
    assert 1.9 <= took <= longest


def stop_threads_until_the_end(pid, but):
    """Stops all threads as a debugger does, in the order of their start, but the one numbered
    `but`, and waits until the host has ended."""
    seize, interrupt, any_child = 0x4206, 0x4207, 0x40000000
    libc = ctypes.CDLL(None, use_errno=True)
    threads = sorted(int(each) for each in os.listdir(f"/proc/{pid}/task"))
    del threads[but]
    for thread in threads:
        for request in (seize, interrupt):
            assert libc.ptrace(request, thread, None, None) == 0, os.strerror(ctypes.get_errno())
        _, status = os.waitpid(thread, any_child)
        assert os.WIFSTOPPED(status), "it has ended already"
    for thread in threads[1:]:  # the first is left to who started the process
        until(lambda: os.waitpid(thread, any_child | os.WNOHANG)[0], "the host is still there", 10)


@pytest.mark.skipif(builds.BUILD == "tsan", reason="the thread sanitizer takes locks of its own at "
                    "the end, which a thread that is stopped may hold")
def test_whatever_blocks_the_host_ends_in_four_seconds(launch):
    """Every thread is stopped in the middle of the end, but the one that watches over it."""
    panel = launch()
    send_large(panel)  # replies for which it waits for two seconds
    panel.host.close_stdin()
    began = time.monotonic()
    threading.Event().wait(0.5 * builds.SLOWER)  # that the end has been seen shows nowhere
    stop_threads_until_the_end(panel.pid, but=GUARD)
    assert panel.host._process.wait(1) == 0
    assert 3.9 < time.monotonic() - began < 4.4 * builds.SLOWER
    panel.host.kill()


# How the program behaves that the host has started, and what shows that it does: how often it was
# started, or a panel event.
STARTED: dict[str, tuple[dict, Any]] = {
    "never ready": ({"never_ready": 1}, 1),
    "mute": ({"mute": 1}, 1),
    "ends at once": ({"exit": 1}, 2),
    "quiet": ({"words": 1}, ("appendAssistantDelta", "")),
    "talking": ({"words": 100_000, "tokens_per_second": 1000}, ("appendAssistantDelta", "")),
    "printing": ({"lines": 5_000_000}, ("appendDebugLog", "'text': 'line ")),
}


@pytest.mark.parametrize("name", STARTED)
def test_an_owned_agent_goes_with_the_host(start_panel, cli, name):
    behaviour, sign = STARTED[name]

    def start_busy(stack):
        begun = len(cli.starts())
        panel = start_panel(env=cli.env(**behaviour))
        mark = panel.start_turn()
        if isinstance(sign, int):
            cli.wait_for_starts(begun + sign)
        else:
            panel.wait_event(sign[0], lambda args: sign[1] in str(args), mark, timeout=30)
            assert cli.running()
        stack.callback(cli.wait_until_gone)
        return panel

    ends_soon(start_busy, CHILD_LIMIT_SECONDS)


def test_at_any_moment_of_a_start(start_panel, cli):
    """However far the start has come: no child is left behind."""
    for delay in (0, 0.01, 0.03, 0.05, 0.1, 0.2):
        panel = start_panel(env=cli.env())
        panel.start_turn()
        threading.Event().wait(delay)  # the moment itself
        panel.end(alive=False)
        cli.wait_until_gone()


def test_a_found_agent_stays(start_panel, agent):
    panel = start_panel()
    panel.run_turn()
    panel.end()
    assert start_panel().run_turn().text == "hello"


def test_a_browser_that_does_not_read_for_a_while_loses_nothing(panel):
    pieces = [f"{n} " + "x" * 500 for n in range(1000)]
    with ScriptedAgent(turn=streams(*map(delta, pieces))) as agent:
        mark = panel.mark()
        panel.host.pause_reading()
        for session in "abcd":
            panel.start_turn(chat_session_id=session, until=None)
        agent.wait_for(COMPLETIONS, 1)
        tokens = [panel.send("getStatus") for _ in range(1000)]
        panel.host.resume_reading()
        panel.wait_ends(mark, 4)
    replies = [f["chromeRequestId"] for f in panel.frames_since(mark)
               if f.get("chromeRequestId") in set(tokens)]
    assert replies == tokens
    for session in "abcd":
        assert [(a[0]["seq"], a[0]["delta"]) for m, a in panel.events_since(mark)
                if m == "appendAssistantDelta" and a[0]["chatSessionId"] == session] == [
                    *enumerate(pieces, 1)]


def test_a_browser_that_closed_its_side_does_not_end_the_host(start_panel):
    """What it writes fails; it goes on until its input ends, and then ends in order."""
    with ScriptedAgent() as agent:
        panel = start_panel()
        panel.prove_alive()
        panel.host.close_stdout()
        for n in range(3):
            panel.start_turn(until=None)
            agent.wait_for(COMPLETIONS, n + 1)
        agent.seen(COMPLETIONS)[-1].finished.wait(10)
        panel.end(alive=False)
