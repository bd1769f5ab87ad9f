#!/usr/bin/env python3
"""Builds and runs the test suites: tools/run_tests.py [WHAT...] [BUILD...] [OPTIONS...]

WHAT is any of unit, system, browser, package, soak, torture, fuzz, lint, tools (all when none is
named), BUILD any of windows, asan, tsan, coverage, conditions. The first word that is neither
begins the options, which go to the runner of the suite (ctest for unit and fuzz, pytest for system,
browser, package and tools). One suite alone prints as it runs; several run three at a time, each in
a network and a Wine prefix of its own, and print when they end.

Every runner writes JUnit XML to build/test; the last line counts what is in it:
"N passed, N failed" and ", N skipped" when there are any.
"""

import os
import shutil
import signal
import subprocess
import sys
import threading
import time
import xml.etree.ElementTree as ElementTree
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
RESULTS = ROOT / "build" / "test"
PYTHON = "/usr/bin/python3"
WHATS = ("unit", "system", "browser", "package", "soak", "torture", "fuzz", "lint", "tools")
BUILDS = ("windows", "asan", "tsan", "coverage", "conditions")
DEFAULT_BUILDS = ("windows", "asan", "tsan")
SOAK_BUILDS = ("windows", "tsan")  # what is released, and what watches the threads
# All but "agent", each run of which takes half a second.
TORTURE_SAMPLE = ["turn", "upload", "file", "pipe", "voice", "voice-end", "start", "register",
                  "mcp", "--here", "--every", "7"]
SUITE_TIMEOUT_SECONDS = 1200
MOST_SHOWN_FAILURES = 10  # of one suite, each with the last lines of what it said
SHOWN_LINES = 60
LANES = (0, 0, -1)  # suites at a time, by the end of the queue that each comes from


@dataclass
class Suite:
    """One run of one runner, and what came of it."""

    name: str
    command: list
    build: str = ""  # the preset that it needs
    wine: bool = False
    screen: bool = False
    network: bool = True
    results: list = field(default_factory=list)  # (verdict, name of the test, what it said)
    problem: str = ""
    seconds: float = 0.0

    @property
    def file(self):
        """What its results and its log are called, without the ending."""
        return RESULTS / self.name.replace(" ", "-")

    @property
    def xml(self):
        return self.file.with_suffix(".xml")

    @property
    def log(self):
        return self.file.with_suffix(".log")

    @property
    def counts(self):
        """A runner that failed without a failed test counts as one failure."""
        counts = Counter(verdict for verdict, _, _ in self.results)
        if self.problem and not counts["failed"]:
            counts["failed"] = 1
        return counts


# --- Which suites there are ---

def with_ctest(name, build, label, options):
    suite = Suite(name, [], build, wine=build == "windows", screen=build == "windows",
                  network=label != "fuzz")
    suite.command = [
        "ctest", "--test-dir", ROOT / "build" / build, "-L", label, f"-j{os.cpu_count()}",
        "--output-on-failure", "--no-tests=error", "--output-junit", suite.xml, *options]
    return suite


def with_pytest(name, options, *paths, **members):
    suite = Suite(name, [], **members)
    suite.command = [
        PYTHON, "-m", "pytest", *(ROOT / path for path in paths), "-v", f"--junitxml={suite.xml}",
        "-o", f"cache_dir={suite.file}-cache", *options]
    return suite


def with_script(name, script, options, **members):
    suite = Suite(name, [], **members)
    suite.command = [PYTHON, ROOT / script, "--junit", suite.xml, *options]
    return suite


def system_suites(build, options):
    """Under Wine it takes longest, so there two halves run beside each other."""
    if build != "windows" or options:
        return [with_pytest(f"system {build}", options, "tests/system", build=build,
                            wine=build == "windows")]
    files = sorted((ROOT / "tests" / "system").glob("test_*.py"))
    return [with_pytest(f"system {build} {half + 1}", [], *files[half::2], build=build, wine=True)
            for half in range(2)]


