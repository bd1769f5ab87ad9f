"""The stand-in agent and the host get on, in the scenarios and faults that no other test plays."""

import pytest

from devkit.panel.standin_process import StandInProcess

# Arguments of the stand-in, and what the turn ends with: ok, and the beginning of the error.
BEHAVIOURS = {
    **{f"--scenario {name}": (True, "") for name in (
        "null-content", "usage-none", "usage-twice", "usage-alone", "no-final-blank-line")},
    "--fault status-500": (False, "no chat preset is selected"),
    "--fault malformed-json": (False, "[json.exception.parse_error.101]"),
    "--fault invalid-utf8": (False, "[json.exception.parse_error.101]"),
    "--fault deep-json": (False, "json nested too deeply"),
    "--fault models-broken": (False, "[json.exception.parse_error.101]"),
    "--fault models-empty": (False, "no chat preset is selected"),
    "--fault never-ready": (False, "morva-viewer-cli.exe is not on PATH"),
    "--fault drop": (None, ""),
}


@pytest.mark.parametrize("arguments", BEHAVIOURS)
def test_a_turn_ends_as_the_stand_in_means_it_to(shared_panel, arguments):
    ok, error = BEHAVIOURS[arguments]
    with StandInProcess(["--port", "8090", *arguments.split()]):
        turn = shared_panel.finish_turn(shared_panel.start_turn(preset="", until=None))
    assert ok is None or turn.done[0] == ok
    assert turn.done[1].startswith(error) and (turn.text or not ok)
