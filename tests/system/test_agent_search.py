"""Finding an agent that runs already, and losing it again."""

import socket

import pytest

from support import builds
from support.memory import peak_mib
from support.scripted_agent import (
    COMPLETIONS, READY, ScriptedAgent, answers, delta, streams)

NOT_FOUND = (False, "morva-viewer-cli.exe is not on PATH")


@pytest.mark.parametrize("port", range(8090, 8095))
def test_an_agent_on_any_of_the_five_ports_is_found(start_panel, port):
    with ScriptedAgent(port=port) as agent:
        panel = start_panel()
        turn = panel.run_turn()
        assert turn.text == "hello"
        assert ("trace", f"reusing llm agent on port {port}") in turn.log_lines
        request = agent.seen(READY)[0]
        assert (request.method, request.body) == ("GET", b"")
        assert request.header("Content-Type") == []
        panel.end()


@pytest.mark.parametrize("port", [8089, 8095])
def test_no_other_port_is_asked(start_panel, port):
    with ScriptedAgent(port=port) as agent:
        panel = start_panel()
        assert panel.run_turn().done == NOT_FOUND
        assert agent.exchanges == []
        panel.end()


def test_the_lowest_port_that_is_ready_wins(start_panel):
    not_ready = answers({"ready": False})
    with ScriptedAgent(port=8090, ready=not_ready) as first, \
            ScriptedAgent(port=8091, turn=streams(delta("second"))), \
            ScriptedAgent(port=8092, turn=streams(delta("third"))) as third:
        panel = start_panel()
        assert panel.run_turn().text == "second"
        assert first.seen(COMPLETIONS) == third.seen(COMPLETIONS) == []
        panel.end()


def test_a_known_agent_is_asked_first_and_alone(start_panel):
    with ScriptedAgent(port=8092, turn=streams(delta("known"))):
        panel = start_panel()
        panel.run_turn()
        with ScriptedAgent(port=8090) as lower:
            assert panel.run_turn().text == "known"
            assert lower.exchanges == []
        panel.end()


def test_a_lost_agent_is_replaced_by_another(start_panel):
    panel = start_panel()
    with ScriptedAgent(port=8091, turn=streams(delta("first"))):
        assert panel.run_turn().text == "first"
    with ScriptedAgent(port=8094, turn=streams(delta("second"))):
        turn = panel.run_turn()
        assert turn.text == "second"
        assert ("trace", "reusing llm agent on port 8094") in turn.log_lines
    assert panel.run_turn().done == NOT_FOUND
    with ScriptedAgent(port=8093, turn=streams(delta("third"))):
        assert panel.run_turn().text == "third"
    panel.end()


def test_a_known_agent_that_is_not_ready_any_more_is_left(start_panel):
    with ScriptedAgent(port=8090, turn=streams(delta("first"))) as first, \
            ScriptedAgent(port=8091, turn=streams(delta("second"))):
        panel = start_panel()
        assert panel.run_turn().text == "first"
        first.on[READY] = answers({"ready": False})
        assert panel.run_turn().text == "second"
        panel.end()


def test_a_missing_agent_is_an_error_of_the_turn_only(start_panel):
    panel = start_panel()
    for _ in range(3):
        turn = panel.run_turn()
        assert turn.done == NOT_FOUND
        assert ("error", NOT_FOUND[1]) in turn.log_lines
    assert not [f for f in panel.host.frames if f["kind"] == "hostStatus"]
    panel.end()


def test_each_turn_asks_the_known_agent_once_whether_it_is_ready(start_panel, agent):
    panel = start_panel()
    panel.run_turn()
    asked = len(agent.seen(READY))
    for _ in range(3):
        panel.run_turn()
    assert len(agent.seen(READY)) - asked == 3
    panel.end()


def test_an_agent_that_dies_in_a_turn_ends_it(start_panel):
    panel = start_panel()
    with ScriptedAgent(port=8093) as agent:
        def dies(exchange):
            exchange.stream(delta("last words"))
            assert exchange.agent.cancelled.wait(20)

        agent.turn(dies)
        mark = panel.mark()
        panel.send("send", prompt="hi", preset="p")
        panel.wait_event("appendAssistantDelta", since=mark)
    assert panel.wait_event("agentDone", since=mark)[1:] == [True, ""]  # what was said counts
    panel.end()


def test_a_stream_without_a_blank_line_fills_no_memory(start_panel):
    """64 MiB of one event are taken, no more."""
    panel = start_panel()
    piece = b"data: " + b"x" * (1 << 20)

    def endless(exchange):
        exchange.stream()
        for _ in range(200):
            exchange.send(piece)

    with ScriptedAgent(turn=endless):
        before = peak_mib(panel)
        turn = panel.run_turn(timeout=90)
        assert turn.done == (False, "agent event too large")
        assert peak_mib(panel) - before < (900 if builds.IS_SANITIZED else 300)
        panel.prove_alive()
    panel.end()


def test_a_port_that_accepts_and_says_nothing_does_not_hold_up_a_lower_one(start_panel):
    """A listener whose queue is never served: the connection opens, and that is all."""
    with socket.create_server(("127.0.0.1", 8091)), ScriptedAgent(port=8090):
        panel = start_panel()
        turn = panel.run_turn(timeout=5 * builds.SLOWER)
        assert (turn.done, turn.text) == ((True, ""), "hello")
        panel.end()
