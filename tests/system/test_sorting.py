"""Which frames are panel messages, which are answers, which are noise; and what a reply carries."""

import pytest

from support.panel_side import compact
from support.scripted_agent import holds

NOISE = {
    "a number": 5,
    "a string": "morva-chat",
    "an array": [{"source": "morva-chat", "kind": "getStatus"}],
    "null": None,
    "true": True,
    "an empty object": {},
    "no source": {"kind": "getStatus", "chromeRequestId": "noise"},
    "another source": {"source": "morva-chat2", "kind": "getStatus"},
    "a source in capitals": {"source": "MORVA-CHAT", "kind": "getStatus"},
    "a shorter source": {"source": "morva-cha", "kind": "getStatus"},
    "a source with a NUL": {"source": "morva-chat\0", "kind": "getStatus"},
    "a number as source": {"source": 5, "kind": "getStatus"},
    "null as source": {"source": None, "kind": "getStatus"},
    "an array as source": {"source": ["morva-chat"], "kind": "getStatus"},
    "only ok": {"ok": True},
    "only requestId": {"requestId": "r1"},
    "an answer that nobody waits for": {"ok": True, "requestId": "r1", "data": {}},
    "an answer without success": {"ok": False, "requestId": "r1"},
    "an answer with an empty id": {"ok": True, "requestId": ""},
    "an answer with a number as id": {"ok": True, "requestId": 7},
    "an answer with null as id": {"ok": True, "requestId": None},
    "an answer with an object as id": {"ok": True, "requestId": {"a": 1}},
    "an answer with an array as id": {"ok": None, "requestId": ["a"]},
    "an answer from another source": {"source": "x", "ok": True, "requestId": "r2"},
}


@pytest.mark.off_protocol("extension", "panel")
@pytest.mark.parametrize("name", NOISE)
def test_noise_gets_no_answer(shared_panel, name):
    mark = shared_panel.mark()
    shared_panel.host.send(NOISE[name])
    shared_panel.prove_alive()
    assert len(shared_panel.frames_since(mark)) == 1  # only the proof


def test_an_answer_sent_again_and_again_does_no_harm(shared_panel):
    mark = shared_panel.mark()
    for n in range(1000):
        shared_panel.host.send({"ok": True, "requestId": f"late {n % 300}", "n": n})
    shared_panel.prove_alive()
    assert len(shared_panel.frames_since(mark)) == 1


def test_a_panel_message_with_the_keys_of_an_answer_is_a_panel_message(shared_panel):
    reply = shared_panel.ask("getStatus", ok=True, requestId="r1")
    assert reply["kind"] == "ack"


TOKENS = {
    "a string": "abc",
    "an empty string": "",
    "text beyond ASCII": "é — 漢字 \U0001f600",
    "what JSON must escape": 'quote " backslash \\ newline \n tab \t NUL \0 DEL \x7f',
    "zero": 0,
    "a negative number": -7,
    "the largest unsigned number": 2**64 - 1,
    "the smallest signed number": -(2**63),
    "a fraction": 0.5,
    "a large fraction": 1e300,
    "null": None,
    "true": True,
    "false": False,
    "an empty array": [],
    "an array": [1, "two", None, [3]],
    "an empty object": {},
    "an object": {"b": 1, "a": {"c": [True]}},
    "a long string": "x" * 100_000,
}


@pytest.mark.parametrize("name", TOKENS)
def test_the_token_comes_back_unchanged(shared_panel, name):
    mark = shared_panel.mark()
    shared_panel.send("getStatus", chromeRequestId=TOKENS[name])
    reply = shared_panel.wait_frame(lambda f: f.get("kind") == "ack", mark)
    assert reply == {
        "source": "morva-chat", "kind": "ack", "ok": True, "chromeRequestId": TOKENS[name]}
    assert compact(reply["chromeRequestId"]) == compact(TOKENS[name])  # 1 is no true


def test_a_message_without_a_token_is_answered_without_one(shared_panel):
    mark = shared_panel.mark()
    shared_panel.host.send({"source": "morva-chat", "kind": "getStatus"})
    reply = shared_panel.wait_frame(lambda f: f.get("kind") == "ack", mark)
    assert reply == {"source": "morva-chat", "kind": "ack", "ok": True}


def test_a_reply_is_written_compactly_with_sorted_keys_in_raw_utf8(shared_panel):
    mark = shared_panel.mark()
    shared_panel.send("getStatus", chromeRequestId="é\U0001f600")
    shared_panel.wait_frame(lambda f: f.get("kind") == "ack", mark)
    assert shared_panel.host.bodies[mark] == (
        '{"chromeRequestId":"é\U0001f600","kind":"ack","ok":true,"source":"morva-chat"}'.encode())


@pytest.mark.parametrize("name", TOKENS)
def test_a_provider_reply_carries_its_ids_unchanged(shared_panel, name):
    value = TOKENS[name]
    reply = shared_panel.ask("providerRpc", method="noSuchMethod", rpcId=value, id=[value])
    assert reply["kind"] == "hostProviderRpc"
    assert (reply["rpcId"], reply["id"]) == (value, [value])


def test_a_provider_reply_has_only_the_ids_that_were_given(shared_panel):
    reply = shared_panel.ask("providerRpc", method="noSuchMethod", rpcId=None)
    assert reply["rpcId"] is None
    assert "id" not in reply


# --- More than can wait ---

QUEUED = 4096


@pytest.mark.parametrize("method", [None, "getCreditInfo"])
def test_what_finds_no_room_is_refused_in_the_shape_of_its_replies(panel, agent, method):
    agent.on["/v1/credit"] = holds
    held = panel.send("providerRpc", method="getCreditInfo")
    agent.wait_for("/v1/credit")
    waiting = [panel.send("getStatus") for _ in range(QUEUED)]
    keys = {"method": method, "rpcId": "r"} if method else {}
    refused = panel.ask("providerRpc" if method else "getStatus", **keys)
    assert refused["kind"] == ("hostProviderRpc" if method else "ack")
    assert refused["ok"] is False and refused["error"] == "host is busy"
    assert refused.get("rpcId") == ("r" if method else None)
    agent.cancelled.set()
    answered = {held, *waiting}
    panel.wait_frame(lambda f: f.get("chromeRequestId") == waiting[-1], timeout=30)
    assert answered <= {f.get("chromeRequestId") for f in panel.frames_since(0)}
