"""Who asked what, and what came of it: the book that is audited when a soak run is over."""

from __future__ import annotations

import bisect
import itertools
import threading
import time
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
    arrived: threading.Event = field(default_factory=threading.Event)


@dataclass
class TurnRecord:
    """What the panel was told about one turn."""

    life: int
    session: str
    run: str = ""
    starts: int = 0
    ends: int = 0
    ok: bool = False
    error: str = ""
    deltas: list = field(default_factory=list)
    whole: str | None = None
    expected: str | None = None  # the whole answer, where it is known beforehand
    cut: bool = False
    disturbed: bool = False
    done: threading.Event = field(default_factory=threading.Event)


class Disturbances:
    """When the agent was gone or everything was stopped: what ran then may have failed."""

    def __init__(self):
        self._spans = []  # [begin, end]; end is None while it lasts
        self._lock = threading.Lock()

    def begin(self):
        with self._lock:
            self._spans.append([time.monotonic(), None])

    def end(self):
        with self._lock:
            self._spans[-1][1] = time.monotonic()

    def overlap(self, since, until):
        with self._lock:
            return any(begin <= until and (end is None or end >= since)
                       for begin, end in self._spans)


class Ledger:
    """Thread-safe. `faults` are sentences; a run without any is a good one."""

    def __init__(self):
        self._lock = threading.Lock()
        self._ids = itertools.count(1)
        self._pending = {}
        self._turns = {}  # by chat session, which every turn has of its own
        self._runs = {}  # by (life, run id)
        self._events = {}  # (life, number) to how often it came
        self._event_arrived = threading.Condition(self._lock)
        self.faults = []
        self.disturbances = Disturbances()
        self.latencies = {}  # action to sorted milliseconds
        self.refused = {}  # action to how often it failed while the agent was disturbed
        self.unexpected = {}  # action to how often it failed without a reason
        self.replies = 0
        self.events_received = 0

    def fault(self, text):
        with self._lock:
            if text not in self.faults:
                self.faults.append(text)

    def measured(self, action, seconds):
        with self._lock:
            bisect.insort(self.latencies.setdefault(action, []), seconds * 1000)

    def failed(self, action, disturbed):
        with self._lock:
            table = self.refused if disturbed else self.unexpected
            table[action] = table.get(action, 0) + 1

    # --- Replies ---

    def expect_reply(self, kind, life):
        with self._lock:
            number = next(self._ids)
            self._pending[number] = Pending(kind, life)
            return number, self._pending[number]

    def note_reply(self, life, frame):
        number = frame["chromeRequestId"]
        with self._lock:
            pending = self._pending.get(number)
            if pending is not None:
                pending.count += 1
                pending.reply = pending.reply or frame
        if pending is None:
            self.fault(f"a reply to something never asked: {str(frame)[:200]}")
        elif pending.count > 1:
            self.fault(f"{pending.count} replies to one \"{pending.kind}\"")
        elif pending.life != life:
            self.fault(f"host {life} answered what host {pending.life} was asked")
        else:
            self.replies += 1
        if pending is not None:
            pending.arrived.set()

    # --- Turns ---

    def expect_turn(self, life, session, expected):
        with self._lock:
            turn = TurnRecord(life, session, expected=expected)
            self._turns[session] = turn
            return turn

    def note_event(self, life, event):
        """One event of the panel, as the host sent it."""
        handler = self._HANDLERS.get(event.method)
        if handler is not None:
            with self._lock:
                handler(self, life, event.args)

    def _started(self, life, args):
        turn = self._turns.get(args[0]["chat_session_id"])
        if turn is None or turn.life != life:
            self.faults.append(f"a turn that nobody asked for: {args[0]}")
            return
        turn.starts += 1
        turn.run = args[0]["id"]
        self._runs[life, turn.run] = turn

    def _delta(self, life, args):
        turn = self._runs.get((life, args[0]["runId"]))
        if turn is None:
            self.faults.append(f"text of an unknown turn: {args[0]['runId']}")
            return
        turn.deltas.append(args[0]["delta"])
        if args[0]["seq"] != len(turn.deltas):
            self.faults.append(
                f"piece {args[0]['seq']} of a text came as number {len(turn.deltas)}")

    def _completed(self, life, args):
        if turn := self._runs.get((life, args[0]["runId"])):
            turn.whole = args[0]["text"]

    def _done(self, life, args):
        turn = self._runs.get((life, args[0]))
        if turn is None:
            self.faults.append(f"the end of an unknown turn: {args}")
            return
        turn.ends += 1
        turn.ok, turn.error = args[1], args[2]
        turn.done.set()

    def _fed(self, life, args):
        key = (life, args[0]["number"])
        self._events[key] = self._events.get(key, 0) + 1
        self.events_received += 1
        if self._events[key] > 1:
            self.faults.append(f"event {key[1]} came {self._events[key]} times")
        self._event_arrived.notify_all()

    _HANDLERS = {
        "agentStarted": _started, "appendAssistantDelta": _delta,
        "completeAssistantText": _completed, "agentDone": _done, "soakEvent": _fed,
    }

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
            for pending in self._pending.values():
                if pending.life == life and not pending.arrived.is_set():
                    pending.cut = True
                    pending.arrived.set()
            for turn in self._turns.values():
                if turn.life == life and not turn.done.is_set():
                    turn.cut = True
                    turn.done.set()

    def audit_turns(self):
        """Every turn began and ended once, and its pieces are its text."""
        with self._lock:
            turns = list(self._turns.values())
        for turn in turns:
            for fault in faults_of(turn):
                self.fault(f"turn {turn.session}: {fault}")
        return len(turns)

    def forget_life(self, life):
        """Drops what has been audited, so that a run of hours does not fill the memory."""
        with self._lock:
            self._pending = {number: each for number, each in self._pending.items()
                             if each.life != life}
            self._turns = {name: each for name, each in self._turns.items() if each.life != life}
            self._runs = {key: each for key, each in self._runs.items() if key[0] != life}
            self._events = {key: each for key, each in self._events.items() if key[0] != life}


def faults_of(turn):
    """What is wrong with a turn that is over."""
    faults = []
    allowed = (0, 1) if turn.cut else (1,)
    if turn.starts not in allowed or turn.ends not in allowed:
        faults.append(f"{turn.starts} starts and {turn.ends} ends")
    if turn.cut:
        return faults
    text = "".join(turn.deltas)
    if turn.whole is not None and turn.whole != text:
        faults.append(f"its pieces are {len(text)} characters, its text {len(turn.whole)}")
    if turn.ok and turn.expected is not None and text != turn.expected:
        faults.append(f"{len(text)} characters came of {len(turn.expected)}")
    return faults
