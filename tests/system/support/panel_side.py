"""The browser's side of a running host: asking, listening, and ending it in order."""

import itertools
import json
import time

from support.builds import IS_WINDOWS, SLOWER
from support.sanitizer_reports import take_reports

_tokens = itertools.count(1)

ACK: dict[str, object] = {"source": "morva-chat", "kind": "ack", "ok": True}


def _events_of(frame):
    return frame["events"] if frame.get("kind") == "hostChatEvents" else []


class Turn:
    """The events of one chat turn, from "setBusy" to "agentDone"."""

    def __init__(self, events):
        self.log_lines = [
            (args[0]["level"], args[0]["text"])
            for method, args in events
            if method == "appendDebugLog"
        ]
        self.events = [event for event in events if event[0] != "appendDebugLog"]
        started = self.args_of("agentStarted")[0][0]
        self.run_id = started["id"]
        self.started = started

    def args_of(self, method):
        return [args for name, args in self.events if name == method]

    @property
    def done(self):
        """(ok, error) of the one "agentDone" that must be there."""
        (args,) = self.args_of("agentDone")
        assert args[0] == self.run_id
        return args[1], args[2]

    @property
    def translated(self):
        """What came of the agent's stream: all between the start and the end of the turn."""
        outside = ("setBusy", "agentStarted", "completeAssistantText", "setTurnLlmUsage",
                   "agentDone")
        return [event for event in self.events if event[0] not in outside]

    @property
    def text(self):
        """The whole answer as the turn's end gives it; None when the turn gave none."""
        complete = self.args_of("completeAssistantText")
        return complete[0][0]["text"] if complete else None


