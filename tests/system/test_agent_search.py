"""Finding an agent that runs already, and losing it again."""

import pytest

from support.scripted_agent import READY, ScriptedAgent, answers, delta, streams

NOT_FOUND = (False, "morva-viewer-cli.exe is not on PATH")


def says(text, port):
    return ScriptedAgent(port=port, turn=streams(delta(text)))


@pytest.mark.parametrize("port", range(8089, 8096))
def test_an_agent_on_any_of_the_five_ports_is_found(panel, port):
    with says("here", port) as agent:
        turn = panel.run_turn()
        if port not in range(8090, 8095):
            assert (turn.done, agent.exchanges) == (NOT_FOUND, [])
            return
        assert turn.text == "here"
        assert ("trace", f"reusing llm agent on port {port}") in turn.log_lines
        request = agent.seen(READY)[0]
        assert (request.method, request.body) == ("GET", b"")
        assert request.header("Content-Type") == []


def test_a_known_agent_is_asked_first_alone_and_once(panel):
    with says("known", 8092) as known:
        panel.run_turn()
        asked = len(known.seen(READY))
        with says("lower", 8090) as lower:
            for count in (1, 2, 3):
                assert panel.run_turn().text == "known"
                assert len(known.seen(READY)) - asked == count
            assert lower.exchanges == []
            known.on[READY] = answers({"ready": False})
            assert panel.run_turn().text == "lower"  # it is not ready any more


def test_a_lost_agent_is_replaced_by_another(panel):
    with says("first", 8091):
        assert panel.run_turn().text == "first"
    with says("second", 8094):
        turn = panel.run_turn()
        assert turn.text == "second"
        assert ("trace", "reusing llm agent on port 8094") in turn.log_lines
    mark = panel.mark()
    for _ in range(2):  # an error of the turn only
        turn = panel.run_turn()
        assert turn.done == NOT_FOUND
        assert ("error", NOT_FOUND[1]) in turn.log_lines
    assert not [f for f in panel.frames_since(mark) if f["kind"] == "hostStatus"]
    with says("third", 8093):
        assert panel.run_turn().text == "third"
