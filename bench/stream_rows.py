"""Streams: from the agent's socket through the host to the panel, next to the least program."""

from __future__ import annotations

import contextlib
import re
import statistics
import subprocess
import sys
import time
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

import event_source
from driven_program import BROWSER_ARGUMENTS, DrivenProgram, ProgramError, Side, encode
from results import Results, Row, percentile

KINDS = {"packet": "one event per packet", "chunk": "all in one chunk"}
STAMP = re.compile(rb"\d{%d}" % event_source.STAMP_DIGITS)


@dataclass(frozen=True)
class Streamer:
    """How a program is told to stream, and how its answer looks."""

    program: str
    arguments: tuple[str, ...]
    event: bytes  # in each frame that carries one
    end: bytes  # of the last frame
    success: bytes  # in the last frame


HOST = Streamer(
    "morva-chrome-host", BROWSER_ARGUMENTS, b'"method":"appendAssistantDelta"',
    b'"method":"agentDone"}],"kind":"hostChatEvents","source":"morva-chat"}', b',true,""],',
)
BASELINE = Streamer(
    "baseline_stream", (str(event_source.PORT),), b'"object":"chat.completion.chunk"',
    b'{"method":"baselineDone"}', b"",
)
STREAMERS = {"host": HOST, "baseline": BASELINE}


@contextlib.contextmanager
def running_source() -> Iterator[None]:
    source = subprocess.Popen(
        [sys.executable, str(Path(event_source.__file__))], stdout=subprocess.PIPE
    )
    try:
        if source.stdout.readline() != b"ready\n":
            raise SystemExit("the event source did not start")
        yield
    finally:
        source.kill()
        source.wait()
        source.stdout.close()


def order(what: str) -> bytes:
    return encode({"source": "morva-chat", "kind": "send", "prompt": f"bench:{what}",
                   "preset": "bench", "chromeRequestId": 1})


def check(streamer: Streamer, output: bytes, count: int) -> None:
    came = output.count(streamer.event)
    if came != count or streamer.success not in output[-400:]:
        raise ProgramError(f"{streamer.program}: {came} of {count} events; {output[-400:]!r}")


@contextlib.contextmanager
def both(side: Side) -> Iterator[dict[str, DrivenProgram]]:
    with contextlib.ExitStack() as stack:
        yield {who: stack.enter_context(DrivenProgram(side, each.program, each.arguments))
               for who, each in STREAMERS.items()}


@dataclass
class Cost:
    """Of one turn, or of several together."""

    wall_s: float = 0.0  # from the request's frame to the last frame
    cpu_s: float = 0.0  # of the program alone


def stream_cost(program: DrivenProgram, streamer: Streamer, kind: str, count: int,
                turns: int = 1) -> Cost:
    cost = Cost()
    cpu = program.cpu_s()
    for _ in range(turns):
        begin = time.perf_counter()
        program.send(order(f"{kind}:{count}"))
        output = program.read_until(streamer.end)
        cost.wall_s += time.perf_counter() - begin
        check(streamer, output, count)
    cost.cpu_s = program.cpu_s() - cpu
    return cost


def measure_streams(results: Results, side: Side, quick: bool) -> None:
    many, repetitions = (20_000, 3) if quick else (100_000, 5)
    few = many // 10
    with running_source(), both(side) as programs:
        for kind, meaning in KINDS.items():
            for who, streamer in STREAMERS.items():
                stream_cost(programs[who], streamer, kind, few)  # warms up
            costs: dict[str, list[Cost]] = {"host": [], "baseline": [], "ten short ones": []}
            for _ in range(repetitions):
                for who, streamer in STREAMERS.items():
                    costs[who].append(stream_cost(programs[who], streamer, kind, many))
                # As many events in all, so that a disturbance is as likely to hit these.
                costs["ten short ones"].append(
                    stream_cost(programs["host"], HOST, kind, few, turns=10))
            for what, seen in costs.items():
                results.samples[f"{side.name}: {many} events, {meaning}: {what}"] = [
                    cost.wall_s for cost in seen]
            add_stream_rows(results, side, meaning, costs, many)


def add_stream_rows(results: Results, side: Side, meaning: str, costs: dict[str, list[Cost]],
                    many: int) -> None:
    wall = {what: statistics.median(cost.wall_s for cost in seen) for what, seen in costs.items()}
    cpu = {what: statistics.median(cost.cpu_s for cost in seen) for what, seen in costs.items()}
    shown = {what: f"{wall[what]:.2f} s (processor {cpu[what]:.2f} s)" for what in costs}
    # The worse of the two: while others keep the machine busy, waiting hides what the host costs.
    speed = min(seconds["baseline"] / seconds["host"] for seconds in (wall, cpu))
    results.add(Row(side.name, f"speed of {many:,} events, {meaning}",
                    f"host {shown['host']}, baseline {shown['baseline']}", speed, 0.5,
                    at_least=True))
    # By processor time, which others do not lengthen; work that grows with the square shows in it.
    growth = 10 * cpu["host"] / cpu["ten short ones"]
    results.add(Row(side.name, f"{many:,} events next to {many // 10:,}, {meaning}",
                    f"one turn {shown['host']}, ten short ones {shown['ten short ones']}",
                    growth, 12))


def latencies_us(program: DrivenProgram, streamer: Streamer, count: int,
                 micros: int) -> list[float]:
    """By event: from just before its write to the socket to just after reading its frame."""
    program.send(order(f"paced:{count}:{micros}"))
    seen: list[float] = []
    while True:
        frame = program.read_frame()
        now = time.monotonic_ns()
        if streamer.event in frame:
            seen.append((now - int(STAMP.search(frame)[0])) / 1e3)
        elif frame.endswith(streamer.end):
            break
    if len(seen) != count:
        raise ProgramError(f"{streamer.program}: {len(seen)} of {count} events")
    return seen


def measure_latency(results: Results, side: Side, quick: bool) -> None:
    rounds = 2 if quick else 8
    seen: dict[str, list[float]] = {who: [] for who in STREAMERS}
    with running_source(), both(side) as programs:
        for _ in range(rounds):
            for who, streamer in STREAMERS.items():
                seen[who] += latencies_us(programs[who], streamer, 250, 2000)
    for who, values in seen.items():
        results.samples[f"{side.name}: token latency: {who}"] = [each / 1e6 for each in values]
    figures = ", ".join(f"{who} median {statistics.median(values):.0f} us, "
                        f"p99 {percentile(values, .99):.0f} us" for who, values in seen.items())
    ratio = statistics.median(seen["host"]) / statistics.median(seen["baseline"])
    results.add(Row(side.name, "one token, agent's socket to panel frame", figures, ratio))
