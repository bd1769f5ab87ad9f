"""What the host makes of the bytes on its standard input.

How a frame is read, and which message is for whom, is tested in tests/unit/channel and
tests/unit/host.
"""

import json
import struct

import pytest

from support.panel_side import ACK, compact


def framed(body, length=None):
    return struct.pack("<I", len(body) if length is None else length) + body


def request(token):
    return b'{"source":"morva-chat","kind":"getStatus","chromeRequestId":%s}' % token


def nested(levels):
    return b"[" * levels + b"]" * levels


def answers_to(panel, data, count):
    """Sends bytes, proves that the host goes on, and gives the bodies of the replies to them, which
    are nothing but acks."""
    mark = panel.mark()
    panel.send_raw(data)
    panel.prove_alive(timeout=30)
    frames = panel.frames_since(mark)
    assert len(frames) == count + 1
    for frame in frames:
        assert frame | {"chromeRequestId": 0} == ACK | {"chromeRequestId": 0}
    return panel.host.bodies[mark:mark + count]


NOISE = [
    5, "morva-chat", [{"source": "morva-chat", "kind": "getStatus"}], None, {}, {"ok": True},
    {"source": "morva-chat\0", "kind": "getStatus"}, {"requestId": "r1"},
    {"ok": True, "requestId": "r1", "data": {}},  # an answer that nobody waits for
    *({"ok": True, "requestId": f"late {n % 300}", "n": n} for n in range(1000)),
]
TOKENS = [
    "", 'é — 漢字 \U0001f600 " \\ \n \t \0 \x7f', 0, -7, 2**64 - 1, -(2**63), 0.5, 1e300, None, True,
    [1, "two", None, [3]], {"b": 1, "a": {"c": [True]}}, "x" * 100_000, "[" * 5000,
    json.loads(nested(899)), *range(2000),
]


@pytest.mark.off_protocol("extension", "panel")
def test_messages_are_answered_in_order_with_their_tokens_and_noise_is_not(shared_panel):
    data = b"".join(framed(compact(noise)) for noise in NOISE) + framed(b"") * 3
    data += b"".join(framed(request(compact(token))) for token in TOKENS)
    data += framed(request(rb'"\ud83d"')) + framed(request(b"5") + b"\0rubbish \xff {")
    wanted = [compact({**ACK, "chromeRequestId": token}) for token in [*TOKENS, "\ufffd", 5]]
    assert answers_to(shared_panel, data, len(wanted)) == wanted


def test_a_frame_that_waits_while_the_host_starts_is_answered(start_panel):
    panel = start_panel(greet=False)
    panel.send_raw(framed(request(b'"early"')))
    panel.wait_frame(lambda f: f.get("chromeRequestId") == "early")


# --- Refused, but the stream is in step: the host goes on ---

@pytest.mark.off_protocol("panel")
def test_a_frame_nested_too_deeply_is_told_in_the_log_and_does_no_harm(panel, agent):
    assert panel.ask("getStatus", a=json.loads(nested(999)))["ok"] is True
    for body in (request(nested(1000)), nested(200_000), b"[" * 200_000,
                 b'{"a":' * 200_000 + b"1" + b"}" * 200_000):
        answers_to(panel, framed(body), 0)
    lines = panel.run_turn().log_lines
    assert lines.count(("error", "frame dropped: json nested too deeply")) == 4


# --- The end of the stream ---

@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("data", [framed(b'{"a":1e999}'), framed(b"", 16 * 1024 * 1024 + 1)])
def test_a_stream_out_of_step_ends_the_host_with_0(panel, data):
    mark = panel.mark()
    panel.send_raw(data)
    panel.expect_exit()  # although standard input is still open
    assert panel.frames_since(mark) == []


def test_input_that_ends_in_the_middle_of_a_frame_ends_the_host_with_0(panel):
    panel.send_raw(b'\x05\x00\x00\x00{"a"')
    panel.end(alive=False)