class Panel:
    """Talks to one HostProcess."""

    def __init__(self, host):
        self.host = host
        self.pid = host.pid
        self.relayed = []  # what local programs sent through the host, whatever it was

    # --- Frames ---

    def mark(self):
        """A place in what has been received, to look from later."""
        return len(self.host.frames)

    def frames_since(self, mark):
        return self.host.frames[mark:]

    def wait_frame(self, predicate, since=0, timeout=15):
        return self.host.wait_for(predicate, timeout, since=since)

    def send_raw(self, data):
        self.host.send_raw(data)

    def send(self, kind, **keys):
        """Sends a panel message and returns its token."""
        token = keys.pop("chromeRequestId", f"token {next(_tokens)}")
        self.host.send(
            {"source": "morva-chat", "kind": kind, "chromeRequestId": token, **keys})
        return token

    def ask(self, kind, timeout=15, **keys):
        """Sends a panel message and waits for its reply."""
        mark = self.mark()
        token = self.send(kind, **keys)
        return dict(self.wait_frame(lambda f: f.get("chromeRequestId") == token, mark, timeout))

    def ask_for_ack(self, kind, timeout=40, **keys):
        """As `ask`, for what is acknowledged and no more."""
        reply = self.ask(kind, timeout, **keys)
        del reply["chromeRequestId"]
        assert reply == ACK

    def find_agent(self):
        """Has the host look for its agent."""
        assert self.ask("providerRpc", method="commandEventsSubscribe")["ok"] is True

    def prove_alive(self, timeout=15):
        """An exit code tells nothing about a stack overflow; an answer does."""
        self.ask_for_ack("getStatus", timeout)

    # --- Events ---

    def events_since(self, mark=0):
        """[method, args] of every panel event since the mark."""
        return [
            (event["method"], event["args"])
            for frame in self.frames_since(mark) for event in _events_of(frame)
        ]

    def wait_event(self, method, test=lambda args: True, since=0, timeout=15):
        """The arguments of the first such event since the mark."""
        def found(frame):
            return any(event["method"] == method and test(event["args"])
                       for event in _events_of(frame))

        self.wait_frame(found, since, timeout)
        return next(a for m, a in self.events_since(since) if m == method and test(a))

    def told(self, mark=0):
        """The same without log lines."""
        return [event for event in self.events_since(mark) if event[0] != "appendDebugLog"]

    def wait_told(self, count, mark=0, timeout=60):
        """The events since the mark, once there are so many; with any that comes right behind."""
        self._wait_count(lambda method: method != "appendDebugLog", count, mark, timeout)
        return self.told(mark)

    def log_lines(self, mark=0):
        """The text of every log line since the mark."""
        return [a[0]["text"] for m, a in self.events_since(mark) if m == "appendDebugLog"]

    def _wait_count(self, test, count, mark, timeout):
        seen = itertools.count(1)  # each frame is looked at once
        self.wait_frame(lambda frame: any(
            [next(seen) >= count for event in _events_of(frame) if test(event["method"])]),
            mark, timeout)
        self.prove_alive()

    # --- Turns ---

    def start_turn(self, count=1, until="agentStarted", **keys):
        """Begins turns and returns the mark before them, once one has come so far."""
        mark = self.mark()
        for _ in range(count):
            self.send("send", **{"prompt": "hi", "preset": "p", **keys})
        if until:
            self.wait_event(until, since=mark, timeout=30)
        return mark

    def wait_ends(self, mark, count=1, timeout=60):
        """The "agentDone" of so many turns since the mark, by run id: each comes once."""
        self._wait_count(lambda method: method == "agentDone", count, mark, timeout)
        ends = [args for method, args in self.events_since(mark) if method == "agentDone"]
        done = {run: (ok, error) for run, ok, error in ends}
        assert len(done) == len(ends) == count, ends
        return done

    def finish_turn(self, mark, timeout=60):
        """The one turn since the mark, when it has ended."""
        self.wait_ends(mark, 1, timeout)
        return Turn(self.events_since(mark))

    def stop_turn(self, mark):
        """Stops the one turn since the mark; how many seconds that took."""
        began = time.monotonic()
        self.send("stop")
        _, *end = self.wait_event("agentDone", since=mark)
        assert end == [False, "cancelled"]
        return time.monotonic() - began

    def run_turn(self, prompt="hi", timeout=20, **keys):
        """A whole chat turn; no other may be running."""
        mark = self.mark()
        token = self.send("send", prompt=prompt, **{"preset": "plain", **keys})
        self.wait_event("agentDone", since=mark, timeout=timeout)
        # The reply may come after the turn's last event, as the two are written by two threads.
        reply = self.wait_frame(lambda f: f.get("chromeRequestId") == token, mark, timeout)
        assert reply == {**ACK, "chromeRequestId": token}
        return Turn(self.events_since(mark))

    # --- The end ---

    def end(self, alive=True, limit=None):
        """Proves the host alive, closes its input and expects it to end in order."""
        if alive:
            self.prove_alive()
        started = time.monotonic()
        self.host.close_stdin()
        self.expect_exit()
        took = time.monotonic() - started
        if limit is not None:
            assert took <= limit * SLOWER, f"the host took {took:.3f} s to end"
        return took

    def expect_exit(self, timeout=10):
        code = self.host.wait(timeout)
        # A second complaint at the end of a test, such as of a sanitizer's report, is not shown.
        said = self.host.stderr[-4000:] + take_reports()[:8000]
        assert code == 0, f"exit code {code}; standard error:\n{said}"
        self.check_stream()

    def check_stream(self):
        """Everything the host wrote is frames, written as the protocol says."""
        assert not self.host.stream_fault, self.host.stream_fault
        for body, frame in zip(self.host.bodies, self.host.frames):
            ours = isinstance(frame, dict) and (
                frame.get("source") == "morva-chat" or "command" in frame)
            assert ours or frame in self.relayed, frame
            if len(body) < 100_000:
                wanted = compact(frame, sort_keys=False)
                assert body == wanted, f"{body[:500]!r} for {wanted[:500]!r}"
        assert "Sanitizer" not in self.host.stderr, self.host.stderr[-8000:]


def compact(value, sort_keys=True):
    """How a frame's body is written: no blanks, raw UTF-8."""
    text = json.dumps(value, sort_keys=sort_keys, separators=(",", ":"), ensure_ascii=False)
    return text.encode()


def exit_limit_seconds():
    """How long after its input is closed the host may still be there."""
    return 0.5 if IS_WINDOWS else 0.3
