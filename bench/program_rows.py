"""Whole programs: round trip, start, idling and memory of the host, next to the least program."""

from __future__ import annotations

import contextlib
import os
import time
from collections.abc import Iterator

from driven_program import DrivenProgram, Side, encode
from results import Results, Row

HOST, ECHO = "morva-chrome-host", "baseline_echo"
LARGEST_BODY = 16 * 1024 * 1024
STATUS = encode({"source": "morva-chat", "kind": "getStatus", "chromeRequestId": 7})
ACK = b'{"chromeRequestId":7,"kind":"ack","ok":true,"source":"morva-chat"}'

IDLE_S = 15
WATCHDOG_S = 5


def start(side: Side, name: str) -> DrivenProgram:
    program = DrivenProgram(side, name, first=STATUS)
    if name == HOST and program.first_reply != ACK:
        raise SystemExit(f"unexpected reply: {program.first_reply!r}")
    return program


@contextlib.contextmanager
def one_core() -> Iterator[None]:
    """Keeps this process and what it starts on one core.

    On several, what counts most is whether the system wakes the far side on the same core or on
    another one, and it sticks to one or the other for as long as two processes live.
    """
    allowed = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {max(allowed)})
    try:
        yield
    finally:
        os.sched_setaffinity(0, allowed)


def round_trips(side: Side, pairs: int, rounds: int) -> tuple[list[float], list[float]]:
    host_times, echo_times = [], []
    for _ in range(pairs):
        with start(side, HOST) as host, start(side, ECHO) as echo:
            for _ in range(rounds):
                # In turns, so that a disturbance hits both; several at once, as warm caches are
                # what one and the same program would have too.
                host_times += [host.round_trip_s(STATUS) for _ in range(20)]
                echo_times += [echo.round_trip_s(STATUS) for _ in range(20)]
    return host_times, echo_times


def measure_round_trip(results: Results, side: Side, quick: bool) -> None:
    pairs, rounds = (3, 20) if quick else (8, 50)
    with one_core():
        host, echo = round_trips(side, pairs, rounds)
    results.compare(side.name, "round trip of a small frame, one core", host, echo, bound=1.25)
    host, echo = round_trips(side, pairs, rounds)
    results.compare(side.name, "round trip of a small frame, any core", host, echo, bound=None)


def measure_start(results: Results, side: Side, quick: bool) -> None:
    times: dict[str, list[float]] = {HOST: [], ECHO: []}
    with one_core():
        for _ in range(30 if quick else 60):
            for name, seen in times.items():
                with start(side, name) as program:
                    seen.append(program.first_reply_s)
    results.compare(side.name, "first reply after process start, one core", times[HOST],
                    times[ECHO], bound=1.5, unit="ms", scale=1e3)


def measure_idle(results: Results, sides: list[Side], quick: bool) -> None:
    """All sides at once, as it is only waiting. The watchdog begins with the first message."""
    seconds = 6 if quick else IDLE_S
    with contextlib.ExitStack() as programs:
        hosts = [(side, programs.enter_context(start(side, HOST))) for side in sides]
        time.sleep(2)
        before = [host.sleeps() for _, host in hosts]
        time.sleep(seconds)
        for (side, host), earlier in zip(hosts, before):
            woken = {thread: count - earlier.get(thread, 0)
                     for thread, count in host.sleeps().items()}
            busy = [count for count in woken.values() if count]
            figures = (f"{sum(busy)} in {seconds} s, in {len(busy)} of {len(woken)} threads "
                       f"(watchdog: every {WATCHDOG_S} s)")
            results.add(Row(side.name, "wake-ups while idle", figures, sum(busy),
                            seconds // WATCHDOG_S + 1, unit=""))


# Nearly as many as one text may have.
MANY_VALUES = 1_999_000


def large_frame(kind: str) -> bytes:
    """A frame of the largest size that is taken."""
    empty = encode({"source": "morva-chat", "kind": "getStatus", "chromeRequestId": 7, "pad": ""})
    room = LARGEST_BODY - (len(empty) - 4)
    if kind == "one text":
        pad = b'"' + b"x" * room + b'"'
    else:
        objects = b",".join([b"{}"] * MANY_VALUES)
        pad = b"[" + objects + b"]"
        pad += b" " * (room + 2 - len(pad))
    body = empty[4:].replace(b'"pad":""', b'"pad":' + pad)
    assert len(body) == LARGEST_BODY
    return len(body).to_bytes(4, "little") + body


def measure_memory(results: Results, side: Side, quick: bool) -> None:
    with start(side, HOST) as host, start(side, ECHO) as echo:
        results.add(Row(side.name, "peak memory, idle", f"host {host.peak_memory_mib():.1f} MiB, "
                        f"baseline {echo.peak_memory_mib():.1f} MiB"))
    for kind in ("one text", "[{},{},... and blanks"):
        frame = large_frame(kind)
        peaks, times = {}, {}
        for name in (HOST, ECHO):
            with start(side, name) as program:
                begin = time.perf_counter()
                program.send(frame)
                program.read_frame()
                times[name] = time.perf_counter() - begin
                peaks[name] = program.peak_memory_mib()
        figures = ", ".join(f"{who} {peaks[name]:.0f} MiB ({times[name]:.2f} s)"
                            for who, name in (("host", HOST), ("baseline", ECHO)))
        results.add(Row(side.name, f"peak memory, 16 MiB frame, {kind}", figures))
