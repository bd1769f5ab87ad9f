"""A soak run must be able to fail: each thing that it looks for, made to happen."""

import sys
from pathlib import Path
from random import Random
from types import SimpleNamespace

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT), str(ROOT / "tests" / "system")]

import ends  # noqa: E402
from actions import ACTIONS  # noqa: E402
from judgement import verdicts  # noqa: E402
from ledger import Ledger, Record  # noqa: E402

FLAT = [(1, 10.0, {"MiB": 30, "threads": 12, "handles": 50})] * 7


def rising(what, *values, life=1, every=10.0):
    return [(life, every * number, FLAT[0][2] | {what: value})
            for number, value in enumerate(values)]


def with_threads(samples, *counts):
    return [(life, age, gauges | {"threads": count})
            for (life, age, gauges), count in zip(samples, counts)]


STACKS = rising("MiB", 20, 30, 30, 40, 40, 50, 50)


@pytest.fixture
def record():
    return Record()


@pytest.mark.parametrize("members, subject", [
    ({}, None),
    ({"samples": rising("MiB", 20, 30, 31, 30, 32, 31, 30)}, None),
    ({"samples": rising("MiB", 20, 30, 36, 42, 48, 54, 60)}, "flat MiB"),
    ({"samples": rising("MiB", 20, 30, 90, 30, 31, 30, 30)}, None),  # one peak is no leak
    ({"samples": with_threads(STACKS, 12, 12, 12, 20, 20, 24, 24)}, None),  # each with a stack
    ({"samples": with_threads(STACKS, 12, 12, 12, 20, 20, 20, 20)}, "flat MiB"),
    ({"samples": with_threads(STACKS, 12, 24, 24, 20, 20, 12, 12)}, "flat MiB"),
    ({"samples": FLAT + rising("MiB", 20, 90, 90, 90, life=2)}, None),  # each by itself
    ({"samples": rising("threads", 12, 16, 20, 24, 28, 32, 36)}, "flat threads"),
    ({"samples": rising("threads", 12, 20, 14, 15, 14, 20, 14)}, None),
    ({"samples": rising("handles", 50, 60, 70, 80, 90, 100, 110)}, "flat handles"),
    ({"samples": rising("MiB", 30, 30, 50, 60, 60, 62, 62, every=200.0)}, None),  # was warm at 60
    ({"samples": rising("MiB", 30, 30, 50, 60, 60, 64, 64, every=200.0)}, "flat MiB"),
    ({"samples": rising("threads", 9, 9, 9, 10, 10, 11, 11, every=200.0)}, "flat threads"),
    ({"samples": rising("MiB", 30, 60, 90)}, "everything happened"),  # too short to say anything
    ({"faults": {"event 5 came 2 times": None}}, "replies, events, turns and ends"),
    ({"unexpected": 3}, None),
    ({"unexpected": 4}, "failures without a reason"),
    ({"done": list(ACTIONS)[1:]}, "everything happened"),
    ({"crashes": 0}, "everything happened"),
    ({"lives": 1}, "everything happened"),
])
def test_the_verdict_names_what_is_wrong(record, members, subject):
    given = {"samples": FLAT, "faults": {}, "unexpected": 0, "done": ACTIONS, "crashes": 1,
             "lives": 2} | members
    record.faults = given["faults"]
    record.unexpected["turn"] = given["unexpected"]
    record.times.update({name: [5.0] * 10 for name in given["done"]})
    found = verdicts("windows", record, given["samples"], given["lives"], given["crashes"])
    assert [name for name, texts in found.items() if texts] == [subject] * bool(subject)


@pytest.mark.parametrize("took, left, subject", [
    ([2.4] * 9, [], None), ([3.0], [], None), ([3.0] * 2, [], "ended within 2.5 s"),
    ([4.5], [], "ended within 2.5 s"), ([0.1], [39270], "its agent gone, its ports free")])
def test_an_end_that_is_late_or_leaves_something_is_found(record, tmp_path, monkeypatch, took, left,
                                                          subject):
    run = SimpleNamespace(random=Random(1), scratch=tmp_path, record=record)
    monkeypatch.setattr(ends, "listening", lambda ports: left)
    monkeypatch.setattr(ends, "LEFT_S", 0)
    monkeypatch.setattr(ends.builds, "SLOWER", 1.0)
    judged = ends.Ends(run, 5)
    judged.times[ends.BROWSER] += took
    judged.look_for_what_is_left(SimpleNamespace(ledger=Ledger(record, 1)), owned=False)
    assert [name for name, texts in judged.verdicts().items() if texts] == [subject] * bool(subject)
    assert list(record.faults) == ["host 1: leaves a port behind"] * bool(left)


REPLY = {"chromeRequestId": 1}


def told(method, *args):
    return {"kind": "hostChatEvents", "events": [{"method": method, "args": list(args)}]}


def turn(*pieces, whole="ab", ends=1):
    """What a panel hears of the turn that was asked for."""
    return [told("agentStarted", {"id": "r", "chat_session_id": "s"}),
            *(told("appendAssistantDelta", {"runId": "r", "seq": seq, "delta": text})
              for seq, text in pieces),
            told("completeAssistantText", {"runId": "r", "text": whole}),
            *[told("agentDone", "r", True, "")] * ends]


@pytest.mark.parametrize("frames, wrong", [
    ([REPLY, told("soakEvent", {"number": 5}), *turn((1, "a"), (2, "b"))], None),
    ([], None),  # cut off by the end of the host
    ([*turn((1, "a"), (2, "b"))[:-1]], None),
    ([REPLY, REPLY], 'the reply to "poll" came 2 times'),
    ([{"chromeRequestId": 9}], "a reply to what was never asked: {'chromeRequestId': 9}"),
    ([told("soakEvent", {"number": 5})] * 2, "event 5 came 2 times"),
    ([told("agentStarted", {"id": "r", "chat_session_id": "t"})], "a turn that nobody asked for"),
    ([told("agentDone", "x", True, "")], "something of an unknown turn: x"),
    (turn((1, "a"), (2, "b"), ends=2), "turn s came 2 times"),
    (turn()[:1] + turn((1, "a"), (2, "b")), "turn s: 2 starts"),
    (turn((1, "a"), (3, "b")), "piece 3 of a text came as number 2"),
    (turn((1, "a"), (2, "b"), whole="abc"), "turn s: its pieces are 2 characters, its text 3"),
    (turn((1, "a"), whole="a"), "turn s: 1 characters came of 2"),
])
def test_what_does_not_come_once_and_whole_is_a_fault(record, frames, wrong):
    ledger = Ledger(record, 1)
    awaited = [ledger.expect_reply(1, "poll"), ledger.expect_turn("s", "ab"), ledger.event(5)]
    for frame in frames:
        ledger.note(frame)
    ledger.close()
    assert all(each.done.is_set() and each.cut == (not each.count) for each in awaited)
    assert [fault.startswith(f"host 1: {wrong}") for fault in record.faults] == [True] * bool(wrong)
