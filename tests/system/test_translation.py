"""A turn's event stream on its way to the panel: one row for each thing that can come of it.

What each event becomes is in the tables of the unit tests.
"""

from typing import Any

import pytest

from support.scripted_agent import agent_event, delta, event_bytes, streams

RUN = "<run>"

STREAM: list[tuple[Any, list]] = [
    ({"choices": [{"delta": {"role": "assistant", "content": None}}]}, []),
    (agent_event("thinking", text="let me seé"),
     [("appendThinking", [{"runId": RUN, "chatSessionId": "s1", "text": "let me seé"}])]),
    (delta("one "), [("appendAssistantDelta", [
        {"runId": RUN, "chatSessionId": "s1", "seq": 1, "delta": "one "}])]),
    (agent_event("tool_call", name="shell", text="ls", id="t1"),
     [("appendText", [{"role": "tool", "text": "ls", "toolCallId": "t1", "toolRunning": True}])]),
    (agent_event("tool_file_progress", id="r1", event="start", command="ls -l"),
     [("startRun", ["r1", "ls -l"])]),
    (agent_event("tool_file_progress", id="r1", chunk="a\nb\n"),
     [("appendRunChunk", ["r1", "a\nb\n", "stdout"])]),
    (agent_event("tool_file_progress", id="r1", event="done", exit_code=0, duration_ms=12),
     [("finishRun", ["r1", 0, 12])]),
    (b": ping\n\n", []),
    (agent_event("tool_result", name="shell", id="t1", path="/tmp/plot.png"),
     [("appendText", [{"role": "tool", "text": "shell", "toolCallId": "t1"}]),
      ("appendText", [{"role": "image", "text": "/tmp/plot.png"}])]),
    (agent_event("consent", model="m", id="q", title="t"),
     [("consentRequest", [{"id": "q", "title": "t"}])]),
    (agent_event("consent.dismiss", model="m", id="q"), [("dismissConsent", [{"id": "q"}])]),
    (agent_event("unknown", text="x"), []),
    (b'data: {"choices":\ndata: [{"delta":{"content":"two\xf0\x9f\x98\x80"}}]}\n\n',
     [("appendAssistantDelta", [
         {"runId": RUN, "chatSessionId": "s1", "seq": 2, "delta": "two\U0001f600"}])]),
    ({"error": {"message": "no credit"}},
     [("appendText", [{"role": "error", "text": "no credit"}])]),
    (b"data: {left", []),  # an error is the end
]


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("size", [3, 100_000])
def test_a_stream_becomes_panel_messages_however_it_is_cut(shared_panel, shared_agent, size):
    whole = b"".join(p if isinstance(p, bytes) else event_bytes(p) for p, _ in STREAM)
    shared_agent.turn(streams(*(whole[n:n + size] for n in range(0, len(whole), size))))
    turn = shared_panel.run_turn(chat_session_id="s1")
    wanted = [event for _, events in STREAM for event in events]
    assert [(method, [{**args[0], "runId": RUN}] if "runId" in args[0] else args)
            for method, args in turn.translated] == wanted
    assert (turn.done, turn.text) == ((True, ""), "one two\U0001f600")
