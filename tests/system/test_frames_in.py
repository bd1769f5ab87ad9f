"""What the host makes of the bytes on its standard input."""

import json
import struct

import pytest

from support.builds import IS_SANITIZED
from support.memory import peak_mib

LARGEST_BODY = 16 * 1024 * 1024


def framed(body, length=None):
    return struct.pack("<I", len(body) if length is None else length) + body


def request_text(request_id, **more):
    message = {"source": "morva-chat", "kind": "getStatus", "chromeRequestId": request_id, **more}
    return json.dumps(message, separators=(",", ":"), ensure_ascii=False)


def padded_request(request_id, size):
    """A panel message whose body has exactly `size` bytes."""
    empty = len(request_text(request_id, pad=""))
    return request_text(request_id, pad="x" * (size - empty)).encode()


def nested(levels, inside=""):
    return "[" * levels + inside + "]" * levels


# --- Taken, answered, and the next frame too ---

TAKEN = {
    "plain": ('"plain"', "plain"),
    "white space around the value": ('  "space"  ', "space"),
    "a high half without its low half": (r'"a\ud83d"', "a\ufffd"),
    "a low half alone": (r'"\ude00b"', "\ufffdb"),
    "both halves the wrong way round": (r'"\ude00\ud83d"', "\ufffd\ufffd"),
    "two high halves, then a low one": (r'"\ud83d\ud83d\ude00"', "\ufffd\U0001f600"),
    "a high half before another escape": (r'"\uD83D\n"', "\ufffd\n"),
    "a pair": (r'"\ud83d\ude00"', "\U0001f600"),
    "an escaped backslash before what looks like a half": (r'"\\ud83d"', "\\ud83d"),
    "a half, and an escaped backslash before another": (r'"\ud83d\\ud83d"', "\ufffd\\ud83d"),
    "depth 900": (nested(899), json.loads(nested(899))),
    "brackets in a string are no depth": ('"' + "[" * 5000 + '"', "[" * 5000),
    "many brackets, one after the other": (
        "[" + ",".join(["[]"] * 3000) + "]", [[]] * 3000),
    "the largest number of 64 bits": ("18446744073709551615", 18446744073709551615),
}


@pytest.mark.parametrize("name", TAKEN)
def test_a_message_is_answered_with_its_token(shared_panel, name):
    token_text, echoed = TAKEN[name]
    body = '{"source":"morva-chat","kind":"getStatus","chromeRequestId":%s}' % token_text
    mark = shared_panel.mark()
    shared_panel.send_raw(framed(body.encode()))
    frame = shared_panel.wait_frame(lambda f: f.get("kind") == "ack", mark)
    assert frame == {
        "source": "morva-chat", "kind": "ack", "ok": True, "chromeRequestId": echoed}
    shared_panel.prove_alive()


@pytest.mark.off_protocol("panel")
def test_length_zero_is_an_empty_object_and_the_reader_goes_on(shared_panel):
    mark = shared_panel.mark()
    shared_panel.send_raw(framed(b"") * 3)
    shared_panel.prove_alive()
    assert len(shared_panel.frames_since(mark)) == 1  # only the proof


@pytest.mark.off_protocol("panel")
def test_what_follows_a_nul_byte_is_not_looked_at(shared_panel):
    body = request_text("before the NUL").encode() + b"\0rubbish \xff {"
    mark = shared_panel.mark()
    shared_panel.send_raw(framed(body))
    shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == "before the NUL", mark)
    shared_panel.prove_alive()


def test_a_body_of_exactly_16_mib_is_answered(shared_panel):
    mark = shared_panel.mark()
    shared_panel.send_raw(framed(padded_request("largest", LARGEST_BODY)))
    shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == "largest", mark, timeout=30)
    shared_panel.prove_alive()


# --- Refused, but the stream is in step: the host goes on ---

REFUSED = {
    "1,001 levels": ('{"source":"morva-chat","kind":"getStatus","a":%s}' % nested(1000)),
    "200,000 levels": '{"source":"morva-chat","kind":"getStatus","a":%s}' % nested(200_000),
    "200,000 objects": '{"a":' * 200_000 + "1" + "}" * 200_000,
    "200,000 levels without an end": "[" * 200_000,
    "200,000 levels and no panel message": nested(200_000),
}


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("name", REFUSED)
def test_a_frame_nested_too_deeply_gets_no_answer_and_does_no_harm(shared_panel, name):
    mark = shared_panel.mark()
    shared_panel.send_raw(framed(REFUSED[name].encode()))
    shared_panel.prove_alive()
    frames = shared_panel.frames_since(mark)
    assert [f for f in frames if f.get("kind") == "ack"] == frames[-1:]


