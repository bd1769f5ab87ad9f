#!/usr/bin/env python3
"""Builds and runs the test suites: tools/run_tests.py [WHAT...] [BUILD...] [OPTIONS...]

WHAT is any of unit, system, browser, package, soak, fuzz, lint, tools (all of them when none is
named), BUILD any of windows, asan, tsan, coverage. The first word that is neither begins the
options, which go to the runners of the suites (ctest for unit, pytest for system, browser and
package). One suite alone prints as it runs; several run three at a time, each in a network and a
Wine prefix of its own, and print when they end.

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
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
RESULTS = ROOT / "build" / "test"
PYTHON = "/usr/bin/python3"
WHATS = ("unit", "system", "browser", "package", "soak", "fuzz", "lint", "tools")
BUILDS = ("windows", "asan", "tsan", "coverage")
DEFAULT_BUILDS = ("windows", "asan", "tsan")
WINDOWS_BUILD = "windows"  # what browsers start and packages hold
FUZZ_BUILD = "asan"  # has the fuzz targets besides the tests, so that nothing is built twice
FUZZ_SECONDS = 5
# What comes from the browser and from the agent is cut and joined at any byte, all day long.
STREAM_TARGETS = ("frames", "event_splitter", "turn_stream")
STREAM_FUZZ_SECONDS = 20
SOAK_BUILDS = ("windows", "tsan")  # what is released, and what watches the threads
SOAK_MINUTES = 1
SUITE_TIMEOUT_SECONDS = 1200
MOST_SHOWN_FAILURES = 10  # of one suite, each with the last lines of what it said
SHOWN_LINES = 60
LANES = 3  # suites at a time: most of them wait more than they compute


@dataclass
class Suite:
    """One run of one runner, and what came of it."""

    name: str
    command: list
    wine: bool = False
    network: bool = True
    environment: dict = field(default_factory=dict)
    directories: list = field(default_factory=list)  # made before the start
    counts: dict = field(default_factory=dict)
    problem: str = ""
    seconds: float = 0.0

    @property
    def file_name(self):
        return self.name.replace(" ", "-")

    @property
    def xml(self):
        return RESULTS / f"{self.file_name}.xml"

    @property
    def log(self):
        return RESULTS / f"{self.file_name}.log"

    @property
    def failed(self):
        return self.counts.get("failed", 0) > 0 or bool(self.problem)


def unit_suite(build, options):
    suite = Suite(f"unit {build}", [], wine=build == "windows")
    suite.command = [
        "ctest", "--test-dir", str(ROOT / "build" / build), f"-j{os.cpu_count()}",
        "--output-on-failure", "--no-tests=error", "--output-junit", str(suite.xml), *options,
    ]
    if build == "tsan" and not options:
        suite.command += ["-E", "^Random/"]  # much computing by one thread
    return suite


def system_suite(build, options, name="", files=(ROOT / "tests" / "system",)):
    suite = Suite(f"system {name or build}", [], wine=build == "windows")
    suite.environment = {"MORVA_HOST_BUILD": build}
    suite.command = [
        PYTHON, "-m", "pytest", *map(str, files), "-v", f"--junitxml={suite.xml}",
        "-o", f"cache_dir={RESULTS / (suite.file_name + '-cache')}", *options,
    ]
    return suite


def browser_suite(options):
    """The Windows build in a real browser: what is released, where its users are."""
    suite = Suite("browser", [], wine=True)
    suite.command = [
        PYTHON, "-m", "pytest", str(ROOT / "tests" / "browser"), "-v", f"--junitxml={suite.xml}",
        "-o", f"cache_dir={RESULTS / 'browser-cache'}", *options,
    ]
    return suite


def package_suite(options):
    """What users get is made from the Windows build, and installed."""
    suite = Suite("package", [], wine=True)
    suite.command = [
        PYTHON, "-m", "pytest", str(ROOT / "tests" / "package"), "-v", f"--junitxml={suite.xml}",
        "-o", f"cache_dir={RESULTS / 'package-cache'}", *options,
    ]
    return suite


def soak_suite(build, options):
    suite = Suite(f"soak {build}", [], wine=build == "windows")
    suite.command = [
        PYTHON, str(ROOT / "tests" / "soak" / "soak.py"), "--build", build, "--minutes",
        str(SOAK_MINUTES), "--junit", str(suite.xml), *options,
    ]
    return suite


def system_suites(build, options):
    """Under Wine it takes longest, so there two halves run beside each other."""
    if build != "windows" or options:
        return [system_suite(build, options)]
    files = sorted((ROOT / "tests" / "system").glob("test_*.py"))
    return [system_suite(build, options, f"{build} {half + 1}", files[half::2])
            for half in range(2)]


def fuzz_suite(target, seconds):
    name = target.name.removesuffix("_fuzz")
    if seconds is None:
        seconds = STREAM_FUZZ_SECONDS if name in STREAM_TARGETS else FUZZ_SECONDS
    suite = Suite(f"fuzz {name}", [], network=False)
    found = ROOT / "build" / "corpus" / target.name
    suite.directories = [found]
    suite.command = [
        PYTHON, str(ROOT / "tools" / "run_fuzzer.py"), str(target), "--seconds", str(seconds),
        "--found", str(found), "--junit", str(suite.xml),
    ]
    return suite


def fuzz_suites(seconds):
    targets = sorted((ROOT / "build" / FUZZ_BUILD / "fuzz").glob("*_fuzz"),
                     key=lambda target: target.name.removesuffix("_fuzz") not in STREAM_TARGETS)
    sources = {path.stem for path in (ROOT / "tests" / "fuzz").glob("**/*_fuzz.cpp")}
    suites = [fuzz_suite(target, seconds) for target in targets if target.name in sources]
    # No target is no success: the suite must not vanish without a word.
    return suites or [Suite("fuzz", ["sh", "-c", "echo no fuzz target was built; exit 1"])]


def lint_suite(options):
    suite = Suite("lint", [], network=False)
    suite.command = [
        PYTHON, str(ROOT / "tools" / "lint.py"), "--junit", str(suite.xml), *options,
    ]
    return suite


def tools_suite(options):
    suite = Suite("tools", [], network=False)
    suite.command = [
        PYTHON, "-m", "pytest", str(ROOT / "tools"), str(ROOT / "tests" / "soak"), "-q",
        f"--junitxml={suite.xml}",
        "-o", f"cache_dir={RESULTS / 'tools-cache'}", *options,
    ]
    return suite


def suite_environment(suite):
    environment = dict(os.environ, **suite.environment)
    environment.setdefault("WINEDEBUG", "-all")
    environment["WINEDLLOVERRIDES"] = "mscoree,mshtml="
    environment["PYTHONDONTWRITEBYTECODE"] = "1"
    environment["ASAN_OPTIONS"] = "detect_stack_use_after_return=1:check_initialization_order=1"
    environment["UBSAN_OPTIONS"] = "print_stacktrace=1"
    environment["TSAN_OPTIONS"] = "halt_on_error=1:second_deadlock_stack=1"
    if suite.wine:
        prefix = str(ROOT / "build" / "wine" / suite.file_name)
        environment.update(WINEPREFIX=prefix, MORVA_WINEPREFIX=prefix)
    return environment


def suite_command(suite):
    command = suite.command
    if suite.wine:
        command = [str(ROOT / "tools" / "with-wine-server"), *command]
    if suite.network:
        command = [str(ROOT / "tools" / "in-own-network"), *command]
    return command


def count_results(xml):
    """The totals of a JUnit file, whether its root is one suite or a list of them."""
    root = ElementTree.parse(xml).getroot()
    suites = [root] if root.tag == "testsuite" else root.findall("testsuite")
    totals = {"passed": 0, "failed": 0, "skipped": 0}
    for suite in suites:
        number = {key: int(suite.get(key) or 0)
                  for key in ("tests", "failures", "errors", "skipped", "disabled")}
        failed = number["failures"] + number["errors"]
        skipped = number["skipped"] + number["disabled"]
        totals["failed"] += failed
        totals["skipped"] += skipped
        totals["passed"] += number["tests"] - failed - skipped
    return totals


def judge(suite, exit_code):
    """Fills in the counts; a runner that failed without a failed test counts as one failure."""
    suite.counts = {"passed": 0, "failed": 0, "skipped": 0}
    try:
        suite.counts = count_results(suite.xml)
    except (OSError, ElementTree.ParseError) as error:
        suite.problem = suite.problem or f"no results: {error}"
    if not suite.problem and suite.counts["passed"] + suite.counts["failed"] == 0:
        suite.problem = "ran no test"
    if not suite.problem and exit_code != 0 and suite.counts["failed"] == 0:
        suite.problem = f"exit code {exit_code}"
    if suite.problem and suite.counts["failed"] == 0:
        suite.counts["failed"] = 1


def run_suite(suite, live):
    for directory in suite.directories:
        directory.mkdir(parents=True, exist_ok=True)
    suite.xml.unlink(missing_ok=True)
    begin = time.monotonic()
    with open(suite.log, "wb") as log:
        process = subprocess.Popen(
            suite_command(suite), cwd=ROOT, env=suite_environment(suite), stdin=subprocess.DEVNULL,
            stdout=None if live else log, stderr=None if live else subprocess.STDOUT,
            start_new_session=True)
        try:
            exit_code = process.wait(SUITE_TIMEOUT_SECONDS)
        except subprocess.TimeoutExpired:
            suite.problem = f"still running after {SUITE_TIMEOUT_SECONDS} s"
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


def result_line(suite):
    counts = suite.counts
    text = f"{suite.name:<18} {counts['passed']:>5} passed, {counts['failed']} failed"
    if counts["skipped"]:
        text += f", {counts['skipped']} skipped"
    text += f"  ({suite.seconds:.1f} s)"
    return text + (f"  {suite.problem}" if suite.problem else "")


def run_lane(queue, lock):
    while True:
        with lock:
            if not queue:
                return
            suite = queue.pop(0)
            print(f"   {suite.name} ...", flush=True)
        run_suite(suite, live=False)
        with lock:
            print(("!! " if suite.failed else "ok ") + result_line(suite), flush=True)
            if suite.failed:
                print_failures(suite)


def failed_cases(xml):
    """(name, what it said) of each failed test of a JUnit file."""
    try:
        cases = ElementTree.parse(xml).getroot().iter("testcase")
    except (OSError, ElementTree.ParseError):
        return []
    return [(f"{case.get('classname')} {case.get('name')}", "\n".join(case.itertext()))
            for case in cases if case.find("failure") is not None or case.find("error") is not None]


def print_failures(suite):
    """What the failed tests said; the end of the log when none of them is known by name."""
    cases = failed_cases(suite.xml)
    for name, text in cases[:MOST_SHOWN_FAILURES]:
        print_end(name, text)
    if not cases:
        print_end(str(suite.log.relative_to(ROOT)), suite.log.read_text(errors="replace"))


def print_end(title, text):
    print(f"-- {title}:")
    print("\n".join("   | " + line for line in text.splitlines()[-SHOWN_LINES:]), flush=True)


def run_suites(suites):
    if len(suites) == 1:
        run_suite(suites[0], live=True)
        return
    queue, lock = list(suites), threading.Lock()
    lanes = [threading.Thread(target=run_lane, args=(queue, lock), daemon=True)
             for _ in range(LANES)]
    for lane in lanes:
        lane.start()
    for lane in lanes:
        lane.join()


def build(presets):
    """False, after the compiler's own words, when a preset does not build."""
    for preset in presets:
        begin = time.monotonic()
        if subprocess.run([str(ROOT / "dev"), "build", preset], cwd=ROOT).returncode != 0:
            print(f"!! {preset} does not build")
            return False
        print(f"   built {preset} in {time.monotonic() - begin:.1f} s", flush=True)
    return True


