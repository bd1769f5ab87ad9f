"""The stand-in agent and the host get on: each of its scenarios and faults is a turn's worth."""

import pytest

from support import builds

from devkit.panel.standin_process import StandInProcess

SCENARIOS = [
    "hello", "unicode", "echo", "tools", "commands", "null-content", "usage-none",
    "usage-twice", "usage-alone", "no-final-blank-line",
]

# What the turn ends with: (ok, the beginning of the error).
FAULTS = {
    "status-500": (False, "no chat preset is selected"),
    "malformed-json": (False, "[json.exception.parse_error.101]"),
    "invalid-utf8": (False, "[json.exception.parse_error.101]"),
    "deep-json": (False, "json nested too deeply"),
    "models-broken": (False, "[json.exception.parse_error.101]"),
    "models-empty": (False, "no chat preset is selected"),
    "never-ready": (False, "morva-viewer-cli.exe is not on PATH"),
}


def one_turn(start_panel, *arguments):
    with StandInProcess(["--port", "8090", *arguments]):
        panel = start_panel()
        turn = panel.run_turn("hello there", preset="", timeout=60)
        panel.end()
    return turn


@pytest.mark.parametrize("name", SCENARIOS)
def test_a_scenario_is_a_good_turn(start_panel, name):
    turn = one_turn(start_panel, "--scenario", name)
    assert turn.done == (True, "")
    deltas = "".join(args[0]["delta"] for args in turn.args_of("appendAssistantDelta"))
    assert turn.text == deltas and deltas


@pytest.mark.parametrize("name", FAULTS)
def test_a_fault_ends_the_turn_with_its_reason(start_panel, name):
    ok, error = FAULTS[name]
    turn = one_turn(start_panel, "--fault", name)
    assert turn.done[0] is ok and turn.done[1].startswith(error), turn.done


def test_a_dropped_stream_ends_once(start_panel):
    assert len(one_turn(start_panel, "--fault", "drop").args_of("agentDone")) == 1


def test_a_consent_question_is_shown_and_a_stop_ends_it(start_panel):
    with StandInProcess(["--port", "8090", "--scenario", "consent"]):
        panel = start_panel()
        mark = panel.mark()
        panel.send("send", prompt="hi")
        (question,) = panel.wait_event("consentRequest", since=mark)
        assert not {"object", "type", "model"} & set(question)
        assert panel.ask("stop")["ok"] is True
        assert panel.wait_event("agentDone", since=mark)[1:] == [False, "cancelled"]
        panel.end()


def test_tokens_come_one_by_one_when_the_agent_is_slow(start_panel):
    with StandInProcess(["--port", "8090", "--scenario", "long", "--tokens-per-second", "200"]):
        panel = start_panel()
        mark = panel.mark()
        panel.send("send", prompt="hi")
        for seq in range(1, 31):
            panel.wait_event("appendAssistantDelta", lambda a, n=seq: a[0]["seq"] == n, mark)
        panel.ask("stop")
        panel.wait_event("agentDone", since=mark, timeout=20 * builds.SLOWER)
        panel.end()
