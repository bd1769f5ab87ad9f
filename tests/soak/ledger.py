"""Who asked what, and what came of it: the book that is audited when a host has ended."""

from __future__ import annotations

import itertools
import threading
from collections import Counter, defaultdict
from collections.abc import Callable
from dataclasses import dataclass, field

from devkit.panel.panel_session import events_of

TIMEOUT_S = 120.0  # far past the 60 s that the host gives the agent, and a loaded machine

numbers = itertools.count(1)  # no two messages or events of a run have the same


class LifeOver(Exception):
    """The host that was asked has been ended, which is why there is no answer."""


class Record:
    """Of the whole run. Without any of `faults`, which are sentences, it is a good one."""

    def __init__(self):
        self.faults = {}  # in the order in which they were seen, each once
        # While the agent is gone or everything is stopped, and what runs then may fail.
        self.disturbed_until = 0.0
        self.times = defaultdict(list)  # milliseconds by action
        self.refused = Counter()  # actions that failed while the agent was disturbed
        self.unexpected = Counter()  # actions that failed without a reason
        self.counts = Counter()

    def fault(self, text):
        self.faults.setdefault(text)


@dataclass
class Awaited:
    """A reply, an event or the end of a turn, which must come once."""

    name: str
    reply: dict | None = None
    count: int = 0
    cut: bool = False  # the host was ended first
    done: threading.Event = field(default_factory=threading.Event)


@dataclass
class Turn(Awaited):
    """What the panel heard about one turn; `count` is how often it ended."""

    expected: str | None = None  # the whole answer, where it is known beforehand
    starts: int = 0
    ok: bool = False
    error: str = ""
    pieces: list = field(default_factory=list)
    whole: str | None = None


class Ledger:
    """Of one host. Thread-safe."""

    def __init__(self, record, life):
        self._record, self._life = record, life
        self._lock = threading.RLock()
        self._replies = {}  # by the id of the message
        self._turns = {}  # by chat session, which every turn has of its own
        self._runs = {}  # turns by run id
        self._events = {}  # by number

    def fault(self, text):
        self._record.fault(f"host {self._life}: {text}")

    def expect_reply(self, number, kind):
        with self._lock:
            return self._replies.setdefault(number, Awaited(f'the reply to "{kind}"'))

    def expect_turn(self, session, expected):
        with self._lock:
            return self._turns.setdefault(session, Turn(f"turn {session}", expected=expected))

    def event(self, number):
        with self._lock:
            return self._events.setdefault(number, Awaited(f"event {number}"))

    def wait(self, awaited):
        """Until it has come."""
        if not awaited.done.wait(TIMEOUT_S):
            self.fault(f"{awaited.name} does not come")
            raise LifeOver
        if awaited.cut:
            raise LifeOver

    def note(self, frame):
        """One frame of the host."""
        noted: dict[str, Callable] = {
            "agentStarted": self._started, "appendAssistantDelta": self._piece,
            "completeAssistantText": self._completed, "agentDone": self._ended,
            "soakEvent": lambda event: self._came("events", self.event(event["number"]))}
        with self._lock:
            if "chromeRequestId" in frame:
                self._replied(frame)
            for event in events_of(frame):
                noted.get(event.method, lambda *_: None)(*event.args)

    def _came(self, kind, awaited):
        self._record.counts[kind] += 1
        awaited.count += 1
        awaited.done.set()
        if awaited.count > 1:
            self.fault(f"{awaited.name} came {awaited.count} times")

    def _replied(self, frame):
        awaited = self._replies.get(frame["chromeRequestId"])
        if awaited is None:
            return self.fault(f"a reply to what was never asked: {str(frame)[:200]}")
        awaited.reply = frame
        self._came("replies", awaited)

    def _started(self, turn):
        record = self._turns.get(turn["chat_session_id"])
        if record is None:
            return self.fault(f"a turn that nobody asked for: {turn}")
        record.starts += 1
        self._runs[turn["id"]] = record

    def _run(self, run_id):
        if run_id not in self._runs:
            self.fault(f"something of an unknown turn: {run_id}")
        return self._runs.get(run_id, Turn(run_id))

    def _piece(self, piece):
        pieces = self._run(piece["runId"]).pieces
        pieces.append(piece["delta"])
        if piece["seq"] != len(pieces):
            self.fault(f"piece {piece['seq']} of a text came as number {len(pieces)}")

    def _completed(self, text):
        self._run(text["runId"]).whole = text["text"]

    def _ended(self, run_id, ok, error):
        turn = self._run(run_id)
        turn.ok, turn.error = ok, error
        self._came("turns", turn)

    def close(self):
        """What has not come until now never will. Every turn that was not cut off has begun once,
        and its pieces are its text."""
        with self._lock:
            tables = (self._replies, self._turns, self._events)
            for each in [each for table in tables for each in table.values()]:
                each.cut = each.cut or not each.done.is_set()
                each.done.set()
            for turn in self._turns.values():
                for wrong in faults_of(turn):
                    self.fault(f"{turn.name}: {wrong}")


def faults_of(turn):
    """What is wrong with a turn that is over, but for how often it ended."""
    if turn.starts > 1 or not (turn.cut or turn.starts):
        yield f"{turn.starts} starts"
    text = "".join(turn.pieces)
    if not turn.cut and turn.whole not in (None, text):
        yield f"its pieces are {len(text)} characters, its text {len(turn.whole)}"
    if not turn.cut and turn.ok and turn.expected not in (None, text):
        yield f"{len(text)} characters came of {len(turn.expected)}"
