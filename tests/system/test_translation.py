"""The agent's event stream, row by row, and the panel messages that must come of it."""

import json
import threading

import pytest

from support.scripted_agent import agent_event, delta, event_bytes, streams

RUN, SESSION = "<run>", "s1"


def text(content, seq=1):
    return ("appendAssistantDelta", [
        {"runId": RUN, "chatSessionId": SESSION, "seq": seq, "delta": content}])


def thinking(content):
    return ("appendThinking", [{"runId": RUN, "chatSessionId": SESSION, "text": content}])


def line(role, content, **more):
    return ("appendText", [{"role": role, "text": content, **more}])


def raw(data):
    return data if isinstance(data, bytes) else data.encode()


def chunk(**keys):
    return {"choices": [keys]}


# name: (pieces of the stream, the panel messages)
ROWS = {
    # Text
    "a delta": ([delta("hi")], [text("hi")]),
    "deltas are counted from 1": (
        [delta("a"), delta("b"), delta("c")], [text("a"), text("b", 2), text("c", 3)]),
    "an empty delta is nothing and not counted": (
        [delta("a"), delta(""), delta("b")], [text("a"), text("b", 2)]),
    "null content is nothing": (
        [chunk(delta={"role": "assistant", "content": None}), delta("b")], [text("b")]),
    "a delta without content": ([chunk(delta={"role": "assistant"}), delta("b")], [text("b")]),
    "a delta that is null": ([chunk(delta=None), delta("b")], [text("b")]),
    "a delta that is no object": ([chunk(delta="text"), delta("b")], [text("b")]),
    "only the first choice counts": (
        [{"choices": [{"delta": {"content": "a"}}, {"delta": {"content": "z"}}]}], [text("a")]),
    "no choices": ([{"id": "x"}, delta("b")], [text("b")]),
    "choices that are no array": ([{"choices": {"delta": {"content": "a"}}}], []),
    "no choice in choices": ([{"choices": []}, delta("b")], [text("b")]),
    "a choice that is no object": ([{"choices": [5]}, delta("b")], [text("b")]),
    "an event that is an array": ([[1, 2], delta("b")], [text("b")]),
    "an event that is a number": (["5", delta("b")], [text("b")]),
    "an event that is null": (["null", delta("b")], [text("b")]),
    "an object of another name": ([{"object": "other", "type": "thinking", "text": "x"}], []),
    "a null object name": ([{"object": None, **delta("b")}], [text("b")]),
    "text beyond ASCII": ([delta("é漢\U0001f600")], [text("é漢\U0001f600")]),
    "half an emoji": ([raw('data: {"choices":[{"delta":{"content":"a\\ud83d"}}]}\n\n')],
                      [text("a\ufffd")]),
    "NUL in a string": ([delta("a\0b")], [text("a\0b")]),
    # Lines and blocks
    "no blank behind data:": ([raw('data:{"choices":[{"delta":{"content":"a"}}]}\n\n')],
                              [text("a")]),
    "two blanks behind data:": ([raw('data:  {"choices":[{"delta":{"content":"a"}}]}\n\n')],
                                [text("a")]),
    "several data lines are joined": (
        [raw('data: {"choices":\ndata: [{"delta":\ndata:{"content":"a"}}]}\n\n')], [text("a")]),
    "other fields are passed over": (
        [raw('id: 5\nevent: thinking\nretry: 9\n: comment\nfoo\n'
             'data: {"choices":[{"delta":{"content":"a"}}]}\nlast: x\n\n')], [text("a")]),
    "comments between events": (
        [delta("a"), b": ping\n\n", delta("b")], [text("a"), text("b", 2)]),
    "only an event line": ([b"event: x\n\n", delta("b")], [text("b")]),
    "empty blocks": ([b"\n\n\n\n\n\n", delta("b")], [text("b")]),
    "[DONE]": ([delta("a"), "[DONE]"], [text("a")]),
    "a ping after [DONE]": ([delta("a"), "[DONE]", b": ping\n\n"], [text("a")]),
    "a ping without end after [DONE]": ([delta("a"), "[DONE]", b": ping"], [text("a")]),
    "an event after [DONE]": ([delta("a"), "[DONE]", delta("b")], [text("a"), text("b", 2)]),
    "a last block without its blank line": (
        [delta("a"), event_bytes(delta("b")).rstrip(b"\n")], [text("a"), text("b", 2)]),
    "a last line feed too few": (
        [delta("a"), event_bytes(delta("b"))[:-1]], [text("a"), text("b", 2)]),
    "a leftover after the finish is not looked at": (
        [{"choices": [{"delta": {"content": "a"}, "finish_reason": "stop"}]}, b"data: {broken"],
        [text("a")]),
    "a finish reason of null ends nothing": (
        [{"choices": [{"delta": {"content": "a"}, "finish_reason": None}]},
         event_bytes(delta("b"))[:-2]], [text("a"), text("b", 2)]),
    "a leftover after [DONE] is not looked at": ([delta("a"), "[DONE]", b"data: {broken"],
                                                 [text("a")]),
    "an empty stream": ([], []),
    "CR LF separates no blocks: one block of one line": (
        [raw('data: {"choices":[{"delta":{"content":"a"}}]}\r\n\r\n')], [text("a")]),
    # Thinking
    "thinking": ([agent_event("thinking", text="hm")], [thinking("hm")]),
    "empty thinking is sent": ([agent_event("thinking", text="")], [thinking("")]),
    "thinking without text is sent": ([agent_event("thinking")], [thinking("")]),
    "thinking with null text is sent": ([agent_event("thinking", text=None)], [thinking("")]),
    # Tools
    "a tool call": (
        [agent_event("tool_call", name="grep", text="grep x", id="c1", duration_ms=5)],
        [line("tool", "grep x", toolCallId="c1", durationMs=5, toolRunning=True)]),
    "a tool call by its name": ([agent_event("tool_call", name="grep", text="")],
                                [line("tool", "grep", toolRunning=True)]),
    "a tool call without a name": ([agent_event("tool_call")],
                                   [line("tool", "tool", toolRunning=True)]),
    "a tool call with nulls": (
        [agent_event("tool_call", name=None, text=None, id=None, duration_ms=None, path=None)],
        [line("tool", "tool", toolRunning=True)]),
    "a tool id that is no string": ([agent_event("tool_call", id=5)],
                                    [line("tool", "tool", toolRunning=True)]),
    "a duration that is no number": ([agent_event("tool_call", duration_ms="5")],
                                     [line("tool", "tool", toolRunning=True)]),
    "a duration with a fraction": ([agent_event("tool_result", duration_ms=1.5)],
                                   [line("tool", "tool", durationMs=1.5)]),
    "a negative duration": ([agent_event("tool_result", duration_ms=-3)],
                            [line("tool", "tool", durationMs=-3)]),
    "a duration beyond 32 bits": ([agent_event("tool_result", duration_ms=2**63)],
                                  [line("tool", "tool", durationMs=2**63)]),
    "a tool call has no attachment": ([agent_event("tool_call", path="/a.png")],
                                      [line("tool", "tool", toolRunning=True)]),
    "a tool result": ([agent_event("tool_result", name="n", text="t", id="c1")],
                      [line("tool", "t", toolCallId="c1")]),
    # Command runs
    "a run starts": ([agent_event("tool_file_progress", id="r", event="start", command="ls")],
                     [("startRun", ["r", "ls"])]),
    "a run starts without a command": (
        [agent_event("tool_file_progress", id="r", event="start")], [("startRun", ["r", ""])]),
    "a run is done": (
        [agent_event("tool_file_progress", id="r", event="done", exit_code=3, duration_ms=9)],
        [("finishRun", ["r", 3, 9])]),
    "a run is done and says nothing": (
        [agent_event("tool_file_progress", id="r", event="done")], [("finishRun", ["r", -1, 0])]),
    "a run is done with nulls": (
        [agent_event("tool_file_progress", id="r", event="done", exit_code=None,
                     duration_ms=None)], [("finishRun", ["r", -1, 0])]),
    "an exit code beyond 32 bits": (
        [agent_event("tool_file_progress", id="r", event="done", exit_code=2**32 + 1)],
        [("finishRun", ["r", -1, 0])]),
    "an exit code below 32 bits": (
        [agent_event("tool_file_progress", id="r", event="done", exit_code=-(2**31) - 1)],
        [("finishRun", ["r", -1, 0])]),
    "the smallest exit code": (
        [agent_event("tool_file_progress", id="r", event="done", exit_code=-(2**31))],
        [("finishRun", ["r", -(2**31), 0])]),
    "an exit code of 1e300": (
        [agent_event("tool_file_progress", id="r", event="done", exit_code=1e300,
                     duration_ms=1e300)], [("finishRun", ["r", -1, 0])]),
    "a long duration": (
        [agent_event("tool_file_progress", id="r", event="done", exit_code=0,
                     duration_ms=2**40)], [("finishRun", ["r", 0, 2**40])]),
    "a piece of output": (
        [agent_event("tool_file_progress", id="r", event="output", chunk="x\n")],
        [("appendRunChunk", ["r", "x\n", "stdout"])]),
    "a piece of error output": (
        [agent_event("tool_file_progress", id="r", event="chunk", chunk="x", stream="stderr")],
        [("appendRunChunk", ["r", "x", "stderr"])]),
    "a piece without an event name": (
        [agent_event("tool_file_progress", id="r", chunk="x", stream=None)],
        [("appendRunChunk", ["r", "x", "stdout"])]),
    "an empty piece": ([agent_event("tool_file_progress", id="r", chunk="")], []),
    "a run without an id": ([agent_event("tool_file_progress", event="start", command="ls")], []),
    "a run with an empty id": ([agent_event("tool_file_progress", id="", event="done")], []),
    # Consent
    "a consent question": (
        [agent_event("consent", model="m", id="q", title="t", nested={"type": "kept"}, n=None)],
        [("consentRequest", [{"id": "q", "title": "t", "nested": {"type": "kept"}, "n": None}])]),
    "a consent question without anything": ([agent_event("consent")], [("consentRequest", [{}])]),
    "a consent question is taken back": (
        [agent_event("consent.dismiss", model="m", id="q")], [("dismissConsent", [{"id": "q"}])]),
    # Unknown
    "an unknown agent event": ([agent_event("usage", text="x")], []),
    "an agent event without a type": ([{"object": "morva.event", "text": "x"}], []),
    "an agent event is no chunk": ([{"object": "morva.event", **delta("x")}], []),
    # Errors
    "an error with a message": ([{"error": {"message": "no credit", "code": 5}}],
                                [line("error", "no credit")]),
    "an error without a message": ([{"error": {"code": 5}}], [line("error", "agent failed")]),
    "an error with a null message": ([{"error": {"message": None}}],
                                     [line("error", "agent failed")]),
    "an error text keeps its quotes": ([{"error": "boom"}], [line("error", '"boom"')]),
    "an error that is a number": ([{"error": 5}], [line("error", "5")]),
    "an error that is an array": ([{"error": ["a", {"b": 1}]}], [line("error", '["a",{"b":1}]')]),
    "an error that is false": ([{"error": False}], [line("error", "false")]),
    "an error beyond ASCII": ([{"error": "é"}], [line("error", '"é"')]),
    "an error that is null is none": ([{"error": None, **delta("a")}], [text("a")]),
    "an error goes before an agent event": (
        [agent_event("thinking", text="x", error="e")], [line("error", '"e"')]),
    "a leftover after an error is not looked at": (
        [{"error": "e"}, b"data: {broken"], [line("error", '"e"')]),
    # Depth
    "an event of 900 levels": (
        [raw('data: {"choices":[{"delta":{"content":"a"}}],"x":' + "[" * 899 + "]" * 899
             + "}\n\n")], [text("a")]),
}

