#!/usr/bin/env python3
"""Lets everything happen at once, at random, for a while: ./dev soak --minutes N [--seed S]
Ends the host at random moments of it: ./dev ends [N] [--seed S], also after a soak with --ends N.

Turns, stops, tool calls, uploads, events, voice and small messages come from many threads; the
agent crashes and comes back; the host's input is closed in the midst of it, what it still says is
read late, and a new host takes over, as when the extension is loaded anew. Every reply must come
once, every event once, every turn end once, every host end in order; and at rest a host must have
the memory, threads and handles that it had before.

The seed chooses what is done and when; what the threads then make of it differs from run to run.
"""

from __future__ import annotations

import argparse
import contextlib
import os
import random
import shutil
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--minutes", type=float, default=2)
    parser.add_argument("--ends", type=int, default=0)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--build", default="windows", choices=("windows", "asan", "tsan", "native"))
    parser.add_argument("--junit", type=Path)
    return parser.parse_args()


options = arguments()
os.environ["MORVA_HOST_BUILD"] = options.build  # read when the modules below are loaded
sys.path[:0] = [str(ROOT), str(ROOT / "tests" / "system"), str(ROOT / "tools")]

import curves  # noqa: E402
import junit  # noqa: E402
from actions import ACTIONS, ACTORS, begin_turn  # noqa: E402
from ends import Ends  # noqa: E402
from gauges import Gauges  # noqa: E402
from judgement import growths, verdicts  # noqa: E402
from ledger import Record  # noqa: E402
from life import Life  # noqa: E402
from support import builds  # noqa: E402
from support.sanitizer_reports import sanitizer_environment, take_reports  # noqa: E402
from support.tool_server_client import WorkFolder  # noqa: E402
from support.tool_server_fixtures import empty, roaming_folder  # noqa: E402
from support.waiting import until  # noqa: E402

from devkit.panel.host_process import HostError, HostProcess  # noqa: E402
from devkit.panel.standin_process import StandInProcess  # noqa: E402

# Slow enough for a stop or a crash to fall into a turn.
AGENT = ["--port", "8090", "--tokens-per-second", "400"]
SHORTEST_KEPT = 10  # minutes of a run whose figures do not give way to a test's
FIRST_LIFE = 0.75  # of all the time
SHORT_LIFE_S = (1.0, 5.0)
FEWEST_LIVES = 3
FEWEST_SAMPLES = 5
LONGEST_EXTRA_S = 240.0  # for a machine that is too slow to show everything in time
BUSY_S = (1.5, 3.5)  # between two rests
BUSY_PER_LOOK = 4  # how many times as long as it waits for a look a patient run is busy before
AGENT_AWAY_S = (0.0, 1.5)
STOPPED_AFTER_S = (0.0, 0.1)
LATE_S = (0.0, 0.5)  # how long after its end a host's last words may be read
LAST_WORDS = 1000  # more than a pipe takes answers
STOP_REACHES_S = 1.0  # so long after a "stop" the agent may still cancel what runs