def wanted_suites(whats, builds, options):
    """Those that mostly wait first, those that mostly compute last (see run_lane)."""
    soaked = SOAK_BUILDS if tuple(builds) == DEFAULT_BUILDS else builds
    makers = {
        "soak": lambda: [with_script(f"soak {build}", "tests/soak/soak.py",
                                     ["--build", build, "--minutes", "1", "--ends", "6", *options],
                                     build=build, wine=build == "windows") for build in soaked],
        "system": lambda: [suite for build in builds for suite in system_suites(build, options)],
        # The Windows build in a real browser: what is released, where its users are.
        "browser": lambda: [with_pytest("browser", options, "tests/browser", build="windows",
                                        wine=True)],
        "package": lambda: [with_pytest("package", options, "tests/package", build="windows",
                                        wine=True)],
        # A sample; ./dev torture tries every place.
        "torture": lambda: [with_script("torture", "tests/torture/torture.py",
                                        options or TORTURE_SAMPLE, build="asan")],
        "tools": lambda: [with_pytest("tools", options, "tools/tests", "tests/soak",
                                      network=False)],
        "lint": lambda: [with_script("lint", "tools/lint.py", options, network=False)],
        # Of the build that has the tests besides, so that nothing is built twice.
        "fuzz": lambda: [with_ctest("fuzz", "asan", "fuzz", options)],
        "unit": lambda: [with_ctest(f"unit {build}", build, "unit", options) for build in builds],
    }
    return [suite for what, make in makers.items() if what in whats for suite in make()]


# --- Running ---

