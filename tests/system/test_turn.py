"""A chat turn: what the agent is asked, and what frames the answer on its way to the panel."""

import re
import threading

import pytest

from support import builds
from support.panel_side import compact
from support.scripted_agent import COMPLETIONS, MODELS, delta, streams


# --- The frame around an answer ---

def test_a_whole_turn_to_the_byte(shared_panel, shared_agent):
    usage = {"prompt_tokens": 3, "completion_tokens": 2, "total_tokens": 5, "cost": 0.25}
    shared_agent.turn(streams(
        delta("Hé"), {"choices": [{"delta": {"content": "llo"}}], "usage": usage}, "[DONE]"))
    mark = shared_panel.mark()
    turn = shared_panel.run_turn("hi", preset="plain", chat_session_id="s 1")
    run = turn.run_id
    assert re.fullmatch(r"chrome-\d+", run)
    events = [
        ("setBusy", [True]),
        ("agentStarted", [{"id": run, "name": "plain", "chat_session_id": "s 1"}]),
        ("appendAssistantDelta",
         [{"runId": run, "chatSessionId": "s 1", "seq": 1, "delta": "Hé"}]),
        ("appendAssistantDelta",
         [{"runId": run, "chatSessionId": "s 1", "seq": 2, "delta": "llo"}]),
        ("completeAssistantText", [{"runId": run, "chatSessionId": "s 1", "text": "Héllo"}]),
        ("setTurnLlmUsage", [usage]),
        ("agentDone", [run, True, ""]),
    ]
    assert turn.events == events
    # One frame for each event; check_stream compares the bytes of each with its content.
    frames = [f["events"] for f in shared_panel.frames_since(mark) if f["kind"] == "hostChatEvents"]
    without_log = [[e for e in frame if e["method"] != "appendDebugLog"] for frame in frames]
    assert without_log == [[{"method": method, "args": args}] for method, args in events]
    shared_panel.check_stream()
    assert [f for f in shared_panel.frames_since(mark) if f["kind"] == "hostStatus"] == [
        {"source": "morva-chat", "kind": "hostStatus", "nativeHost": "connected",
         "agent": "connected"}]


def test_the_first_delta_is_shown_before_the_stream_goes_on(shared_panel, shared_agent):
    go_on = threading.Event()

    def waits(exchange):
        exchange.stream(delta("first"), b'data: {"choices":[{"delta":{"content":"\xc3')
        assert go_on.wait(20)
        exchange.more(b'\xa9"}}]}\n\n', "[DONE]")

    shared_agent.turn(waits)
    mark = shared_panel.start_turn(until="appendAssistantDelta")
    go_on.set()
    assert shared_panel.finish_turn(mark).text == "firsté"


# --- The request ---

@pytest.mark.off_protocol("panel")
def test_the_request_to_the_byte(shared_panel, shared_agent, user_folders):
    shared_agent.turn(streams("[DONE]"))
    browser = {"currentUrl": "https://a/é?x=1", "currentTitle": "T \U0001f600", "tabs": [1, None]}
    shared_panel.run_turn("prompt é", preset="p1", chat_session_id="s1", browser=browser,
                          context_paths=["C:\\x", "/y"])
    exchange = shared_agent.seen(COMPLETIONS)[-1]
    body = exchange.json()
    cwd = body["morva"].pop("cwd")
    if builds.IS_WINDOWS:
        below = r"\\AppData\\Roaming\\Quenlark\\morva-viewer\\chrome-extension"
        assert re.fullmatch(r"C:\\users\\[^\\]+" + below, cwd)
    else:
        assert cwd == f"{user_folders['APPDATA']}/Quenlark/morva-viewer/chrome-extension"
    assert body == {
        "model": "p1",
        "stream": True,
        "messages": [{"role": "user",
                      "content": "[chrome tab] T \U0001f600 — https://a/é?x=1\n\nprompt é"}],
        "session_id": "s1",
        "morva": {"browser": browser, "selection": ["C:\\x", "/y"]},
    }
    body["morva"]["cwd"] = cwd
    assert exchange.body == compact(body)
    assert (exchange.method, exchange.version) == ("POST", "HTTP/1.1")
    assert exchange.header("Content-Type") == ["application/json"]
    assert exchange.header("Content-Length") == [str(len(exchange.body))]
    assert exchange.header("User-Agent") == ["morva-chrome-host"]
    assert exchange.header("Host") == ["127.0.0.1:8090"]


def test_a_prompt_of_four_mib_goes_whole_to_the_preset_of_the_agents_list(
        shared_panel, shared_agent):
    shared_agent.turn(streams("[DONE]"))
    prompt = "é\n\"\\" * 800_000
    turn = shared_panel.run_turn(prompt, preset="", timeout=40)
    body = shared_agent.seen(COMPLETIONS)[-1].json()
    assert body["messages"][0]["content"] == prompt
    assert (body["model"], turn.started["name"]) == ("plain", "agent")
    (request,) = shared_agent.seen(MODELS)
    assert (request.method, request.body, request.header("Content-Type")) == ("GET", b"", [])


# --- Many ---

def test_forty_turns_at_once_end_once_each(shared_panel, shared_agent):
    words = [f"{n} " for n in range(20)]
    shared_agent.turn(streams(*map(delta, words), "[DONE]"))
    mark = shared_panel.start_turn(40)
    assert set(shared_panel.wait_ends(mark, 40).values()) == {(True, "")}
    assert [a[0]["text"] for m, a in shared_panel.events_since(mark)
            if m == "completeAssistantText"] == ["".join(words)] * 40


def test_a_flood_of_events_arrives_in_order(panel, shared_agent):
    count = 20_000
    head = b'data: {"choices":[{"delta":{"content":"'
    shared_agent.turn(streams(b"".join(head + b'%d "}}]}\n\n' % n for n in range(count)), "[DONE]"))
    turn = panel.run_turn(timeout=90)
    assert [(a[0]["seq"], a[0]["delta"]) for a in turn.args_of("appendAssistantDelta")] == [
        (n + 1, f"{n} ") for n in range(count)]
    assert turn.done == (True, "")
