"""The host's end, at moments chosen at random while everything goes on: the end of its input, a
browser that is killed, an agent that is killed. It must end in order and soon, and leave nothing
behind. In one half of the ends the agent was found, in the other the host has started its own.
"""

from __future__ import annotations

import contextlib
import os
import statistics
import time
from collections import Counter

from actions import ACTORS, FOR_ANY_AGENT
from ledger import LifeOver
from support import builds
from support.cli_program import CliProgram
from support.sockets import listening
from support.waiting import until

INPUT, BROWSER, AGENT = "end of input", "kill of the browser", "kill of the agent"
LIMIT_S = 2.5
MOST_LATE = 0.005  # of all ends a busy machine may make so many late, and one of a few
GUARD_S = 4.4  # but none later than the host's own guard lets it be
LEFT_S = 1.0  # how long after the host's end its agent and its ports may still be there
MOMENT_S = 1.2  # an end comes at most so long after the start
LATE_S = 0.3  # a browser reads the last words so late
TOOL_PORTS, AGENT_PORTS = range(39270, 39280), range(8090, 8095)
MOST_FAULTS = 20  # with more there is nothing new to see
OWN_AGENT = {"words": 400, "tokens_per_second": 400, "lines": 300}


class Ends:
    """`run` has the folders, the found agent, the record, and lets a host live and end."""

    def __init__(self, run, count):
        self.run, self.random = run, run.random
        self.cli = CliProgram(run.scratch)
        self.kinds = [INPUT] * count + [BROWSER, AGENT] * max(1, count // 5)
        self.random.shuffle(self.kinds)
        self.times = {each: [] for each in (INPUT, BROWSER, AGENT)}
        self.left = Counter()

    def all(self):
        half = len(self.kinds) // 2
        for number, kind in enumerate(self.kinds):
            if number == half:
                self.run.agent.kill()
            self.end(kind, owned=number >= half)
            if len(self.run.record.faults) > MOST_FAULTS:
                break

    def end(self, kind, owned):
        run = self.run
        environment = self.cli.env(
            **OWN_AGENT, ready_after_ms=self.random.randrange(200)) if owned else {}
        actors = {name: ACTORS[name] for name in FOR_ANY_AGENT} if owned else ACTORS
        life = run.begin_life(environment, actors, preset="" if owned else "plain")
        if kind == AGENT and owned:
            until(self.cli.running, "the host starts no agent", 60)
        time.sleep(self.random.uniform(0, MOMENT_S))
        if kind == AGENT:
            run.record.disturbed_until = float("inf")
            self.kill_agent(owned)
            time.sleep(self.random.uniform(0, MOMENT_S))
            with contextlib.suppress(LifeOver):  # which is then a fault
                life.ask("getStatus")
        late, last_words = self.random.choice([0.0, LATE_S]), self.random.choice([0, 10, 1000])
        run.end_life(life, late, last_words, killed=kind == BROWSER)
        self.times[kind].append(life.took)
        if life.took > LIMIT_S:
            print(f"   host {life.number} took {life.took:.2f} s: {kind}, {owned=}, {late=},"
                  f" {last_words=}, load {os.getloadavg()[0]:.0f}", flush=True)
        self.look_for_what_is_left(life, owned)
        if kind == AGENT and not owned:
            run.start_agent()
        run.record.disturbed_until = time.monotonic()

    def kill_agent(self, owned):
        self.run.crashes += 1
        if not owned:
            self.run.agent.kill()
        for process in self.cli.running():
            process.kill()

    def look_for_what_is_left(self, life, owned):
        ports = [*TOOL_PORTS, *(AGENT_PORTS if owned else ())]
        for what, gone in (("its agent", lambda: not self.cli.running()),
                           ("a port", lambda: not listening(ports))):
            try:
                until(gone, what, LEFT_S)
            except AssertionError:
                self.left[what] += 1
                life.ledger.fault(f"leaves {what} behind")
                self.cli.end()

    def verdicts(self):
        limit, guard = LIMIT_S * builds.SLOWER, GUARD_S * builds.SLOWER
        took = [each for times in self.times.values() for each in times]
        late = [each for each in took if each > limit]
        too_many = len(late) > max(1, MOST_LATE * len(took)) or max(took, default=0) > guard
        return {
            f"ended within {limit:g} s": [f"{each:.2f} s" for each in late] * too_many,
            "its agent gone, its ports free": [f"{self.left}"] if self.left else [],
        }

    def print_times(self):
        print(f"{'':<22}count  median s  longest s  over {LIMIT_S} s")
        for kind, times in self.times.items():
            print(f"{kind:<22}{len(times):>5}{statistics.median(times or [0]):>10.2f}"
                  f"{max(times, default=0):>11.2f}"
                  f"{sum(took > LIMIT_S for took in times):>12}")
