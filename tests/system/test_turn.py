"""A chat turn: what the agent is asked, and what frames the answer on its way to the panel."""

import itertools
import re
import threading

import pytest

from support import builds
from support.panel_side import Turn, compact
from support.scripted_agent import (
    COMPLETIONS, MODELS, answers, delta, streams, streams_then_holds)


def last_body(agent):
    return agent.seen(COMPLETIONS)[-1].json()


# --- The frame around an answer ---

def test_a_whole_turn_to_the_byte(shared_panel, shared_agent):
    usage = {"prompt_tokens": 3, "completion_tokens": 2, "total_tokens": 5, "cost": 0.25}
    shared_agent.turn(streams(
        delta("Hé"), {"choices": [{"delta": {"content": "llo"}}], "usage": usage}, "[DONE]"))
    mark = shared_panel.mark()
    turn = shared_panel.run_turn("hi", preset="plain", chat_session_id="s 1")
    run = turn.run_id
    events = [
        ["setBusy", [True]],
        ["agentStarted", [{"id": run, "name": "plain", "chat_session_id": "s 1"}]],
        ["appendAssistantDelta",
         [{"runId": run, "chatSessionId": "s 1", "seq": 1, "delta": "Hé"}]],
        ["appendAssistantDelta",
         [{"runId": run, "chatSessionId": "s 1", "seq": 2, "delta": "llo"}]],
        ["completeAssistantText", [{"runId": run, "chatSessionId": "s 1", "text": "Héllo"}]],
        ["setTurnLlmUsage", [usage]],
        ["agentDone", [run, True, ""]],
    ]
    assert [list(event) for event in turn.events] == events
    # One frame for each event; check_stream compares the bytes of each with its content.
    frames = [f["events"] for f in shared_panel.frames_since(mark) if f["kind"] == "hostChatEvents"]
    without_log = [[e for e in frame if e["method"] != "appendDebugLog"] for frame in frames]
    assert without_log == [[{"method": method, "args": args}] for method, args in events]
    shared_panel.check_stream()


def test_the_first_delta_is_shown_before_the_stream_goes_on(shared_panel, shared_agent):
    go_on = threading.Event()

    def waits(exchange):
        exchange.stream(delta("first"))
        assert go_on.wait(20)
        exchange.more(delta("second"), "[DONE]")

    shared_agent.turn(waits)
    mark = shared_panel.mark()
    shared_panel.send("send", prompt="hi", preset="plain")
    shared_panel.wait_event("appendAssistantDelta", lambda a: a[0]["delta"] == "first", mark)
    go_on.set()
    shared_panel.wait_event("agentDone", since=mark)
    assert Turn(shared_panel.events_since(mark)).text == "firstsecond"


def test_the_run_id_names_the_tick_count(shared_panel, shared_agent):
    shared_agent.turn(streams(delta("a")))
    first, second = (shared_panel.run_turn().run_id for _ in range(2))
    assert re.fullmatch(r"chrome-\d+", first)
    assert int(second.partition("-")[2]) > int(first.partition("-")[2])


def test_every_ensured_turn_tells_the_host_status(shared_panel, shared_agent):
    shared_agent.turn(streams(delta("a")))
    mark = shared_panel.mark()
    shared_panel.run_turn()
    status = [f for f in shared_panel.frames_since(mark) if f["kind"] == "hostStatus"]
    assert status == [{"source": "morva-chat", "kind": "hostStatus", "nativeHost": "connected",
                       "agent": "connected"}]


def test_reuse_is_told_in_the_log(shared_panel, shared_agent):
    shared_agent.turn(streams(delta("a")))
    shared_panel.run_turn()
    lines = shared_panel.run_turn().log_lines
    assert ("trace", "reusing llm agent on port 8090") in lines


# --- The request ---

@pytest.mark.off_protocol("panel")
def test_the_request_to_the_byte(shared_panel, shared_agent):
    shared_agent.turn(streams("[DONE]"))
    browser = {"currentUrl": "https://a/é?x=1", "currentTitle": "T \U0001f600", "tabs": [1, None]}
    shared_panel.run_turn("prompt é", preset="p1", chat_session_id="s1", browser=browser,
                          context_paths=["C:\\x", "/y"])
    exchange = shared_agent.seen(COMPLETIONS)[-1]
    body = exchange.json()
    cwd = body["morva"].pop("cwd")
    assert re.split(r"[\\/]", cwd)[-3:] == ["Quenlark", "morva-viewer", "chrome-extension"]
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


