"""Reading aloud: what reaches the agent, in which order, and what the panel hears of it."""

import itertools
import json

import pytest

from support import builds
from support.feeding_agent import FeedingAgent, SPEAK
from support.scripted_agent import CONSENT, READY, answers, holds

STARTED = ("ttsStarted", [])
DONE = ("ttsDone", [])
CONTROLS = {
    "speakPause": (f"{SPEAK}/pause", ("ttsPaused", [])),
    "speakResume": (f"{SPEAK}/resume", ("ttsResumed", [])),
    "speakStop": (f"{SPEAK}/stop", DONE),
}


@pytest.fixture
def speaking():
    with FeedingAgent() as agent:
        yield agent


def events(panel, mark=0):
    return [event for event in panel.events_since(mark) if event[0] != "appendDebugLog"]


def error_line(text):
    return ("appendText", [{"role": "error", "text": text}])


def ask(panel, kind, **keys):
    reply = panel.ask(kind, **keys)
    del reply["chromeRequestId"]
    assert reply == {"source": "morva-chat", "kind": "ack", "ok": True}


def wait_events(panel, count, mark=0, timeout=40):
    panel.wait_frame(lambda _: len(events(panel, mark)) >= count, mark, timeout)
    panel.prove_alive()
    return events(panel, mark)


def know_the_agent(panel):
    assert panel.ask("providerRpc", method="commandEventsSubscribe")["ok"] is True


# --- Speaking ---

def test_a_text_is_spoken_and_its_end_told(panel, speaking):
    ask(panel, "speak", text="Hällo\n\"you\"")
    assert wait_events(panel, 2) == [STARTED, DONE]
    (request,) = speaking.seen(SPEAK)
    assert (request.method, request.header("Content-Type")) == ("POST", ["application/json"])
    assert request.body == json.dumps(
        {"text": "Hällo\n\"you\""}, separators=(",", ":"), ensure_ascii=False).encode()
    panel.end()


def test_the_ack_does_not_wait_for_the_agent(panel, speaking):
    speaking.on[SPEAK] = holds
    ask(panel, "speak", text="a")
    speaking.wait_for(SPEAK)
    panel.prove_alive()
    assert events(panel) == [STARTED]
    speaking.cancelled.set()
    assert wait_events(panel, 3)[-1] == DONE
    panel.end()


@pytest.mark.parametrize("keys", [{}, {"text": ""}, {"text": None}])
def test_no_text_is_not_spoken(panel, speaking, keys):
    ask(panel, "speak", **keys)
    panel.prove_alive()
    assert (events(panel), speaking.exchanges) == ([], [])
    panel.end()


@pytest.mark.off_protocol("panel")
def test_a_text_of_another_type_is_refused(panel, speaking):
    for text in (5, True, ["a"], {"a": 1}):
        assert panel.ask("speak", text=text)["ok"] is False
    assert (events(panel), speaking.exchanges) == ([], [])
    panel.end()


