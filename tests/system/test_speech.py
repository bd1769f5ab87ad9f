"""Reading aloud: what reaches the agent, in which order, and what the panel hears of it."""

from support.builds import IS_WINDOWS
from support.panel_side import compact
from support.scripted_agent import CONSENT, READY, SPEAK, answers, holds

STARTED = ("ttsStarted", [])
DONE = ("ttsDone", [])
CONTROLS = {
    "speakPause": (f"{SPEAK}/pause", ("ttsPaused", [])),
    "speakResume": (f"{SPEAK}/resume", ("ttsResumed", [])),
    "speakStop": (f"{SPEAK}/stop", DONE),
}


def test_texts_are_spoken_and_each_end_told(panel, agent):
    for nothing in ({}, {"text": ""}, {"text": None}):
        panel.ask_for_ack("speak", **nothing)
    panel.prove_alive()
    assert (panel.told(), agent.exchanges) == ([], [])
    texts = ["Hällo\n\"you\"", *(f"text {number}" for number in range(20))]
    panel.ask_for_ack("speak", text=texts[0])
    assert panel.wait_told(2) == [STARTED, DONE]
    for text in texts[1:]:
        panel.send("speak", text=text)
    told = panel.wait_told(42)
    assert (told.count(STARTED), told.count(DONE), len(told)) == (21, 21, 42)
    first, *others = agent.seen(SPEAK)
    assert (first.method, first.header("Content-Type")) == ("POST", ["application/json"])
    assert first.body == compact({"text": texts[0]})
    assert sorted(each.json()["text"] for each in others) == sorted(texts[1:])


def test_a_failure_is_one_line_and_then_the_end(panel, agent):
    for path, answer, error in (
            (SPEAK, {"ok": False, "error": "no voice"}, "no voice"),
            (READY, {"ready": False}, "morva-viewer-cli.exe is not on PATH")):
        agent.on[path] = answers(answer)
        mark = panel.mark()
        panel.ask_for_ack("speak", text="a")
        assert panel.wait_told(3, mark) == [
            STARTED, ("appendText", [{"role": "error", "text": error}]), DONE]


# --- Controls ---

def test_stopping_a_turn_also_stops_speech(panel, agent):
    panel.find_agent()
    panel.ask_for_ack("stop")
    assert panel.wait_told(1) == [DONE]
    assert [e.body for e in agent.seen(CONSENT)] == [b'{"cancel":true}']
    assert [e.body for e in agent.seen(f"{SPEAK}/stop")] == [b"{}"]


def test_the_ack_does_not_wait_for_the_agent_and_a_stop_gives_two_ends(panel, agent):
    """The agent never answers, except under Wine, where nothing wakes a closed request."""
    agent.on[SPEAK] = holds
    panel.ask_for_ack("speak", text="a")
    agent.wait_for(SPEAK)
    panel.prove_alive()
    assert panel.told() == [STARTED]
    panel.ask_for_ack("speakStop")
    if IS_WINDOWS:
        agent.cancelled.set()
    assert panel.wait_told(3) == [STARTED, DONE, DONE]


def test_a_stalled_control_holds_up_no_other_message(panel, agent):
    agent.on[f"{SPEAK}/pause"] = holds
    panel.find_agent()
    panel.ask_for_ack("speakPause")
    agent.wait_for(f"{SPEAK}/pause")
    for kind in ("getStatus", "poll", "speakResume", "speakStop"):
        assert panel.ask(kind, timeout=5)["ok"] is True
    assert panel.told() == []
    agent.cancelled.set()
    assert panel.wait_told(3) == [event for _, event in CONTROLS.values()]
    assert [(e.method, e.path, e.body) for e in agent.exchanges if e.path.startswith(f"{SPEAK}/")
            ] == [("POST", path, b"{}") for path, _ in CONTROLS.values()]
