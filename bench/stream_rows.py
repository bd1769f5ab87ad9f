"""Streams: from the agent's socket through a program to the panel."""

from __future__ import annotations

import contextlib
import json
import subprocess
import time
from collections.abc import Iterator

from programs import (
    HOST, LEAST, PEERS, DrivenProgram, ProgramError, Side, encode, in_turns, one_core)
from results import Results, growth

DELTA, LAST = b'"delta":', b'"agentDone"'
# Way, count and bytes of each event, and how often it is measured.
STREAMS = {"turn 10": ("each", 10_000, 0, 15), "turn 100": ("each", 100_000, 0, 5),
           "once": ("once", 100_000, 0, 5), "by byte": ("bytes", 1_000, 0, 5),
           "2 KB": ("once", 2_000, 2_000, 11), "event 1 MB": ("once", 1, 1_000_000, 15),
           "event 10 MB": ("once", 1, 10_000_000, 7)}
PACED = (250, 2000)  # events, microseconds between them


@contextlib.contextmanager
def event_source(side: Side) -> Iterator[None]:
    with subprocess.Popen([side.tools / "event_source"], stdout=subprocess.PIPE) as source:
        try:
            if source.stdout.readline() != b"ready\n":
                raise ProgramError("the event source did not start")
            yield
        finally:
            source.kill()


def order(way: str, count: int, size: int) -> bytes:
    return encode({"source": "morva-chat", "kind": "send", "prompt": f"bench:{way}:{count}:{size}",
                   "preset": "bench", "chromeRequestId": 1})


def texts(frame: bytes) -> list[str]:
    """The pieces of the answer in a frame of a host, or of the least program."""
    message = json.loads(frame)
    if "choices" in message:
        return [message["choices"][0]["delta"]["content"]]
    return [event["args"][0]["delta"] for event in message.get("events", [])
            if event["method"] == "appendAssistantDelta"]


def must_be_right(who: str, frames: list[bytes], count: int, size: int) -> None:
    came = "".join(text for frame in frames for text in texts(frame))
    if came != "".join(f"{number} ".ljust(size, "x") for number in range(count)):
        raise ProgramError(f"{who}: the text of {count} events is another; {frames[-1]!r}")


def turn_s(program: DrivenProgram, way: str, count: int, size: int, check: bool) -> float:
    begin = time.perf_counter()
    program.send(order(way, count, size))
    came, frames = program.read_past(LAST)
    if check:
        must_be_right(program.who, frames, count, size)
    elif sum(DELTA in frame for frame in frames) < count:
        raise ProgramError(f"{program.who}: not all of {count} events came")
    return came - begin


def measure_streams(results: Results, side: Side, quick: bool) -> None:
    seen = {}
    with event_source(side), side.everybody("least_stream") as programs:
        for key, (way, count, size, rounds) in STREAMS.items():
            for program in programs.values():
                turn_s(program, way, count, size, check=True)  # warms up
            times = in_turns(programs, 3 if quick else rounds, lambda who: [
                turn_s(programs[who], way, count, size, check=False)])
            seen[key] = times
            if key in ("turn 10", "turn 100", "once"):
                times = {who: [count / each for each in values] for who, values in times.items()}
            results.add(side.name, key, times)
    results.add(side.name, "event growth",
                {HOST: growth(seen["turn 10"][HOST], seen["turn 100"][HOST], 10)})


def measure_first_delta(results: Results, side: Side, quick: bool) -> None:
    """Of a new program: what it needs for its first request is in it."""
    def first_delta(who: str) -> list[float]:
        with side.start(who, "least_stream") as program:
            program.ask("getStatus")
            begin = time.perf_counter()
            program.send(order("once", 1, 0))
            came, _ = program.read_past(DELTA)
            program.read_past(LAST)
            return [came - begin]

    with one_core(), event_source(side):
        results.add(side.name, "first delta",
                    in_turns([HOST, LEAST, *PEERS], 5 if quick else 25, first_delta))


def measure_latency(results: Results, side: Side, quick: bool) -> None:
    """By event: from just before its write to the socket to just after reading its frame."""
    with one_core(), event_source(side), side.everybody("least_stream") as programs:
        def latencies(who: str) -> list[float]:
            program = programs[who]
            program.send(order("paced", *PACED))
            times: list[float] = []
            while LAST not in (frame := program.read_frame()):
                now = time.monotonic_ns()
                times += [(now - int(text)) / 1e9 for text in texts(frame)]
            if len(times) != PACED[0]:
                raise ProgramError(f"{who}: {len(times)} of {PACED[0]} events")
            return times

        results.add(side.name, "event", in_turns(programs, 2 if quick else 8, latencies))
