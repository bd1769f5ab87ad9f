"""A soak run must be able to fail: each thing that it looks for, made to happen."""

import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT), str(ROOT / "tests" / "system")]

from devkit.panel.panel_session import PanelEvent  # noqa: E402
from actions import ACTIONS  # noqa: E402
from gauges import ALLOWED, Sample, growths  # noqa: E402
from ledger import Ledger, TurnRecord, faults_of  # noqa: E402
from report import Outcome  # noqa: E402


def samples(memory, threads=None, handles=None, life=1):
    count = len(memory)
    return [Sample(float(at), life, *each) for at, each in enumerate(zip(
        memory, threads or [12] * count, handles or [50] * count))]


def risen(looks):
    return [growth.what for growth in growths(looks, ALLOWED["windows"]) if not growth.is_flat]


@pytest.mark.parametrize("memory, threads, handles, wanted", [
    ([20, 30, 31, 30, 32, 31, 30], None, None, []),
    ([20, 30, 36, 42, 48, 54, 60], None, None, ["memory_mib"]),
    ([20, 30, 90, 30, 31, 30, 30], None, None, []),  # one peak is no leak
    ([30] * 7, [12, 16, 20, 24, 28, 32, 36], None, ["threads"]),
    ([30] * 7, [12, 20, 14, 15, 14, 20, 14], None, []),
    ([30] * 7, None, [50, 60, 70, 80, 90, 100, 110], ["handles"]),
    ([30, 60, 90], None, None, []),  # too short a life to say anything
])
def test_what_rises_is_told_from_what_sways(memory, threads, handles, wanted):
    assert risen(samples(memory, threads, handles)) == wanted


def test_lives_are_judged_apart():
    assert risen(samples([20, 30, 30, 30, 30]) + samples([20, 90, 90, 90, 90], life=2)) == []


def turn(**members):
    members = {"starts": 1, "ends": 1, "ok": True, "deltas": ["a", "b"], "whole": "ab"} | members
    return TurnRecord(1, "s", **members)


@pytest.mark.parametrize("record, wanted", [
    (turn(), []),
    (turn(expected="ab"), []),
    (turn(ends=2), ["1 starts and 2 ends"]),
    (turn(starts=0, ends=0), ["0 starts and 0 ends"]),
    (turn(starts=1, ends=0, cut=True), []),
    (turn(starts=2, ends=0, cut=True), ["2 starts and 0 ends"]),
    (turn(whole="abc"), ["its pieces are 2 characters, its text 3"]),
    (turn(expected="abc"), ["2 characters came of 3"]),
    (turn(expected="abc", ok=False, whole=None), []),
])
def test_a_turn_is_audited(record, wanted):
    assert faults_of(record) == wanted


@pytest.fixture
def ledger():
    return Ledger()


def test_replies_come_once_to_what_was_asked(ledger):
    number, pending = ledger.expect_reply("poll", 1)
    ledger.note_reply(1, {"chromeRequestId": number, "ok": True})
    assert pending.done.is_set() and ledger.faults == []
    ledger.note_reply(1, {"chromeRequestId": number, "ok": True})
    ledger.note_reply(1, {"chromeRequestId": 99})
    number, _ = ledger.expect_reply("poll", 1)
    ledger.note_reply(2, {"chromeRequestId": number})
    assert ledger.faults == [
        '2 replies to one "poll"', "a reply to something never asked: {'chromeRequestId': 99}",
        "host 2 answered what host 1 was asked"]


def test_events_come_once(ledger):
    event = PanelEvent("soakEvent", [{"number": 5}])
    ledger.note_event(1, event)
    ledger.note_event(2, event)  # a new host gets the agent's old events anew
    assert ledger.wait_for_event(1, 5, lambda: False, 0) and ledger.faults == []
    ledger.note_event(1, event)
    assert ledger.faults == ["event 5 came 2 times"]
    assert not ledger.wait_for_event(1, 6, lambda: False, 0)


def test_pieces_of_a_text_come_in_order(ledger):
    record = ledger.expect_turn(1, "s", None)
    ledger.note_event(1, PanelEvent("agentStarted", [{"id": "chrome-1", "chat_session_id": "s"}]))
    for number in (1, 3):
        piece = {"runId": "chrome-1", "seq": number, "delta": "x"}
        ledger.note_event(1, PanelEvent("appendAssistantDelta", [piece]))
    ledger.note_event(1, PanelEvent("agentDone", ["chrome-1", True, ""]))
    assert record.done.is_set() and record.ok
    assert ledger.faults == ["piece 3 of a text came as number 2"]


@pytest.mark.parametrize("method, args, wanted", [
    ("agentStarted", [{"id": "chrome-2", "chat_session_id": "t"}], "a turn that nobody asked for"),
    ("agentDone", ["chrome-9", True, ""], "something of an unknown turn: chrome-9"),
])
def test_what_nobody_asked_for_is_a_fault(ledger, method, args, wanted):
    ledger.note_event(1, PanelEvent(method, args))
    assert len(ledger.faults) == 1 and ledger.faults[0].startswith(wanted)


def test_what_the_end_of_a_host_cuts_off_is_no_fault(ledger):
    _, pending = ledger.expect_reply("poll", 1)
    record = ledger.expect_turn(1, "s", None)
    ledger.life_ended(1)
    assert pending.cut and record.cut
    assert ledger.audit_turns() == 1 and ledger.faults == []


FLAT = growths(samples([20] * 7), ALLOWED["native"])
RISING = growths(samples([20, 30, 60, 90]), ALLOWED["native"])


@pytest.mark.parametrize("members, faults, unexpected, done, subject", [
    ({}, [], 0, ACTIONS, None),
    ({}, ["event 5 came 2 times"], 0, ACTIONS, "replies, events, turns and ends"),
    ({"growths": RISING}, [], 0, ACTIONS, "flat memory"),
    ({}, [], 3, ACTIONS, None),
    ({}, [], 4, ACTIONS, "failures without a reason"),
    ({}, [], 0, ACTIONS[1:], "everything happened"),
    ({"crashes": 0}, [], 0, ACTIONS, "everything happened"),
    ({"lives": 1}, [], 0, ACTIONS, "everything happened"),
    ({"growths": []}, [], 0, ACTIONS, "everything happened"),
])
def test_the_verdict_names_what_is_wrong(ledger, members, faults, unexpected, done, subject):
    ledger.faults += faults
    ledger.unexpected["turn"] += unexpected
    ledger.latencies.update({name: [5.0] * 10 for name in done})
    outcome = Outcome("native", 1, 60.0, **{
        "lives": 2, "crashes": 1, "stops": 0, "turns": 100, "ledger": ledger, "samples": [],
        "growths": FLAT} | members)
    wrong = [name for name, texts in outcome.verdicts().items() if texts]
    assert wrong == ([subject] if subject else [])