class Run:
    def __init__(self):
        self.random = random.Random(options.seed)
        self.prefix = builds.wine_prefix()
        self.scratch = Path(tempfile.mkdtemp(prefix="morva-soak-"))
        self.folders = {}
        for name in () if self.prefix else ("APPDATA", "LOCALAPPDATA"):
            (self.scratch / name).mkdir()
            self.folders[name] = str(self.scratch / name)
        self.work = WorkFolder(*roaming_folder(self.folders))
        empty(self.work.local)
        self.record = Record()
        self.gauges = Gauges(self.prefix, self.scratch, options.minutes >= SHORTEST_KEPT)
        self.agent = StandInProcess(AGENT)
        self.start_agent()
        self.lives = self.crashes = 0
        self.samples = []  # (life, its age, what the gauges say)
        self.deadline = time.monotonic() + options.minutes * 60

    def close(self):
        self.agent.kill()
        self.gauges.close()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def left(self):
        return self.deadline - time.monotonic()

    # --- Lives ---

    def all_lives(self):
        """The first is long, so that there is something to watch; then they come as they come. On a
        slow machine the first lasts until there is, and others follow all the same."""
        self.live(self.left() * FIRST_LIFE, rests=True)
        while (self.left() > 0 or self.lives < FEWEST_LIVES) and not self.record.faults:
            if self.left() < 30 or self.random.random() < 0.75:
                self.live(self.random.uniform(*SHORT_LIFE_S), rests=False)
            else:
                self.live(self.random.uniform(5.0, max(5.0, self.left())), rests=True)

    def begin_life(self, environment, actors, preset):
        self.lives += 1
        environment = {**self.folders, **sanitizer_environment(), **self.gauges.environment,
                       **environment}
        host = HostProcess(builds.BUILD, None, environment, self.prefix, builds.PROGRAM).start()
        return Life(self.lives, options.seed, host, self.agent, self.work, self.record, actors,
                    preset)

    def live(self, seconds, rests):
        life = self.begin_life({}, ACTORS, "plain")
        began = time.monotonic()
        end = began + seconds
        rest_at = 0.0
        try:
            while not self.record.faults and (time.monotonic() < end or self.wants_more()):
                self.be_busy(life, end)
                if rests and time.monotonic() >= rest_at:
                    life.rest(lambda: self.look(life, began))
                    rest_at = time.monotonic() + BUSY_PER_LOOK * self.gauges.patience
        except Exception as failure:  # the run ends with what is known so far
            life.ledger.fault(f"{type(failure).__name__} {failure}")
        self.end_life(life, self.random.uniform(*LATE_S), LAST_WORDS)

    def look(self, life, began):
        gauges = self.gauges.look(life.host.pid)
        self.samples.append((life.number, time.monotonic() - began, gauges))
        seen = ", ".join(f"{value:.4g} {what}" for what, value in gauges.items())
        print(f"{options.minutes * 60 - self.left():6.0f} s: host {life.number} has {seen}")

    def wants_more(self):
        """The first host has not shown enough yet, and there is still patience."""
        return self.lives == 1 and self.left() > -LONGEST_EXTRA_S and (
            len(self.record.times) < len(ACTIONS) or len(self.samples) < FEWEST_SAMPLES
            or not self.crashes)

    def be_busy(self, life, end):
        """Some seconds of everything, with a crash or a stop in most of them."""
        seconds = self.random.uniform(*BUSY_S)
        if (left := end - time.monotonic()) > 0:
            seconds = min(seconds, left)
        before = seconds * self.random.random()
        time.sleep(before)
        disturb = self.random.choice(
            [self.crash_agent, self.crash_agent, self.stop_turns, self.stop_turns, None])
        if disturb:
            self.record.disturbed_until = float("inf")
            disturb(life)
            self.record.disturbed_until = time.monotonic()
        time.sleep(seconds - before)

    def start_agent(self):
        def starts():  # its port may be a moment late to be free
            with contextlib.suppress(RuntimeError):
                return self.agent.__enter__()

        until(starts, "the agent does not start")

    def crash_agent(self, _):
        self.crashes += 1
        self.agent.kill()
        time.sleep(self.random.uniform(*AGENT_AWAY_S))
        self.start_agent()

    def stop_turns(self, life):
        """Those that run, and one that has just begun: however far it has come."""
        self.record.counts["stops"] += 1
        begun, _ = begin_turn(life, self.random, "")
        time.sleep(self.random.uniform(*STOPPED_AFTER_S))
        life.ask("stop")
        life.ledger.wait(begun)
        time.sleep(STOP_REACHES_S)

    def end_life(self, life, late_seconds, last_words, killed=False):
        try:
            code = life.end(late_seconds, last_words, killed)
            if code != 0:
                life.ledger.fault(f"ended with {code}: {life.host.stderr[-2000:]}")
        except HostError as error:
            life.ledger.fault(str(error))
            life.host.kill()
        torn = "" if killed else life.host.stream_fault
        for text in filter(None, [torn, take_reports()[:20_000]]):
            life.ledger.fault(text)


def print_times(record):
    print("action              done  median ms longest ms agent away     failed")
    for name in ACTIONS:
        times = sorted(record.times[name]) or [0]
        print(f"{name:<16}{len(record.times[name]):>8}{times[len(times) // 2]:>11.0f}"
              f"{times[-1]:>11.0f}{record.refused[name]:>11}{record.unexpected[name]:>11}")


def main():
    print(f"soak of {options.build}, {options.minutes:g} minutes, {options.ends} ends,"
          f" seed {options.seed}", flush=True)
    run = Run()
    ends = Ends(run, options.ends) if options.ends else None
    try:
        if options.minutes:
            run.all_lives()
        if ends:
            ends.all()
    finally:
        run.close()
    found = verdicts(options.build, run.record, run.samples, run.lives, run.crashes)
    if not options.minutes:
        del found["everything happened"]  # the table shows what did
    print_times(run.record)
    if options.minutes >= SHORTEST_KEPT:
        curves.keep(options.build, run.samples)
    if ends:
        ends.print_times()
        found |= ends.verdicts()
    print(f"{run.lives} hosts, {run.crashes} crashes of the agent, {dict(run.record.counts)}")
    print("at rest, early and late in the life of a host:", *growths(run.samples), sep="\n")
    for subject, wrong in found.items():
        print("\n          ".join([f"{'FAILED' if wrong else 'ok    '}  {subject}", *wrong[:20]]))
    if options.junit:
        junit.write(options.junit, "soak", found)
    return 1 if any(found.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
