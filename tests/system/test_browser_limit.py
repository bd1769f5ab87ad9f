"""Chrome drops a host that sends a frame of more than 1 MiB: none is sent to Chrome."""

import pytest

from support.scripted_agent import agent_event, delta, streams

LIMIT = 1_048_576
BIG = 1_200_000


def largest(panel, mark):
    return max(len(body) for body in panel.host.bodies[mark:])


@pytest.fixture(scope="module")
def console_panels(launch):
    """A host that nobody but a person started."""
    panel = launch(args=[])
    yield panel
    panel.end()


TEXTS = {
    "ASCII": "abc " * (BIG // 4),
    "characters of two bytes": "é" * (BIG // 2),
    "characters of four bytes": "\U0001f600" * (BIG // 4),
    "an odd start": "x" + "é" * (BIG // 2),
    "control characters, which grow sixfold": "\x01" * BIG,
    "quotes, which grow twofold": '"' * BIG,
}


@pytest.mark.parametrize("name", TEXTS)
def test_a_long_delta_is_split_between_characters(shared_panel, shared_agent, name):
    shared_agent.turn(streams(delta(TEXTS[name])))
    mark = shared_panel.mark()
    turn = shared_panel.run_turn(timeout=40)
    deltas = [args[0] for args in turn.args_of("appendAssistantDelta")]
    assert "".join(piece["delta"] for piece in deltas) == TEXTS[name]
    assert [piece["seq"] for piece in deltas] == list(range(1, len(deltas) + 1))
    assert len(deltas) > 1 and largest(shared_panel, mark) <= LIMIT
    assert turn.done == (True, "")


def test_long_thinking_and_run_output_are_split(shared_panel, shared_agent):
    shared_agent.turn(streams(
        agent_event("thinking", text="é" * BIG),
        agent_event("tool_file_progress", id="r", chunk="ß" * BIG, stream="stderr")))
    mark = shared_panel.mark()
    turn = shared_panel.run_turn(timeout=40)
    assert "".join(a[0]["text"] for a in turn.args_of("appendThinking")) == "é" * BIG
    chunks = turn.args_of("appendRunChunk")
    assert "".join(chunk for _, chunk, _ in chunks) == "ß" * BIG
    assert {(run, stream) for run, _, stream in chunks} == {("r", "stderr")}
    assert largest(shared_panel, mark) <= LIMIT


OVERSIZED = {
    "consentRequest": agent_event("consent", payload="x" * BIG),
    "dismissConsent": agent_event("consent.dismiss", payload="x" * BIG),
    "startRun": agent_event("tool_file_progress", id="r", event="start", command="x" * BIG),
    "appendText": agent_event("tool_call", text="x" * BIG),
}


@pytest.mark.parametrize("method", OVERSIZED)
def test_any_other_event_that_is_too_large_becomes_an_error_line(
    shared_panel, shared_agent, method
):
    shared_agent.turn(streams(OVERSIZED[method], delta("after")))
    mark = shared_panel.mark()
    turn = shared_panel.run_turn(timeout=40)
    (line,) = turn.args_of("appendText")
    assert line[0]["role"] == "error"
    assert line[0]["text"].startswith(f"event {method} left out: too large for the browser (")
    assert turn.text == "after" and turn.done == (True, "")
    assert largest(shared_panel, mark) <= LIMIT


def test_the_whole_answer_is_left_out_when_it_is_too_large(shared_panel, shared_agent):
    shared_agent.turn(streams(*(delta("x" * 100_000) for _ in range(20))))
    mark = shared_panel.mark()
    turn = shared_panel.run_turn(timeout=40)
    assert turn.done == (True, "") and turn.text is None
    (line,) = turn.args_of("appendText")
    assert line[0]["text"].startswith("event completeAssistantText left out")
    assert largest(shared_panel, mark) <= LIMIT


@pytest.mark.parametrize("size,fits", [(LIMIT - 200, True), (LIMIT, False), (BIG, False)])
def test_a_reply_that_is_too_large_becomes_a_refusal(shared_panel, size, fits):
    mark = shared_panel.mark()
    shared_panel.send("getStatus", chromeRequestId="x" * size)
    reply = shared_panel.wait_frame(lambda f: f.get("kind") == "ack", mark)
    assert largest(shared_panel, mark) <= LIMIT
    assert reply["ok"] is fits
    if not fits:
        assert reply["error"].startswith("reply too large for the browser (")
        assert "chromeRequestId" not in reply


def test_a_provider_reply_that_is_too_large_keeps_its_ids(shared_panel):
    reply = shared_panel.ask("providerRpc", method="m", rpcId=5, id="x" * BIG)
    assert (reply["kind"], reply["ok"], reply["rpcId"]) == ("hostProviderRpc", False, 5)
    assert "id" not in reply
    assert reply["error"].startswith("reply too large for the browser (")


def test_a_frame_of_exactly_one_mib_is_sent(shared_panel):
    empty = len('{"chromeRequestId":"","kind":"ack","ok":true,"source":"morva-chat"}')
    for size, ok in ((LIMIT - empty, True), (LIMIT - empty + 1, False)):
        mark = shared_panel.mark()
        shared_panel.send("getStatus", chromeRequestId="x" * size)
        assert shared_panel.wait_frame(lambda f: f.get("kind") == "ack", mark)["ok"] is ok
        if ok:
            assert largest(shared_panel, mark) == LIMIT


# --- Without a browser there is no such limit ---

def test_without_a_browser_nothing_is_split(console_panels, shared_agent):
    panel = console_panels
    shared_agent.turn(streams(
        delta("é" * BIG), agent_event("thinking", text="x" * BIG),
        agent_event("tool_file_progress", id="r", chunk="y" * BIG), OVERSIZED["consentRequest"]))
    turn = panel.run_turn(timeout=40)
    assert [args[0]["delta"] for args in turn.args_of("appendAssistantDelta")] == ["é" * BIG]
    assert [len(args[0]["text"]) for args in turn.args_of("appendThinking")] == [BIG]
    assert [len(args[1]) for args in turn.args_of("appendRunChunk")] == [BIG]
    assert len(turn.args_of("consentRequest")[0][0]["payload"]) == BIG
    assert turn.text == "é" * BIG


def test_without_a_browser_a_large_reply_is_sent(console_panels):
    token = "x" * BIG
    mark = console_panels.mark()
    console_panels.send("getStatus", chromeRequestId=token)
    reply = console_panels.wait_frame(lambda f: f.get("kind") == "ack", mark)
    assert reply["ok"] is True and reply["chromeRequestId"] == token


@pytest.mark.parametrize("args", [
    ["chrome-extension:/x"], ["https://a/"], ["--parent-window=0", "chrome-extension://x/"],
    ["Chrome-extension://x/"], [""]])
def test_only_an_origin_as_first_argument_means_a_browser(start_panel, args):
    panel = start_panel(args=args)
    mark = panel.mark()
    panel.send("getStatus", chromeRequestId="x" * BIG)
    assert panel.wait_frame(lambda f: f.get("kind") == "ack", mark)["ok"] is True
    panel.end()
