"""Which frames are panel messages, which are answers, which are noise; and what a reply carries."""

import pytest

from devkit.panel.frames import frame

from support.panel_side import ACK, compact
from support.scripted_agent import holds

NOISE = [
    5, "morva-chat", [{"source": "morva-chat", "kind": "getStatus"}], None, True, {},
    {"kind": "getStatus", "chromeRequestId": "noise"},
    {"source": "morva-chat\0", "kind": "getStatus"},
    {"source": ["morva-chat"], "kind": "getStatus"},
    {"ok": True}, {"requestId": "r1"},
    {"ok": True, "requestId": "r1", "data": {}},  # an answer that nobody waits for
    *({"ok": True, "requestId": value} for value in ("", 7, None, {"a": 1}, ["a"])),
    {"source": "x", "ok": True, "requestId": "r2"},
    *({"ok": True, "requestId": f"late {n % 300}", "n": n} for n in range(1000)),
]


@pytest.mark.off_protocol("extension", "panel")
def test_noise_gets_no_answer(shared_panel):
    mark = shared_panel.mark()
    for noise in NOISE:
        shared_panel.host.send(noise)
    shared_panel.prove_alive()
    assert len(shared_panel.frames_since(mark)) == 1  # only the proof


def test_a_panel_message_with_the_keys_of_an_answer_is_a_panel_message(shared_panel):
    shared_panel.ask_for_ack("getStatus", ok=True, requestId="r1")


TOKENS = [
    "abc", "", "é — 漢字 \U0001f600", 'quote " backslash \\ newline \n tab \t NUL \0 DEL \x7f',
    0, -7, 2**64 - 1, -(2**63), 0.5, 1e300, None, True, False, [], [1, "two", None, [3]], {},
    {"b": 1, "a": {"c": [True]}}, "x" * 100_000,
]


def test_tokens_come_back_unchanged_in_a_compact_reply(shared_panel):
    for token in TOKENS:
        mark = shared_panel.mark()
        shared_panel.send("getStatus", chromeRequestId=token)
        shared_panel.wait_frame(lambda f: f.get("kind") == "ack", mark)
        assert shared_panel.host.bodies[mark] == compact({**ACK, "chromeRequestId": token})
        reply = shared_panel.ask("providerRpc", method="noSuchMethod", rpcId=token, id=[token])
        assert reply["kind"] == "hostProviderRpc"
        assert compact([reply["rpcId"], reply["id"]]) == compact([token, [token]])
    reply = shared_panel.ask("providerRpc", method="noSuchMethod", rpcId=None)
    assert reply["rpcId"] is None and "id" not in reply


# --- More than can wait ---

QUEUED = 4096


@pytest.mark.off_protocol("panel")
def test_what_finds_no_room_is_refused_in_its_turn_and_shape(panel, agent):
    agent.on["/v1/credit"] = holds
    held = panel.send("providerRpc", method="getCreditInfo")
    agent.wait_for("/v1/credit")
    waiting = [panel.send("getStatus") for _ in range(QUEUED)]
    refused = [panel.send("getStatus"),
               panel.send("providerRpc", method="getCreditInfo", rpcId="r"),
               panel.send("getStatus")]
    for _ in range(2):  # when the second has been taken, all before it have found their place
        panel.send_alone(frame(b"[]"))
    agent.cancelled.set()
    panel.wait_frame(lambda f: f.get("chromeRequestId") == refused[-1], timeout=30)
    replies = [f for f in panel.frames_since(0) if "chromeRequestId" in f]
    assert [f["chromeRequestId"] for f in replies] == [held, *waiting, *refused]
    assert {f["ok"] for f in replies[1:-3]} == {True}
    for reply, kind in zip(replies[-3:], ("ack", "hostProviderRpc", "ack")):
        assert (reply["kind"], reply["ok"], reply["error"]) == (kind, False, "host is busy")
    assert replies[-2]["rpcId"] == "r"
