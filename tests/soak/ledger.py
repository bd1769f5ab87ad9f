"""Who asked what, and what came of it: the book that is audited when a soak run is over."""

from __future__ import annotations

import itertools
import threading
import time
from collections import Counter, defaultdict
from dataclasses import dataclass, field

REPLY_TIMEOUT_S = 120.0  # far past the 60 s that the host gives the agent, and a loaded machine


class LifeOver(Exception):
    """The host that was asked has been ended, which is why there is no answer."""


@dataclass
class Pending:
    """A message that waits for its one reply."""

    kind: str
    life: int
    reply: dict | None = None
    count: int = 0
    cut: bool = False  # the host was ended first
    done: threading.Event = field(default_factory=threading.Event)


@dataclass
class TurnRecord:
    """What the panel heard about one turn."""

    life: int
    session: str
    expected: str | None = None  # the whole answer, where it is known beforehand
    starts: int = 0
    ends: int = 0
    ok: bool = False
    error: str = ""
    deltas: list = field(default_factory=list)
    whole: str | None = None
    cut: bool = False
    done: threading.Event = field(default_factory=threading.Event)


class Disturbances:
    """When the agent was gone or everything was stopped: what ran then may have failed."""

    def __init__(self):
        self._spans = []  # [begin, end]; the end of one that lasts is far away

    def begin(self):
        self._spans.append([time.monotonic(), float("inf")])

    def end(self):
        self._spans[-1][1] = time.monotonic()

    def overlap(self, since):
        """Whether there was one since then."""
        return any(end >= since for _, end in list(self._spans))


class Ledger:
    """Thread-safe. `faults` are sentences; a run without any is a good one."""

    def __init__(self):
        self._lock = threading.RLock()
        self._event_arrived = threading.Condition(self._lock)
        self._ids = itertools.count(1)
        self._pending = {}
        self._turns = {}  # by chat session, which every turn has of its own
        self._runs = {}  # turns by (life, run id)
        self._events = Counter()  # by (life, number)
        self.faults = []
        self.disturbances = Disturbances()
        self.latencies = defaultdict(list)  # milliseconds by action
        self.refused = Counter()  # actions that failed while the agent was disturbed
        self.unexpected = Counter()  # actions that failed without a reason
        self.replies = self.events = 0

    def fault(self, text):
        with self._lock:
            if text not in self.faults:
                self.faults.append(text)

    # --- Replies ---

    def expect_reply(self, kind, life):
        with self._lock:
            number = next(self._ids)
            self._pending[number] = Pending(kind, life)
            return number, self._pending[number]

    def note_reply(self, life, frame):
        with self._lock:
            pending = self._pending.get(frame["chromeRequestId"])
            if pending is None:
                self.fault(f"a reply to something never asked: {str(frame)[:200]}")
                return
            pending.count += 1
            pending.reply = pending.reply or frame
            pending.done.set()
            if pending.count > 1:
                self.fault(f"{pending.count} replies to one \"{pending.kind}\"")
            elif pending.life != life:
                self.fault(f"host {life} answered what host {pending.life} was asked")
            else:
                self.replies += 1

    # --- Turns and events ---

    def expect_turn(self, life, session, expected):
        with self._lock:
            self._turns[session] = TurnRecord(life, session, expected)
            return self._turns[session]

    def note_event(self, life, event):
        """One event of the panel, as the host sent it."""
        noted = {"agentStarted": self._started, "appendAssistantDelta": self._delta,
                 "completeAssistantText": self._completed, "agentDone": self._done,
                 "soakEvent": self._fed}.get(event.method)
        if noted:
            with self._lock:
                noted(life, *event.args)

    def _started(self, life, turn):
        record = self._turns.get(turn["chat_session_id"])
        if record is None or record.life != life:
            self.fault(f"a turn that nobody asked for: {turn}")
            return
        record.starts += 1
        self._runs[life, turn["id"]] = record

    def _run(self, life, run_id):
        if (life, run_id) not in self._runs:
            self.fault(f"something of an unknown turn: {run_id}")
        return self._runs.get((life, run_id), TurnRecord(life, ""))

    def _delta(self, life, piece):
        deltas = self._run(life, piece["runId"]).deltas
        deltas.append(piece["delta"])
        if piece["seq"] != len(deltas):
            self.fault(f"piece {piece['seq']} of a text came as number {len(deltas)}")

    def _completed(self, life, text):
        self._run(life, text["runId"]).whole = text["text"]

    def _done(self, life, run_id, ok, error):
        record = self._run(life, run_id)
        record.ends += 1
        record.ok, record.error = ok, error
        record.done.set()

    def _fed(self, life, event):
        key = (life, event["number"])
        self._events[key] += 1
        self.events += 1
        if self._events[key] > 1:
            self.fault(f"event {key[1]} came {self._events[key]} times")
        self._event_arrived.notify_all()

    def wait_for_event(self, life, number, give_up, timeout):
        """Whether the event came; `give_up` is asked now and then."""
        deadline = time.monotonic() + timeout
        with self._event_arrived:
            while (life, number) not in self._events:
                if give_up() or time.monotonic() > deadline:
                    return False
                self._event_arrived.wait(0.1)
        return True

    # --- The audit ---

    def life_ended(self, life):
        """What host `life` has not answered until now, it never will."""
        with self._lock:
            for each in [*self._pending.values(), *self._turns.values()]:
                if each.life == life and not each.done.is_set():
                    each.cut = True
                    each.done.set()

    def audit_turns(self):
        """Every turn began and ended once, and its pieces are its text. How many there were."""
        with self._lock:
            for turn in self._turns.values():
                for fault in faults_of(turn):
                    self.fault(f"turn {turn.session}: {fault}")
            return len(self._turns)

    def forget(self):
        """Drops what has been audited, so that a run of hours does not fill the memory."""
        with self._lock:
            for table in (self._pending, self._turns, self._runs, self._events):
                table.clear()


def faults_of(turn):
    """What is wrong with a turn that is over."""
    faults = []
    allowed = (0, 1) if turn.cut else (1,)
    if turn.starts not in allowed or turn.ends not in allowed:
        faults.append(f"{turn.starts} starts and {turn.ends} ends")
    text = "".join(turn.deltas)
    if not turn.cut and turn.whole not in (None, text):
        faults.append(f"its pieces are {len(text)} characters, its text {len(turn.whole)}")
    if not turn.cut and turn.ok and turn.expected not in (None, text):
        faults.append(f"{len(text)} characters came of {len(turn.expected)}")
    return faults
