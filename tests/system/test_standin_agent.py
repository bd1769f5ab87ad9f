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


def test_a_scenario_is_a_good_turn(panel):
    with StandInProcess(["--port", "8090"]):
        for name in SCENARIOS:
            turn = panel.run_turn(f"/scenario {name} hello there", preset="", timeout=60)
            assert turn.done == (True, ""), name
            deltas = "".join(args[0]["delta"] for args in turn.args_of("appendAssistantDelta"))
            assert turn.text == deltas and deltas, name


@pytest.mark.parametrize("name", [*FAULTS, "drop"])
def test_a_fault_ends_the_turn_with_its_reason(shared_panel, name):
    with StandInProcess(["--port", "8090", "--fault", name]):
        mark = shared_panel.start_turn(preset="", until=None)
        ((ok, error),) = shared_panel.wait_ends(mark).values()
        if name != "drop":
            assert (ok, FAULTS[name][1]) == (FAULTS[name][0], error[:len(FAULTS[name][1])])


def test_a_consent_question_is_shown_and_a_stop_ends_it(panel):
    with StandInProcess(["--port", "8090", "--scenario", "consent"]):
        mark = panel.mark()
        panel.start_turn(preset="")
        (question,) = panel.wait_event("consentRequest", since=mark)
        assert not {"object", "type", "model"} & set(question)
        panel.ask_for_ack("stop")
        assert panel.finish_turn(mark).done == (False, "cancelled")


def test_tokens_come_one_by_one_when_the_agent_is_slow(panel):
    with StandInProcess(["--port", "8090", "--scenario", "long", "--tokens-per-second", "200"]):
        mark = panel.start_turn(preset="")
        for seq in range(1, 31):
            panel.wait_event("appendAssistantDelta", lambda a, n=seq: a[0]["seq"] == n, mark)
        panel.ask_for_ack("stop")
        panel.wait_ends(mark, timeout=20 * builds.SLOWER)