def parse(arguments):
    whats, builds, options, fuzz_seconds = [], [], [], None
    rest = list(arguments)
    while rest and (rest[0] in WHATS or rest[0] in BUILDS):
        word = rest.pop(0)
        (whats if word in WHATS else builds).append(word)
    if rest[:1] == ["--fuzz-seconds"]:
        fuzz_seconds, rest = int(rest[1]), rest[2:]
    options = rest
    if options and len(whats) != 1:
        sys.exit("options need exactly one of: " + " ".join(WHATS))
    return whats or list(WHATS), builds or list(DEFAULT_BUILDS), options, fuzz_seconds


def wanted_suites(whats, builds, options, fuzz_seconds):
    """Longest first, so that the lanes end together; what needs quiet comes before the fuzzers."""
    suites = []
    if "system" in whats:
        suites += [suite for name in builds for suite in system_suites(name, options)]
    if "browser" in whats:
        suites.append(browser_suite(options))
    if "lint" in whats:
        suites.append(lint_suite(options))
    if "unit" in whats:
        suites += [unit_suite(name, options) for name in builds]
    if "package" in whats:
        suites.append(package_suite(options))
    if "soak" in whats:
        soaked = SOAK_BUILDS if tuple(builds) == DEFAULT_BUILDS else builds
        suites += [soak_suite(name, options) for name in soaked]
    if "tools" in whats:
        suites.append(tools_suite(options))
    if "fuzz" in whats:
        suites += fuzz_suites(fuzz_seconds)
    return suites


