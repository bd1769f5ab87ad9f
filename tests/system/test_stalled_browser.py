"""A browser that does not read for a while: everything waits, and nothing is lost or torn."""

from support.scripted_agent import COMPLETIONS, ScriptedAgent, delta, streams


def test_replies_and_events_are_whole_and_in_order_after_a_stall(start_panel):
    panel = start_panel()
    with ScriptedAgent(turn=streams(*(delta(f"{n} " + "x" * 500) for n in range(1000)))) as agent:
        mark = panel.mark()
        panel.host.pause_reading()
        for session in "abcd":
            panel.send("send", prompt="hi", preset="p", chat_session_id=session)
        agent.wait_for(COMPLETIONS, 1)
        tokens = [panel.send("getStatus") for _ in range(1000)]
        panel.host.resume_reading()
        panel.wait_frame(lambda f: f.get("chromeRequestId") == tokens[-1], mark, timeout=60)
        ended = set()

        def all_done(frame):
            ended.update(
                e["args"][0] for e in frame.get("events", []) if e["method"] == "agentDone")
            return len(ended) == 4

        panel.wait_frame(all_done, mark, timeout=60)
    replies = [f["chromeRequestId"] for f in panel.frames_since(mark)
               if f.get("chromeRequestId") in set(tokens)]
    assert replies == tokens
    for session in "abcd":
        deltas = [a[0] for m, a in panel.events_since(mark)
                  if m == "appendAssistantDelta" and a[0]["chatSessionId"] == session]
        assert [d["seq"] for d in deltas] == list(range(1, 1001))
        assert [d["delta"] for d in deltas] == [f"{n} " + "x" * 500 for n in range(1000)]
    panel.end()