def test_exactly_1000_levels_are_taken(shared_panel):
    reply = shared_panel.ask("getStatus", a=json.loads(nested(999)))
    assert reply["ok"] is True


@pytest.mark.off_protocol("panel")
def test_a_frame_nested_too_deeply_is_told_in_the_log(panel, agent):
    panel.send_raw(framed(REFUSED["200,000 levels"].encode()))
    panel.prove_alive()
    turn = panel.run_turn()
    assert ("error", "frame dropped: json nested too deeply") in turn.log_lines
    panel.end()


BLOW_UPS = {
    '16 million "["': "[" * LARGEST_BODY,
    "nested pairs": '[["a",' * (LARGEST_BODY // 6),
    "nested objects": '{"":' * (LARGEST_BODY // 4),
}


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("name", BLOW_UPS)
def test_small_json_with_a_large_tree_is_refused_before_it_takes_memory(panel, name):
    panel.prove_alive()
    before = peak_mib(panel)
    panel.send_raw(framed(BLOW_UPS[name].encode()))
    panel.prove_alive(timeout=30)
    # The body twice over; a sanitizer keeps what was freed for a while.
    assert peak_mib(panel) - before < (300 if IS_SANITIZED else 60)
    panel.end()


# --- The end of the stream ---

ENDING = {
    "no JSON": framed(b"abcd"),
    "an unfinished object": framed(b'{"a":'),
    "two values": framed(b"{} {}"),
    "only white space": framed(b"   "),
    "a comment": framed(b"/* */ {}"),
    "a trailing comma": framed(b'{"a":1,}'),
    "a number too large for the JSON library": framed(b'{"a":1e999}'),
    "a byte that is no UTF-8": framed(b'{"a":"\xff"}'),
    "an overlong character": framed(b'{"a":"\xc0\x80"}'),
    "a control character in a string": framed(b'{"a":"\n"}'),
    "a lone half and another mistake": framed(rb'{"a":"\ud83d",}'),
    "one byte more than 16 MiB": framed(b"", LARGEST_BODY + 1),
    "0x80000000 bytes": framed(b"", 0x80000000),
    "0xFFFFFFFF bytes": framed(b"", 0xFFFFFFFF),
}


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("name", ENDING)
def test_a_stream_out_of_step_ends_the_host_with_0(panel, name):
    panel.prove_alive()
    mark = panel.mark()
    panel.send_raw(ENDING[name])
    panel.expect_exit()  # although standard input is still open
    assert panel.frames_since(mark) == []


CUT_OFF = {
    "inside the length": b"\x05\x00",
    "behind the length": b"\x05\x00\x00\x00",
    "inside the body": b'\x05\x00\x00\x00{"a"',
}


@pytest.mark.parametrize("name", CUT_OFF)
def test_input_that_ends_in_the_middle_of_a_frame_ends_the_host_with_0(panel, name):
    panel.prove_alive()
    panel.send_raw(CUT_OFF[name])
    panel.end(alive=False)


# --- However the bytes arrive ---

CUTS = {"1+3": [1, 3], "2+2": [2, 2], "3+1": [3, 1], "1+1+1+1": [1, 1, 1, 1]}


@pytest.mark.parametrize("name", CUTS)
def test_a_length_in_pieces_is_put_together(shared_panel, name):
    body = request_text(name).encode()
    data = framed(body)
    mark = shared_panel.mark()
    for size in CUTS[name]:
        shared_panel.send_alone(data[:size])
        data = data[size:]
    shared_panel.send_raw(data)
    shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == name, mark)


def test_a_frame_arriving_byte_by_byte_is_answered(shared_panel):
    mark = shared_panel.mark()
    for byte in framed(request_text("byte by byte").encode()):
        shared_panel.send_alone(bytes([byte]))
    shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == "byte by byte", mark)


def test_many_frames_in_one_write_are_answered_in_order(shared_panel):
    mark = shared_panel.mark()
    shared_panel.send_raw(b"".join(framed(request_text(n).encode()) for n in range(2000)))
    shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == 1999, mark, timeout=30)
    tokens = [f.get("chromeRequestId") for f in shared_panel.frames_since(mark)]
    assert tokens == list(range(2000))


def test_a_frame_that_waits_while_the_host_starts_is_answered(start_panel):
    panel = start_panel(greet=False)
    panel.send_raw(framed(request_text("early").encode()))
    panel.wait_frame(lambda f: f.get("chromeRequestId") == "early", 0)
    panel.end()