def summary(suites):
    totals = {key: sum(suite.counts.get(key, 0) for suite in suites)
              for key in ("passed", "failed", "skipped")}
    text = f"{totals['passed']} passed, {totals['failed']} failed"
    return text + (f", {totals['skipped']} skipped" if totals["skipped"] else "")


def main():
    whats, builds, options, fuzz_seconds = parse(sys.argv[1:])
    shutil.rmtree(RESULTS, ignore_errors=True)
    RESULTS.mkdir(parents=True)
    begin = time.monotonic()
    presets = list(builds) if {"unit", "system", "soak"} & set(whats) else []
    if {"browser", "package"} & set(whats) and WINDOWS_BUILD not in presets:
        presets.append(WINDOWS_BUILD)
    if "fuzz" in whats and FUZZ_BUILD not in presets:
        presets.append(FUZZ_BUILD)
    if not build(presets):
        print("0 passed, 1 failed")
        return 1
    suites = wanted_suites(whats, builds, options, fuzz_seconds)
    run_suites(suites)
    print(f"\n== summary ({time.monotonic() - begin:.0f} s with building)")
    for suite in sorted(suites, key=lambda each: WHATS.index(each.name.split()[0])):
        print(result_line(suite))
    print(summary(suites))
    return 1 if any(suite.failed for suite in suites) else 0


if __name__ == "__main__":
    sys.exit(main())