FAILURES = {
    "ok false": (answers({"ok": False, "error": "no voice"}), "no voice"),
    "ok false without a text": (answers({"ok": False}), "speak failed"),
    "an error of another type": (answers({"ok": False, "error": [1]}), "speak failed"),
    "an empty error": (answers({"ok": False, "error": ""}), "speak failed"),
    "ok of another type": (answers({"ok": 1}), "speak failed"),
    "an empty body": (answers(b""), "speak failed"),
    "no JSON": (answers(b"{"), "speak failed"),
    "no object": (answers([True]), "speak failed"),
    "another status": (answers({"ok": False, "error": "e"}, status="500 No"), "speak failed"),
    "another status of success": (answers({"ok": True}, status="201 Created"), "speak failed"),
    "a closed connection": (lambda exchange: None, "agent request failed"),
    "a reset": (lambda exchange: exchange.reset(), "agent request failed"),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("failure", FAILURES)
def test_a_failure_is_one_line_and_then_the_end(panel, speaking, failure):
    speaking.on[SPEAK], text = FAILURES[failure]
    ask(panel, "speak", text="a")
    assert wait_events(panel, 3) == [STARTED, error_line(text), DONE]
    panel.end()


def test_without_an_agent_speaking_fails(panel, speaking):
    speaking.on[READY] = answers({"ready": False})
    ask(panel, "speak", text="a")
    assert wait_events(panel, 3) == [
        STARTED, error_line("morva-viewer-cli.exe is not on PATH"), DONE]
    panel.end()


# --- Controls ---

@pytest.mark.parametrize("kind", CONTROLS)
def test_a_control_without_an_agent_is_only_told(panel, speaking, kind):
    _, event = CONTROLS[kind]
    ask(panel, kind)
    assert wait_events(panel, 1) == [event]
    assert speaking.exchanges == []
    panel.end()


CONTROL_ANSWERS = {"ok": answers({"ok": True}), "refused": answers({"ok": False, "error": "e"}),
                   "another status": answers(b"", status="500 No"),
                   "closed": lambda exchange: None}


@pytest.mark.parametrize("kind,answer", itertools.product(CONTROLS, CONTROL_ANSWERS))
def test_a_control_reaches_the_agent_and_is_told_whatever_it_answers(
    panel, speaking, kind, answer
):
    path, event = CONTROLS[kind]
    speaking.on[path] = CONTROL_ANSWERS[answer]
    know_the_agent(panel)
    ask(panel, kind)
    assert wait_events(panel, 1) == [event]
    (request,) = speaking.seen(path)
    assert (request.method, request.body) == ("POST", b"{}")
    panel.end()


def test_controls_reach_the_agent_in_the_order_of_the_panel(panel, speaking):
    know_the_agent(panel)
    sent = list(itertools.islice(
        itertools.cycle(["speakPause", "speakResume", "speakPause", "speakStop"]), 400))
    for kind in sent:
        panel.send(kind)
    told = wait_events(panel, len(sent), timeout=60)
    assert told == [CONTROLS[kind][1] for kind in sent]
    arrived = [e.path for e in speaking.exchanges if e.path.startswith(f"{SPEAK}/")]
    assert arrived == [CONTROLS[kind][0] for kind in sent]
    panel.end()


def test_a_burst_of_controls_is_taken(panel):
    for _ in range(1500):
        panel.send("speakPause")
        panel.send("speakResume")
    told = wait_events(panel, 3000, timeout=60)
    assert told == [("ttsPaused", []), ("ttsResumed", [])] * 1500
    panel.end()


def test_stopping_a_turn_also_stops_speech(panel, speaking):
    know_the_agent(panel)
    ask(panel, "stop")
    assert wait_events(panel, 1) == [DONE]
    assert [e.body for e in speaking.seen(CONSENT)] == [b'{"cancel":true}']
    assert [e.body for e in speaking.seen(f"{SPEAK}/stop")] == [b"{}"]
    panel.end()


def test_a_stop_while_speaking_gives_two_ends(panel, speaking):
    speaking.on[SPEAK] = holds

    def stop(exchange):
        exchange.answer({"ok": True})
        speaking.cancelled.set()

    speaking.on[f"{SPEAK}/stop"] = stop
    ask(panel, "speak", text="a")
    speaking.wait_for(SPEAK)
    ask(panel, "speakStop")
    told = wait_events(panel, 4)
    assert told[0] == STARTED and told.count(DONE) == 2
    panel.end()


@pytest.mark.parametrize("kind,path", [("speak", SPEAK), ("speakPause", f"{SPEAK}/pause"),
                                       ("agentReload", f"{SPEAK}/stop")])
def test_an_agent_that_stalls_does_not_hold_up_the_end(panel, speaking, kind, path):
    speaking.on[path] = holds
    know_the_agent(panel)
    panel.send(kind, **({"text": "a"} if kind == "speak" else {}))
    speaking.wait_for(path)
    panel.end(alive=False, limit=1.0)


def test_a_stalled_control_holds_up_no_other_message(panel, speaking):
    speaking.on[f"{SPEAK}/pause"] = holds
    know_the_agent(panel)
    ask(panel, "speakPause")
    speaking.wait_for(f"{SPEAK}/pause")
    for kind in ("getStatus", "poll", "speakResume", "speakStop"):
        assert panel.ask(kind, timeout=5)["ok"] is True
    assert events(panel) == []
    speaking.cancelled.set()
    assert wait_events(panel, 3) == [CONTROLS[kind][1] for kind in CONTROLS]
    panel.end()


def test_twenty_texts_at_once_end_twenty_times(panel, speaking):
    for number in range(20):
        panel.send("speak", text=f"text {number}")
    told = wait_events(panel, 40)
    assert (told.count(STARTED), told.count(DONE), len(told)) == (20, 20, 40)
    assert sorted(e.json()["text"] for e in speaking.seen(SPEAK)) == sorted(
        f"text {number}" for number in range(20))
    panel.end(limit=None if builds.IS_WINDOWS else 1.0)
