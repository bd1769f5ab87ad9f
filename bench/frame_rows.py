"""Start, frames there and back, idling and memory of whole programs."""

from __future__ import annotations

import json
import time

from call_rows import own_folder, server_of
from pages import page
from programs import (
    HOST, LEAST, PEERS, DrivenProgram, ProgramError, Side, encode, in_turns, load, one_core, status)
from results import Results

IN_FLIGHT = 64
LARGEST_BODY = 16 * 1024 * 1024
MANY_VALUES = 1_999_000  # nearly as many as one text may have
IDLE_S = 15


def acknowledged(who: str, frame: bytes, reply: bytes) -> None:
    """The right reply has the request's id; the least program's is the frame itself."""
    sent = json.loads(frame[4:])
    wanted = sent if who == LEAST else {
        "source": "morva-chat", "kind": "ack", "ok": True,
        "chromeRequestId": sent["chromeRequestId"]}
    if json.loads(reply) != wanted:
        raise ProgramError(f"{who}: unexpected reply: {reply[:300]!r}")


def measure_start(results: Results, side: Side, quick: bool) -> None:
    def first_reply(who: str) -> list[float]:
        with side.start(who, first=status()) as program:
            acknowledged(who, status(), program.first_reply)
            return [program.first_reply_s]

    with one_core():
        results.add(side.name, "start",
                    in_turns([HOST, LEAST, *PEERS], 10 if quick else 60, first_reply))


def measure_idle_memory(results: Results, side: Side, _: bool) -> None:
    """While the server listens. The least program before its first frame is the empty one; for the
    peers, which run natively, a native one."""
    native = Side("native", side.tools.parent, side.tools)
    seen: dict[str, list[float]] = {}
    with own_folder(side) as own:
        for who in (HOST, *PEERS):
            with own.start(who) as program, (side if who == HOST else native).start(LEAST) as empty:
                server_of(program)
                time.sleep(2)
                seen[who] = [program.own_memory_mb() - empty.own_memory_mb()]
    results.add(side.name, "idle", seen)


def there_and_back(programs: dict[str, DrivenProgram], value: object,
                   rounds: int) -> dict[str, list[float]]:
    frame = status(value)

    def sample(who: str) -> list[float]:
        begin = time.perf_counter()
        programs[who].send(frame)
        reply = programs[who].read_frame()
        took = time.perf_counter() - begin
        acknowledged(who, frame, reply)
        return [took]

    in_turns(programs, 2, sample)  # warms up
    return in_turns(programs, rounds, sample)


def per_frame(side: Side, programs: dict[str, DrivenProgram], flight: int, count: int,
              rounds: int) -> dict[str, list[float]]:
    frame = status("x" * 135)  # a body of 200 bytes

    def sample(who: str) -> list[float]:
        times, reply = load(side, "frames", count, flight, files=(frame,), program=programs[who])
        acknowledged(who, frame, reply)
        return [each / count for each in times]

    in_turns(programs, 1, sample)  # warms up
    return in_turns(programs, rounds, sample)


def measure_frames(results: Results, side: Side, quick: bool) -> None:
    rounds = 3 if quick else 15
    with one_core(), side.everybody("least_echo") as programs:
        results.add(side.name, "frame", per_frame(side, programs, 1, 2_000, rounds))
    with side.everybody("least_echo") as programs:
        flight = per_frame(side, programs, IN_FLIGHT, 5_000 if quick else 50_000, rounds)
        results.add(side.name, "flight", {
            who: [1 / each for each in values] for who, values in flight.items()})
        for key, value in (("text", "x" * 1_000_000), ("model 64 KB", page(64_000)),
                           ("model 1 MB", page(1_000_000))):
            results.add(side.name, key, there_and_back(programs, value, 5 if quick else 25))


def measure_frame_memory(results: Results, side: Side, _: bool) -> None:
    """A frame of the largest size that is taken, of nearly as many values as are taken."""
    body = status([])[4:]
    objects = b",".join([b"{}"] * MANY_VALUES)
    before, after = body.replace(b":[]", b":7").rsplit(b"}", 1)[0], b"]}"
    body = before + b',"pad":[' + objects
    body += b" " * (LARGEST_BODY - len(body) - len(after)) + after
    seen = {}
    for who in (HOST, LEAST, *PEERS):
        with side.start(who, first=status()) as program:
            program.send(len(body).to_bytes(4, "little") + body)
            program.read_frame()
            seen[who] = [program.peak_memory_mb()]
    results.add(side.name, "frame memory", seen)


def measure_idle(results: Results, side: Side, quick: bool) -> None:
    """How often the host's threads sleep again; the watchdog begins with the first message."""
    with side.start(HOST, first=encode({"source": "morva-chat", "kind": "ready"})) as host:
        results.add(side.name, "wake-ups", {HOST: [wake_ups(host, quick)]})


def wake_ups(program: DrivenProgram, quick: bool) -> int:
    """How often threads of a program sleep again that has nothing to do."""
    time.sleep(2)
    before = program.sleeps()
    time.sleep(6 if quick else IDLE_S)
    return sum(count - before.get(thread, 0) for thread, count in program.sleeps().items())
