"""What the host makes of the bytes on its standard input."""

import json
import struct

import pytest

from support.builds import IS_SANITIZED
from support.memory import peak_mib
from support.panel_side import ACK

LARGEST_BODY = 16 * 1024 * 1024


def framed(body, length=None):
    return struct.pack("<I", len(body) if length is None else length) + body


def request(token):
    return b'{"source":"morva-chat","kind":"getStatus","chromeRequestId":%s}' % token


def nested(levels):
    return b"[" * levels + b"]" * levels


def answers_to(panel, data, count=1):
    """Sends bytes, proves that the host goes on, and gives the tokens of the acks to the bytes."""
    mark = panel.mark()
    panel.send_raw(data)
    panel.prove_alive(timeout=30)
    acks = [f for f in panel.frames_since(mark) if f["kind"] == "ack"][:-1]
    assert len(acks) == count
    for ack in acks:
        assert {**ack, "chromeRequestId": 0} == {**ACK, "chromeRequestId": 0}
    return [ack["chromeRequestId"] for ack in acks]


# --- Taken, answered, and the next frame too ---

@pytest.mark.off_protocol("panel")
def test_frames_are_answered_in_order_however_many_come_at_once(shared_panel):
    tokens = {b'  "space"  ': "space", rb'"\ud83d\ud83d\ude00"': "\ufffd\U0001f600",
              nested(899): json.loads(nested(899)), b'"%s"' % (b"[" * 5000): "[" * 5000}
    data = b"".join(framed(request(token)) for token in tokens) + framed(b"") * 3
    data += framed(request(b'"before a NUL"') + b"\0rubbish \xff {")
    data += b"".join(framed(request(b"%d" % n)) for n in range(2000))
    assert answers_to(shared_panel, data, 2005) == [
        *tokens.values(), "before a NUL", *range(2000)]


def test_a_body_of_exactly_16_mib_is_answered(shared_panel):
    body = request(b"1")
    assert answers_to(shared_panel, framed(body + b" " * (LARGEST_BODY - len(body)))) == [1]


@pytest.mark.parametrize("cuts", [(1, 3), (2, 2), (3, 1), (1,) * 60])
def test_a_frame_in_pieces_is_put_together(shared_panel, cuts):
    data = framed(request(b"5"))
    for size in cuts:
        shared_panel.send_alone(data[:size])
        data = data[size:]
    assert answers_to(shared_panel, data) == [5]


def test_a_frame_that_waits_while_the_host_starts_is_answered(start_panel):
    panel = start_panel(greet=False)
    panel.send_raw(framed(request(b'"early"')))
    panel.wait_frame(lambda f: f.get("chromeRequestId") == "early")


# --- Refused, but the stream is in step: the host goes on ---

@pytest.mark.off_protocol("panel")
def test_a_frame_nested_too_deeply_is_told_in_the_log_and_does_no_harm(panel, agent):
    assert panel.ask("getStatus", a=json.loads(nested(999)))["ok"] is True
    for body in (request(nested(1000)), request(nested(200_000)), nested(200_000), b"[" * 200_000,
                 b'{"a":' * 200_000 + b"1" + b"}" * 200_000):
        answers_to(panel, framed(body), 0)
    lines = panel.run_turn().log_lines
    assert lines.count(("error", "frame dropped: json nested too deeply")) == 5


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("piece", [b"[", b'[["a",', b'{"":'])
def test_small_json_with_a_large_tree_is_refused_before_it_takes_memory(panel, piece):
    before = peak_mib(panel)
    answers_to(panel, framed(piece * (LARGEST_BODY // len(piece))), 0)
    # The body twice over; a sanitizer keeps what was freed for a while.
    assert peak_mib(panel) - before < (300 if IS_SANITIZED else 60)


# --- The end of the stream ---

ENDING = {
    "no JSON": framed(b"abcd"),
    "a number too large for the JSON library": framed(b'{"a":1e999}'),
    "a byte that is no UTF-8": framed(b'{"a":"\xff"}'),
    "a lone half and another mistake": framed(rb'{"a":"\ud83d",}'),
    "one byte more than 16 MiB": framed(b"", LARGEST_BODY + 1),
    "0xFFFFFFFF bytes": framed(b"", 0xFFFFFFFF),
}


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("name", ENDING)
def test_a_stream_out_of_step_ends_the_host_with_0(panel, name):
    mark = panel.mark()
    panel.send_raw(ENDING[name])
    panel.expect_exit()  # although standard input is still open
    assert panel.frames_since(mark) == []


@pytest.mark.parametrize("data", [b"\x05\x00", b"\x05\x00\x00\x00", b'\x05\x00\x00\x00{"a"'])
def test_input_that_ends_in_the_middle_of_a_frame_ends_the_host_with_0(panel, data):
    panel.send_raw(data)
    panel.end(alive=False)