ROWS |= {
    f"an attachment {path!r}": (
        [agent_event("tool_result", name="n", path=path)],
        [line("tool", "n"), line(role, path)])
    for path, role in {
        "C:\\a.jpg": "image", "/a.jpeg": "image", "/a.PNG": "image", "/a.Webp": "image",
        "/a.gif": "image", "/a.avif": "image", "/a.pdf": "file", "/a": "file", "/a.": "file",
        "/a.png.txt": "file", "/dir.png/a": "file", ".png": "image", "/a.png ": "file",
        "/a.apng": "file", "/bild.jpé": "file",
    }.items()
}


def with_run(value, run_id):
    return json.loads(json.dumps(value).replace(RUN, run_id))


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("name", ROWS)
def test_a_stream_becomes_these_panel_messages(shared_panel, shared_agent, name):
    pieces, wanted = ROWS[name]
    shared_agent.turn(streams(*pieces))
    turn = shared_panel.run_turn(chat_session_id=SESSION)
    assert turn.translated == [
        (method, with_run(args, turn.run_id)) for method, args in wanted]
    assert turn.done == (True, "")
    assert turn.text == "".join(
        args[0]["delta"] for method, args in wanted if method == "appendAssistantDelta")


# name: (pieces, what comes before the end, the beginning of the error text)
BROKEN = {
    "no JSON": ([delta("a"), "{broken"], [text("a")], "[json.exception.parse_error.101] "),
    "a word": (["hello"], [], "[json.exception.parse_error.101] "),
    "an unfinished block": ([delta("a"), b"data: {"], [text("a")],
                            "[json.exception.parse_error.101] "),
    "a byte that is no UTF-8": ([delta("a"), b'data: {"a":"\xff"}\n\n'], [text("a")],
                                "[json.exception.parse_error.101] "),
    "a comment in JSON": (['{"a":1 /* b */}'], [], "[json.exception.parse_error.101] "),
    "a number too large": (['{"a":1e999}'], [], "[json.exception.out_of_range.406] "),
    "two events that CR LF does not part": (
        [raw('data: {"a":1}\r\n\r\ndata: {"b":2}\r\n\r\n')], [],
        "[json.exception.parse_error.101] "),
    "1,001 levels": (["[" * 1001 + "]" * 1001], [], "json nested too deeply"),
    "200,000 levels": (["[" * 200_000 + "]" * 200_000], [], "json nested too deeply"),
    "content that is a number": ([delta("a"), chunk(delta={"content": 5})], [text("a")],
                                 "[json.exception.type_error.302] type must be string"),
    "content that is an object": ([chunk(delta={"content": {"a": 1}})], [],
                                  "[json.exception.type_error.302] type must be string"),
    "an object name that is a number": ([{"object": 5}], [],
                                        "[json.exception.type_error.302] type must be string"),
    "an event type that is a number": ([{"object": "morva.event", "type": 5}], [],
                                       "[json.exception.type_error.302] type must be string"),
    "an error message that is a number": (
        [{"error": {"message": 5}}], [], "[json.exception.type_error.302] type must be string"),
    "a path that is a number": ([agent_event("tool_result", path=5)], [],
                                "[json.exception.type_error.302] type must be string"),
    "a tool name that is an array": ([agent_event("tool_call", name=[])], [],
                                     "[json.exception.type_error.302] type must be string"),
    "a run id that is a number": ([agent_event("tool_file_progress", id=5)], [],
                                  "[json.exception.type_error.302] type must be string"),
    "an exit code that is a text": (
        [agent_event("tool_file_progress", id="r", event="done", exit_code="1")], [],
        "[json.exception.type_error.302] type must be number"),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("name", BROKEN)
def test_a_stream_that_makes_no_sense_ends_the_turn_with_the_reason(
    shared_panel, shared_agent, name
):
    pieces, wanted, error = BROKEN[name]
    shared_agent.turn(streams(*pieces))
    turn = shared_panel.run_turn(chat_session_id=SESSION)
    assert turn.translated == [
        (method, with_run(args, turn.run_id)) for method, args in wanted]
    ok, reason = turn.done
    assert not ok and reason.startswith(error), reason
    assert turn.text is None
    # The next turn is as good as the first.
    shared_agent.turn(streams(delta("fine")))
    assert shared_panel.run_turn().text == "fine"


MIXED = [
    {"choices": [{"delta": {"role": "assistant", "content": None}}]},
    agent_event("thinking", text="let me seé"),
    delta("one "),
    agent_event("tool_call", name="shell", text="ls", id="t1"),
    agent_event("tool_file_progress", id="r1", event="start", command="ls -l"),
    agent_event("tool_file_progress", id="r1", chunk="a\nb\n"),
    agent_event("tool_file_progress", id="r1", event="done", exit_code=0, duration_ms=12),
    b": ping\n\n",
    agent_event("tool_result", name="shell", id="t1", path="/tmp/plot.png"),
    delta("two\U0001f600"),
    {"choices": [{"delta": {}, "finish_reason": "stop"}], "usage": {"total_tokens": 7}},
    "[DONE]",
]


@pytest.mark.parametrize("size", [1, 2, 3, 7, 64, 100_000])
def test_the_same_messages_come_however_the_stream_is_cut(shared_panel, shared_agent, size):
    whole = b"".join(p if isinstance(p, bytes) else event_bytes(p) for p in MIXED)

    shared_agent.turn(streams(*(whole[n:n + size] for n in range(0, len(whole), size))))
    cut = shared_panel.run_turn(chat_session_id=SESSION)
    shared_agent.turn(streams(*MIXED))
    plain = shared_panel.run_turn(chat_session_id=SESSION)
    assert with_run(cut.events, "") == json.loads(
        json.dumps(plain.events).replace(plain.run_id, cut.run_id))
    assert cut.text == "one two\U0001f600"


def test_an_event_cut_at_any_byte_is_put_together(shared_panel, shared_agent):
    """The rest is sent when the host has shown what came before, so each part is read alone."""
    first, second, third = (event_bytes(delta(content)) for content in ("a", "bé", "c"))
    for cut in range(len(second) + 1):
        shown = threading.Event()

        def in_two_parts(exchange, cut=cut, shown=shown):
            exchange.stream()
            exchange.send(first + second[:cut])
            assert shown.wait(20)
            exchange.send(second[cut:] + third)

        shared_agent.turn(in_two_parts)
        mark = shared_panel.mark()
        shared_panel.send("send", prompt="hi", preset="p")
        shared_panel.wait_event("appendAssistantDelta", since=mark)
        shown.set()
        done = shared_panel.wait_event("agentDone", since=mark)
        assert done[1:] == [True, ""], cut
        deltas = [a[0]["delta"] for m, a in shared_panel.events_since(mark)
                  if m == "appendAssistantDelta"]
        assert deltas == ["a", "bé", "c"], cut


@pytest.mark.parametrize("kept", range(0, 400, 23))
def test_a_stream_that_breaks_off_anywhere_ends_in_one_agent_done(
    shared_panel, shared_agent, kept
):
    whole = b"".join(p if isinstance(p, bytes) else event_bytes(p) for p in MIXED)

    def breaks_off(exchange):
        exchange.stream(whole[:kept])
        exchange.reset()

    shared_agent.turn(breaks_off)
    turn = shared_panel.run_turn()
    assert len(turn.args_of("agentDone")) == 1
    shared_panel.prove_alive()
