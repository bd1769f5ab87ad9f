#!/usr/bin/env python3
"""Changes the sources in small ways, one at a time, and reports which changes no test notices.

./dev mutants [N] [--seed S] tries N changes at random (default 40), on as many workers as there are
processors, at most two. What the tests reach is measured first, and remembered until a source or a
test changes. docs/testing.md says how to read the result.
"""

import argparse
import json
import os
import queue
import random
import shutil
import subprocess
import sys
import threading
import time
from collections import Counter
from dataclasses import asdict, fields
from pathlib import Path

import mutations
from mutations import Mutation
from reach import Reach, content_key

ROOT = Path(__file__).resolve().parents[2]
RESULTS = ROOT / "build" / "mutants"
VERDICTS = ("killed", "lived", "does not compile", "gone")


# The copy is mounted over the project itself, for that process only: so all paths are the same, and
# the compiler cache knows what it has compiled for the project and for the other copy.
ENTER = 'mount --bind "$1" "$2" && cd "$2" && exec "$3" tools/mutants/native_tests.py'


def take_over(folder):
    """Makes a copy of the project, without what was built; what is the same keeps its time."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT,
                            stdout=subprocess.PIPE, text=True, check=True).stdout.splitlines()
    wanted = {name for name in listed if (ROOT / name).is_file()}
    for path in list(folder.glob("**/*")):
        name = path.relative_to(folder).as_posix()
        if path.is_file() and not name.startswith("build/") and name not in wanted:
            path.unlink()
    for name in wanted:
        copy, own = folder / name, ROOT / name
        if not copy.exists() or copy.read_bytes() != own.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(own, copy)
    shutil.copytree(ROOT / "build" / "deps", folder / "build" / "deps", dirs_exist_ok=True)


class Worker:
    """A process with a network and a copy of the project of its own (see native_tests.py)."""

    def __init__(self, number):
        folder = RESULTS / f"worker-{number}"
        take_over(folder)
        self._process = subprocess.Popen(
            [ROOT / "tools" / "in-own-network", "unshare", "-m", "sh", "-c", ENTER, "sh", folder,
             ROOT, sys.executable],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self._asking = threading.Lock()

    def ask(self, order, **members):
        with self._asking:
            self._process.stdin.write(json.dumps({"order": order, **members}) + "\n")
            self._process.stdin.flush()
            answer = self._process.stdout.readline()
        if not answer:
            raise RuntimeError("a worker has ended")
        return json.loads(answer)

    def end(self):
        self._process.stdin.close()
        self._process.wait()


def at_once(tasks):
    """The results of calls, each made on a thread of its own."""
    results, failures = [None] * len(tasks), []

    def run(at, task):
        try:
            results[at] = task()
        except Exception as error:  # raised again where it is seen
            failures.append(error)

    threads = [threading.Thread(target=run, args=each) for each in enumerate(tasks)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if failures:
        raise failures[0]
    return results


def prepared(workers):
    print("== building", flush=True)
    for worker in workers:  # the second finds in the compiler cache what the first compiled
        if error := worker.ask("prepare")["error"]:
            sys.exit(f"{error}\nit does not build as it is")


def measured_reach(workers, texts):
    cache = RESULTS / f"reach-{content_key()}.json"
    if not cache.exists():
        print("== measuring which test reaches what", flush=True)
        levels = ("unit", "system")
        found = at_once([lambda level=level, worker=worker: worker.ask("measure", level=level)
                         for level, worker in zip(levels, (workers * 2)[:2])])
        points = workers[0].ask("points")
        tests = [{**test, "level": level} for level, part in zip(levels, found)
                 for test in part["tests"]]
        for old in RESULTS.glob("reach-*.json"):
            old.unlink()
        cache.write_text(json.dumps({"points": points, "tests": tests}))
    known = json.loads(cache.read_text())
    tests = merged(known["tests"])
    failed = [test["test"] for test in tests if not test["passed"]]
    print(f"   {len(tests)} tests; not used, as they fail as it is: {', '.join(failed) or 'none'}")
    points = {program: [point and tuple(point) for point in listed]
              for program, listed in known["points"].items()}
    return Reach(points, tests, texts)


def merged(tests):
    """A test that ran beside the others is noted twice: once as run, once as waited for."""
    found = {}
    for test in tests:
        first = found.setdefault(test["test"], test)
        if first is not test:
            first["passed"] = first["passed"] and test["passed"]
            first["seconds"] = max(first["seconds"], test["seconds"])
            for program, numbers in test["reached"].items():
                first["reached"][program] = first["reached"].get(program, []) + numbers
    return list(found.values())


class Trial:
    """Tries mutations on all workers until enough of them compiled."""

    def __init__(self, workers, reach, texts, candidates, wanted):
        self._workers, self._reach, self._texts = workers, reach, texts
        self._candidates = iter(candidates)
        self._waiting, self._lock = queue.SimpleQueue(), threading.Lock()
        self.outcomes = []  # (place in the order, Mutation, result)
        self._placed = 0
        for _ in range(wanted):
            self._place_next()

    def _place_next(self):
        mutation = next(self._candidates, None)
        if mutation is not None:
            self._waiting.put((self._placed, mutation))
            self._placed += 1

    def run(self):
        at_once([lambda worker=worker: self._work(worker) for worker in self._workers])
        return [(mutation, result) for _, mutation, result in sorted(
            self.outcomes, key=lambda outcome: outcome[0])]

    def _work(self, worker):
        while True:
            try:
                place, mutation = self._waiting.get_nowait()
            except queue.Empty:
                return
            began = time.monotonic()
            result = self._try(worker, mutation)
            result["seconds"] = round(time.monotonic() - began, 1)
            with self._lock:
                self.outcomes.append((place, mutation, result))
                if result["verdict"] == "does not compile":
                    self._place_next()
                print(f"   {place + 1:>3} {described(mutation, result)}", flush=True)

    def _try(self, worker, mutation):
        place = mutations.find(mutation, self._texts)
        if place is None:
            return {"verdict": "gone"}
        path, number = place
        tests = [self._reach.tests[name] for name in self._reach.tests_for(path, number + 1)]
        by_level = {level: [(test["test"], test["seconds"]) for test in tests
                            if test["level"] == level] for level in ("unit", "system")}
        result = worker.ask("attempt", path=path, **by_level,
                            text=mutations.mutated(self._texts[path], number, mutation))
        return {**result, "at": f"{path}:{number + 1}", "tests": len(tests)}


def described(mutation, result):
    place = result.get("at", mutation.path)
    change = f"{place}: {mutation.line}  =>  {mutation.changed_line}"
    how = f" ({result['how']}: {result['by']})" if "by" in result else ""
    return f"{result['verdict']:<8} {result['seconds']:>5} s  {change}{how}"


def print_table(outcomes):
    counts = Counter((mutation.kind, result["verdict"]) for mutation, result in outcomes)
    shown = [verdict for verdict in VERDICTS if any(key[1] == verdict for key in counts)]
    print(f"\n{'change':<12}" + "".join(f"{verdict:>18}" for verdict in shown))
    for kind in sorted({key[0] for key in counts}):
        print(f"{kind:<12}" + "".join(f"{counts[kind, verdict]:>18}" for verdict in shown))
    print(f"{'all':<12}" + "".join(
        f"{sum(counts[key] for key in counts if key[1] == verdict):>18}" for verdict in shown))
    for verdict in ("lived", "gone"):
        for mutation, result in outcomes:
            if result["verdict"] == verdict:
                print(described(mutation, result))


def as_json(outcomes, seed):
    return json.dumps({"seed": seed, "mutants": [{**asdict(mutation), **result}
                                                 for mutation, result in outcomes]}, indent=1)


def print_escaped(outcomes, before):
    """What the tests noticed before and do not notice now."""
    killers = {Mutation(**{each.name: known[each.name] for each in fields(Mutation)}): known["by"]
               for known in json.loads(before.read_text())["mutants"] if "by" in known}
    for mutation, result in outcomes:
        if result["verdict"] == "lived" and mutation in killers:
            print(f"noticed before by {killers[mutation]}: {described(mutation, result)}")


def parsed_arguments():
    parser = argparse.ArgumentParser(prog="./dev mutants", description=__doc__.splitlines()[0])
    parser.add_argument("count", nargs="?", type=int, default=40, metavar="N")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--outside-platform", action="store_true",
                        help="change nothing below src/platform")
    parser.add_argument("--save", type=Path, help="write the list of changes to this file")
    parser.add_argument("--from", type=Path, dest="list", help="try the changes of such a list")
    parser.add_argument("--before", type=Path, help="an earlier result to compare with")
    return parser.parse_args()


def main():
    options = parsed_arguments()
    texts = mutations.sources(ROOT)
    if options.list:
        candidates = [Mutation(**each) for each in json.loads(options.list.read_text())]
        options.count = len(candidates)
    else:
        candidates = mutations.shuffled(texts, options.seed)
        if options.outside_platform:
            candidates = mutations.outside_platform(candidates)
    RESULTS.mkdir(parents=True, exist_ok=True)
    workers = [Worker(number) for number in range(1, min(2, os.cpu_count()) + 1)]
    try:
        prepared(workers)
        reach = measured_reach(workers, texts)
        chosen = options.list or f"seed {options.seed}"
        print(f"== trying {options.count} changes, {chosen}", flush=True)
        outcomes = Trial(workers, reach, texts, candidates, options.count).run()
    finally:
        for worker in workers:
            worker.end()
    tried = [each for each in outcomes if options.list or each[1]["verdict"] != "does not compile"]
    print_table(tried)
    if options.before:
        print_escaped(tried, options.before)
    (RESULTS / "results.json").write_text(as_json(tried, options.seed))
    if options.save:
        options.save.write_text(json.dumps([asdict(mutation) for mutation, _ in tried], indent=1))


if __name__ == "__main__":
    main()