def suite_environment(suite):
    environment = dict(os.environ, WINEDLLOVERRIDES="mscoree,mshtml=", PYTHONDONTWRITEBYTECODE="1",
                       ASAN_OPTIONS="detect_stack_use_after_return=1:check_initialization_order=1",
                       LSAN_OPTIONS=f"suppressions={ROOT}/tools/leaks.supp:print_suppressions=0",
                       UBSAN_OPTIONS="print_stacktrace=1",
                       TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1")
    if suite.build:
        environment["MORVA_HOST_BUILD"] = suite.build
    environment.setdefault("WINEDEBUG", "-all")
    if suite.wine:
        prefix = str(ROOT / "build" / "wine" / suite.file.name)
        environment.update(WINEPREFIX=prefix, MORVA_WINEPREFIX=prefix)
    return environment


def run_suite(suite, live):
    suite.xml.unlink(missing_ok=True)
    command = [ROOT / "tools" / "in-own-network"] * suite.network
    command += [ROOT / "tools" / "with-screen"] * suite.screen
    command += [ROOT / "tools" / "with-wine-server"] * suite.wine
    # As long as it likes where somebody said how long to fuzz.
    limit = None if "MORVA_FUZZ_SECONDS" in os.environ else SUITE_TIMEOUT_SECONDS
    begin = time.monotonic()
    with open(suite.log, "wb") as log:
        process = subprocess.Popen(
            [*command, *suite.command], cwd=ROOT, env=suite_environment(suite),
            stdin=subprocess.DEVNULL, stdout=None if live else log,
            stderr=None if live else subprocess.STDOUT, start_new_session=True)
        try:
            exit_code = process.wait(limit)
        except subprocess.TimeoutExpired:
            suite.problem = f"still running after {limit} s"
            exit_code = end_session(process)
        except KeyboardInterrupt:
            end_session(process)
            raise
    suite.seconds = time.monotonic() - begin
    judge(suite, exit_code)


def end_session(process):
    """Ends the suite with everything that it started and that stayed in its session."""
    os.killpg(process.pid, signal.SIGTERM)
    try:
        return process.wait(10)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        return process.wait()


def read_results(xml):
    """(verdict, name, what it said) of each test of a JUnit file."""
    results = []
    for case in ElementTree.parse(xml).getroot().iter("testcase"):
        has = {child.tag for child in case}
        verdict = "failed" if has & {"failure", "error"} else \
            "skipped" if "skipped" in has else "passed"
        results.append((verdict, f"{case.get('classname')} {case.get('name')}",
                        "\n".join(case.itertext())))
    return results


def judge(suite, exit_code):
    try:
        suite.results = read_results(suite.xml)
    except (OSError, ElementTree.ParseError) as error:
        suite.problem = suite.problem or f"no results: {error}"
    counts = suite.counts
    if not suite.problem and counts["passed"] + counts["failed"] == 0:
        suite.problem = "ran no test"
    if not suite.problem and exit_code != 0 and not counts["failed"]:
        suite.problem = f"exit code {exit_code}"


class Queue:
    """Suites that wait for a lane and for the build that they need."""

    def __init__(self, suites):
        self.suites = list(suites)
        self.built = {""}  # what is needed by those that need no build
        self.changed = threading.Condition()

    def add_build(self, preset):
        with self.changed:
            self.built.add(preset)
            self.changed.notify_all()

    def clear(self):
        with self.changed:
            self.suites.clear()
            self.changed.notify_all()

    def take(self, end):
        """The next from that end whose build is there; None when none is left."""
        with self.changed:
            while self.suites:
                if ready := [suite for suite in self.suites if suite.build in self.built]:
                    self.suites.remove(ready[end])
                    return ready[end]
                self.changed.wait()
        return None


def run_lane(queue, end):
    """Takes suites from one end of the queue. One lane takes those that compute, and the others
    wait beside it, so that the machine is busy all the time and never crowded."""
    while suite := queue.take(end):
        print(f"   {suite.name} ...", flush=True)
        run_suite(suite, live=False)
        with queue.changed:  # what is said of one stays together
            print(("!! " if suite.counts["failed"] else "ok ") + result_line(suite), flush=True)
            print_failures(suite)


def build(preset):
    """False, after the compiler's own words, when it does not build."""
    begin = time.monotonic()
    if subprocess.run([ROOT / "dev", "build", preset], cwd=ROOT).returncode != 0:
        print(f"!! {preset} does not build", flush=True)
        return False
    print(f"   built {preset} in {time.monotonic() - begin:.1f} s", flush=True)
    return True


def build_all(presets, queue):
    for preset in presets:
        if not build(preset):
            queue.clear()
            return False
        queue.add_build(preset)
    return True


def run_suites(suites):
    """Runs each as soon as its build is there. False when one does not build."""
    presets = [preset for preset in BUILDS if preset in {suite.build for suite in suites}]
    if len(suites) == 1:
        is_built = build_all(presets, Queue([]))
        if is_built:
            run_suite(suites[0], live=True)
        return is_built
    queue = Queue(suites)
    lanes = [threading.Thread(target=run_lane, args=(queue, end), daemon=True) for end in LANES]
    for lane in lanes:
        lane.start()
    is_built = build_all(presets, queue)
    for lane in lanes:
        lane.join()
    return is_built


# --- What is said about it ---

def print_failures(suite):
    """What the failed tests said; the end of the log when none of them is known by name."""
    failed = [(name, text) for verdict, name, text in suite.results if verdict == "failed"]
    if suite.counts["failed"] and not failed:
        failed = [(suite.log.relative_to(ROOT), suite.log.read_text(errors="replace"))]
    for title, text in failed[:MOST_SHOWN_FAILURES]:
        print(f"-- {title}:")
        print("\n".join("   | " + line for line in text.splitlines()[-SHOWN_LINES:]), flush=True)


def summary(counts):
    text = f"{counts['passed']} passed, {counts['failed']} failed"
    return text + (f", {counts['skipped']} skipped" if counts["skipped"] else "")


def result_line(suite):
    return f"{suite.name:<18} {summary(suite.counts)}  ({suite.seconds:.1f} s)  {suite.problem}"


def parse(arguments):
    whats, builds, options = [], [], list(arguments)
    while options and options[0] in (*WHATS, *BUILDS):
        word = options.pop(0)
        (whats if word in WHATS else builds).append(word)
    if options and len(whats) != 1:
        sys.exit("options need exactly one of: " + " ".join(WHATS))
    return whats or list(WHATS), builds or list(DEFAULT_BUILDS), options


def main():
    suites = wanted_suites(*parse(sys.argv[1:]))
    shutil.rmtree(RESULTS, ignore_errors=True)
    RESULTS.mkdir(parents=True)
    begin = time.monotonic()
    if not run_suites(suites):
        print("0 passed, 1 failed")
        return 1
    print(f"\n== summary ({time.monotonic() - begin:.0f} s with building)")
    for suite in sorted(suites, key=lambda each: WHATS.index(each.name.split()[0])):
        print(result_line(suite))
    total = sum((suite.counts for suite in suites), Counter())
    print(summary(total))
    return 1 if total["failed"] else 0


if __name__ == "__main__":
    sys.exit(main())
