"""Reading aloud: what reaches the agent, in which order, and what the panel hears of it."""

import json

import pytest

from support.builds import IS_WINDOWS
from support.feeding_agent import SPEAK
from support.scripted_agent import CONSENT, READY, answers, holds

STARTED = ("ttsStarted", [])
DONE = ("ttsDone", [])
CONTROLS = {
    "speakPause": (f"{SPEAK}/pause", ("ttsPaused", [])),
    "speakResume": (f"{SPEAK}/resume", ("ttsResumed", [])),
    "speakStop": (f"{SPEAK}/stop", DONE),
}


def error_line(text):
    return ("appendText", [{"role": "error", "text": text}])


def test_a_text_is_spoken_and_its_end_told(panel, feeding):
    for nothing in ({}, {"text": ""}, {"text": None}):
        panel.ask_for_ack("speak", **nothing)
    panel.prove_alive()
    assert (panel.told(), feeding.exchanges) == ([], [])
    panel.ask_for_ack("speak", text="Hällo\n\"you\"")
    assert panel.wait_told(2) == [STARTED, DONE]
    (request,) = feeding.seen(SPEAK)
    assert (request.method, request.header("Content-Type")) == ("POST", ["application/json"])
    assert request.body == json.dumps(
        {"text": "Hällo\n\"you\""}, separators=(",", ":"), ensure_ascii=False).encode()


def test_a_failure_is_one_line_and_then_the_end(panel, feeding):
    feeding.on[SPEAK] = answers({"ok": False, "error": "no voice"})
    panel.ask_for_ack("speak", text="a")
    assert panel.wait_told(3) == [STARTED, error_line("no voice"), DONE]
    feeding.on[READY] = answers({"ready": False})
    mark = panel.mark()
    panel.ask_for_ack("speak", text="a")
    assert panel.wait_told(3, mark) == [
        STARTED, error_line("morva-viewer-cli.exe is not on PATH"), DONE]


def test_twenty_texts_at_once_end_twenty_times(panel, feeding):
    texts = [f"text {number}" for number in range(20)]
    for text in texts:
        panel.send("speak", text=text)
    told = panel.wait_told(40)
    assert (told.count(STARTED), told.count(DONE), len(told)) == (20, 20, 40)
    assert sorted(e.json()["text"] for e in feeding.seen(SPEAK)) == sorted(texts)


# --- Controls ---

def test_stopping_a_turn_also_stops_speech(panel, feeding):
    panel.find_agent()
    panel.ask_for_ack("stop")
    assert panel.wait_told(1) == [DONE]
    assert [e.body for e in feeding.seen(CONSENT)] == [b'{"cancel":true}']
    assert [e.body for e in feeding.seen(f"{SPEAK}/stop")] == [b"{}"]


def test_the_ack_does_not_wait_for_the_agent_and_a_stop_gives_two_ends(panel, feeding):
    """The agent never answers, except under Wine, where nothing wakes a closed request."""
    feeding.on[SPEAK] = holds
    panel.ask_for_ack("speak", text="a")
    feeding.wait_for(SPEAK)
    panel.prove_alive()
    assert panel.told() == [STARTED]
    panel.ask_for_ack("speakStop")
    if IS_WINDOWS:
        feeding.cancelled.set()
    assert panel.wait_told(3) == [STARTED, DONE, DONE]


def test_a_stalled_control_holds_up_no_other_message(panel, feeding):
    feeding.on[f"{SPEAK}/pause"] = holds
    panel.find_agent()
    panel.ask_for_ack("speakPause")
    feeding.wait_for(f"{SPEAK}/pause")
    for kind in ("getStatus", "poll", "speakResume", "speakStop"):
        assert panel.ask(kind, timeout=5)["ok"] is True
    assert panel.told() == []
    feeding.cancelled.set()
    assert panel.wait_told(3) == [event for _, event in CONTROLS.values()]
    assert [(e.method, e.path, e.body) for e in feeding.exchanges if e.path.startswith(f"{SPEAK}/")
            ] == [("POST", path, b"{}") for path, _ in CONTROLS.values()]


@pytest.mark.long
def test_an_agent_may_speak_for_longer_than_other_requests_take(panel, feeding):
    def reads_aloud(exchange):
        assert not exchange.agent.cancelled.wait(20)
        exchange.answer({"ok": True})

    feeding.on[SPEAK] = reads_aloud
    panel.ask_for_ack("speak", text="a long text")
    assert panel.wait_told(2, timeout=40) == [STARTED, DONE]