HEADS = {
    "no browser": (None, ""),
    "an empty url": ({"currentUrl": "", "currentTitle": "t"}, ""),
    "no url": ({"currentTitle": "t"}, ""),
    "a null url": ({"currentUrl": None, "currentTitle": "t"}, ""),
    "no title": ({"currentUrl": "u"}, "[chrome tab]  — u\n\n"),
    "a null title": ({"currentUrl": "u", "currentTitle": None}, "[chrome tab]  — u\n\n"),
    "both": ({"currentUrl": "u", "currentTitle": "t"}, "[chrome tab] t — u\n\n"),
    "line feeds pass": ({"currentUrl": "u\n", "currentTitle": "\n"},
                        "[chrome tab] \n — u\n\n\n"),
    "an array is no browser": (["u"], ""),
    "a text is no browser": ("u", ""),
}


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("name", HEADS)
def test_the_prompt_is_headed_by_the_tab(shared_panel, shared_agent, name):
    browser, head = HEADS[name]
    shared_agent.turn(streams("[DONE]"))
    shared_panel.run_turn("the prompt", browser=browser)
    body = last_body(shared_agent)
    assert body["messages"] == [{"role": "user", "content": head + "the prompt"}]
    if isinstance(browser, dict):
        assert body["morva"]["browser"] == browser
    else:
        assert "browser" not in body["morva"]


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("paths", [None, "x", {"a": 1}, 5])
def test_a_selection_is_sent_only_when_it_is_an_array(shared_panel, shared_agent, paths):
    shared_agent.turn(streams("[DONE]"))
    shared_panel.run_turn(context_paths=paths)
    assert "selection" not in last_body(shared_agent)["morva"]


def test_an_empty_selection_is_sent(shared_panel, shared_agent):
    shared_agent.turn(streams("[DONE]"))
    shared_panel.run_turn(context_paths=[])
    assert last_body(shared_agent)["morva"]["selection"] == []


@pytest.mark.parametrize("keys", [{}, {"chat_session_id": ""}, {"chat_session_id": None}])
def test_the_session_is_chrome_when_none_is_named(shared_panel, shared_agent, keys):
    shared_agent.turn(streams(delta("a")))
    turn = shared_panel.run_turn(**keys)
    assert last_body(shared_agent)["session_id"] == "chrome"
    assert turn.started["chat_session_id"] == "chrome"
    assert turn.args_of("appendAssistantDelta")[0][0]["chatSessionId"] == "chrome"
    assert turn.args_of("completeAssistantText")[0][0]["chatSessionId"] == "chrome"


def test_a_prompt_of_four_mib_arrives_whole(shared_panel, shared_agent):
    shared_agent.turn(streams("[DONE]"))
    prompt = "é\n\"\\" * 800_000
    shared_panel.run_turn(prompt, timeout=40)
    assert last_body(shared_agent)["messages"][0]["content"] == prompt


# --- The preset ---

def model(name, **keys):
    return {"id": name, **keys}


PRESETS = {
    "the default one": (
        [model("a"), model("b", morva_is_default=True), model("c", morva_is_default=True)], "b"),
    "the first one when none is default": ([model("a"), model("b")], "a"),
    "by its preset id": ([model("a", morva_preset_id="pa", morva_is_default=True)], "pa"),
    "entries without an id are skipped": ([model(""), {}, 5, None, "x", [], model("b")], "b"),
    "a null id is none": ([model(None), model("b")], "b"),
    "an id that is a number is none": ([model(5), model("b")], "b"),
    "a default that is no boolean is false": (
        [model("a"), model("b", morva_is_default="yes"), model("c", morva_is_default=1)], "a"),
    "a null preset id counts as missing": ([model("a", morva_preset_id=None)], "a"),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("name", PRESETS)
@pytest.mark.parametrize("preset", ["", None])
def test_the_preset_is_taken_from_the_agents_list(shared_panel, shared_agent, name, preset):
    models, wanted = PRESETS[name]
    shared_agent.on[MODELS] = answers({"data": models})
    shared_agent.turn(streams("[DONE]"))
    turn = shared_panel.run_turn(preset=preset)
    assert last_body(shared_agent)["model"] == wanted
    assert turn.started["name"] == "agent"
    request = shared_agent.seen(MODELS)[-1]
    assert (request.method, request.body) == ("GET", b"")
    assert request.header("Content-Type") == []


def test_a_given_preset_is_used_without_asking(shared_panel, shared_agent):
    asked = len(shared_agent.seen(MODELS))
    shared_agent.turn(streams("[DONE]"))
    turn = shared_panel.run_turn(preset="mine")
    assert last_body(shared_agent)["model"] == "mine"
    assert turn.started["name"] == "mine"
    assert len(shared_agent.seen(MODELS)) == asked


NO_PRESET = "no chat preset is selected"
NO_LIST = {
    "an empty list": (answers({"data": []}), NO_PRESET),
    "no list": (answers({}), NO_PRESET),
    "a list that is an object": (answers({"data": {"id": "a"}}), NO_PRESET),
    "a null list": (answers({"data": None}), NO_PRESET),
    "an array": (answers([model("a")]), NO_PRESET),
    "a number": (answers(b"5"), NO_PRESET),
    "only useless entries": (answers({"data": [model(""), 5]}), NO_PRESET),
    "no JSON": (answers(b"<html>"), "[json.exception.parse_error.101] "),
    "a byte that is no UTF-8": (answers(b'{"a":"\xff"}'), "[json.exception.parse_error.101] "),
    "nothing": (answers(b""), "[json.exception.parse_error.101] "),
    "200,000 levels": (answers(b"[" * 200_000 + b"]" * 200_000), "json nested too deeply"),
    "no answer": (lambda exchange: exchange.reset(), "agent request failed"),
    "half an answer": (
        lambda exchange: exchange.send(b'HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n{"data"'),
        "agent response truncated"),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("name", NO_LIST)
def test_a_turn_without_a_preset_ends_with_the_reason(shared_panel, shared_agent, name):
    handler, error = NO_LIST[name]
    shared_agent.on[MODELS] = handler
    asked = len(shared_agent.seen(COMPLETIONS))
    turn = shared_panel.run_turn(preset="")
    ok, reason = turn.done
    assert not ok and reason.startswith(error), reason
    assert [method for method, _ in turn.events] == ["setBusy", "agentStarted", "agentDone"]
    assert len(shared_agent.seen(COMPLETIONS)) == asked
    shared_panel.prove_alive()


# --- Usage ---

def chunk(usage=None, choices=({"delta": {}},), **more):
    return {"choices": list(choices), "usage": usage, **more}


USAGE = {
    "all three": ([chunk({"prompt_tokens": 1, "completion_tokens": 2, "total_tokens": 3})],
                  {"prompt_tokens": 1, "completion_tokens": 2, "total_tokens": 3}),
    "one is enough": ([chunk({"total_tokens": 3, "x": [1]})], {"total_tokens": 3, "x": [1]}),
    "a null one is enough": ([chunk({"prompt_tokens": None})], {"prompt_tokens": None}),
    "the last one wins": ([chunk({"total_tokens": 1}), chunk({"total_tokens": 2})],
                          {"total_tokens": 2}),
    "a useless one replaces nothing": ([chunk({"total_tokens": 1}), chunk({"other": 2})],
                                       {"total_tokens": 1}),
    "null replaces nothing": ([chunk({"total_tokens": 1}), chunk(None)], {"total_tokens": 1}),
    "without choices it is passed over": ([chunk({"total_tokens": 1}, choices=())], None),
    "an array is no usage": ([chunk(["total_tokens"])], None),
    "an empty object is no usage": ([chunk({})], None),
    "beside a finish": ([{"choices": [{"delta": {}, "finish_reason": "stop"}],
                          "usage": {"total_tokens": 9}}], {"total_tokens": 9}),
    "beside an error it is not looked at": (
        [{"error": "e", "choices": [{"delta": {}}], "usage": {"total_tokens": 9}}], None),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("name", USAGE)
def test_the_last_usable_usage_follows_the_answer(shared_panel, shared_agent, name):
    pieces, wanted = USAGE[name]
    shared_agent.turn(streams(*pieces))
    turn = shared_panel.run_turn()
    end = ["completeAssistantText", "setTurnLlmUsage", "agentDone"]
    if wanted is None:
        end.remove("setTurnLlmUsage")
    assert [method for method, _ in turn.events][-len(end):] == end
    assert turn.args_of("setTurnLlmUsage") == ([] if wanted is None else [[wanted]])


@pytest.mark.off_protocol("agent")
def test_a_failed_turn_tells_no_usage(shared_panel, shared_agent):
    shared_agent.turn(streams(chunk({"total_tokens": 1}), "{broken"))
    turn = shared_panel.run_turn()
    assert turn.done[0] is False
    assert turn.args_of("setTurnLlmUsage") == []


# --- Several at once ---

def test_two_turns_at_once_have_ids_of_their_own(shared_panel, shared_agent):
    both = threading.Barrier(2, timeout=20)

    def meets(exchange):
        prompt = exchange.json()["messages"][0]["content"]
        exchange.stream(delta(prompt))
        both.wait()
        exchange.more(delta("!"), "[DONE]")

    shared_agent.turn(meets)
    mark = shared_panel.mark()
    for prompt in ("one", "two"):
        shared_panel.send("send", prompt=prompt, preset="p", chat_session_id=prompt)
    events = wait_for_ends(shared_panel, mark, 2)
    started = {a[0]["chat_session_id"]: a[0]["id"] for m, a in events if m == "agentStarted"}
    assert len(set(started.values())) == 2
    for session, run in started.items():
        deltas = [(a[0]["seq"], a[0]["delta"]) for m, a in events
                  if m == "appendAssistantDelta" and a[0]["runId"] == run]
        assert deltas == [(1, session), (2, "!")]
        assert [a for m, a in events if m == "agentDone" and a[0] == run] == [[run, True, ""]]


def wait_for_ends(panel, mark, count, timeout=40):
    ends = itertools.count(1)
    runs = set()

    def is_last(frame):
        for event in frame.get("events", []):
            if event["method"] == "agentDone" and event["args"][0] not in runs:
                runs.add(event["args"][0])
                return next(ends) == count
        return False

    panel.wait_frame(is_last, mark, timeout)
    return panel.events_since(mark)


def test_forty_turns_at_once_end_once_each(shared_panel, shared_agent):
    shared_agent.turn(streams(*(delta(f"{n} ") for n in range(20)), "[DONE]"))
    mark = shared_panel.mark()
    for _ in range(40):
        shared_panel.send("send", prompt="hi", preset="p")
    events = wait_for_ends(shared_panel, mark, 40)
    shared_panel.prove_alive()
    done = [a for m, a in shared_panel.events_since(mark) if m == "agentDone"]
    assert len({run for run, _, _ in done}) == 40 == len(done)
    assert all((ok, error) == (True, "") for _, ok, error in done)
    whole = "".join(f"{n} " for n in range(20))
    assert [a[0]["text"] for m, a in events if m == "completeAssistantText"] == [whole] * 40


def test_a_hundred_thousand_events_arrive_in_order(start_panel, shared_agent):
    count = 20_000 if builds.IS_SANITIZED else 100_000
    head = b'data: {"choices":[{"delta":{"content":"'
    stream = b"".join(head + b'%d "}}]}\n\n' % n for n in range(count))
    shared_agent.turn(streams(stream, "[DONE]"))
    panel = start_panel()
    turn = panel.run_turn(timeout=90)
    deltas = turn.args_of("appendAssistantDelta")
    assert [a[0]["seq"] for a in deltas] == list(range(1, count + 1))
    assert [a[0]["delta"] for a in deltas] == [f"{n} " for n in range(count)]
    assert turn.done == (True, "")
    panel.end()


def test_an_agent_that_goes_silent_is_waited_for(shared_panel, shared_agent):
    shared_agent.turn(streams_then_holds(delta("a")))
    mark = shared_panel.mark()
    shared_panel.send("send", prompt="hi", preset="p")
    shared_panel.wait_event("appendAssistantDelta", since=mark)
    assert shared_panel.ask("browserSnapshot", browser={})["ok"] is True
    assert not [m for m, _ in shared_panel.events_since(mark) if m == "agentDone"]
    shared_panel.ask("stop")
    shared_panel.wait_event("agentDone", since=mark)


def test_the_folder_for_the_agent_is_the_users_own(shared_panel, shared_agent, user_folders):
    shared_agent.turn(streams("[DONE]"))
    shared_panel.run_turn()
    cwd = last_body(shared_agent)["morva"]["cwd"]
    if builds.IS_WINDOWS:
        below = "\\AppData\\Roaming\\Quenlark\\morva-viewer\\chrome-extension"
        assert cwd.startswith("C:\\users\\") and cwd.endswith(below)
    else:
        assert cwd == f"{user_folders['APPDATA']}/Quenlark/morva-viewer/chrome-extension"
