"""One worker of tools/mutants: builds a copy of the project, in which this file lies, and runs its
native tests. It does what the lines of JSON on its standard input ask for, one after the other, and
answers each by one line.
"""

import ctypes
import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import psutil

from pytest_reach import take_reached
from reach import points_of

ROOT = Path(__file__).resolve().parents[2]
PRESET = "mutant"
UNIT_PATIENCE_S, SYSTEM_PATIENCE_S = 20, 120  # besides a multiple of what the tests took before
SLOWER = 5  # times, on a machine that does other things too
TARGETS = ("unit_tests", "morva-chrome-host", "morva-viewer-cli")
PROGRAMS = {"unit_tests": "--gtest_list_tests", "morva-chrome-host": "--version",
            "cli/morva-viewer-cli.exe": "--version"}
PR_SET_PDEATHSIG, PR_SET_CHILD_SUBREAPER = 1, 36


class Tree:
    def __init__(self):
        self.folder = ROOT
        self.build_folder = ROOT / "build" / PRESET
        home = ROOT / "build" / "home"
        home.mkdir(exist_ok=True)
        self.environment = dict(
            os.environ, HOME=str(home), MORVA_BUILD_DIR=str(self.build_folder),
            MORVA_HOST_BUILD=PRESET, PYTHONDONTWRITEBYTECODE="1",
            PYTHONPATH=str(Path(__file__).parent))

    def build(self, *targets):
        """What the compiler says when it fails, else nothing."""
        if not (self.build_folder / "build.ninja").exists():
            self._run(["cmake", "--preset", PRESET, "--log-level=WARNING"])
        done = self._run(["cmake", "--build", "--preset", PRESET, f"-j{os.cpu_count()}", "-t",
                          *targets])
        return "" if done.returncode == 0 else done.stdout[-4000:]

    def _run(self, command):
        return subprocess.run(command, cwd=self.folder, stdout=subprocess.PIPE, text=True,
                              stderr=subprocess.STDOUT, errors="replace", check=False)


def end_descendants():
    """Hosts outlive the test that is killed: they are sessions of their own."""
    for process in psutil.Process().children(recursive=True):
        try:
            process.kill()
            process.wait(10)
        except psutil.NoSuchProcess:
            pass


def run_limited(command, limit_s, **options):
    """The exit code; None when it did not end in time."""
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, start_new_session=True, **options)
    try:
        return process.wait(limit_s)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return None


# --- Unit tests: each in a process of its own, as ctest runs them ---

def unit_tests(tree):
    listed = subprocess.run([tree.build_folder / "unit_tests", "--gtest_list_tests"], check=True,
                            stdout=subprocess.PIPE, text=True).stdout
    suite = ""
    for line in listed.splitlines():
        name = line.split("#")[0].strip()
        if line.startswith(" "):
            yield suite + name
        elif re.fullmatch(r"[\w/]+\.", name):
            suite = name


def run_unit_test(tree, name, limit_s, environment=None):
    command = [tree.build_folder / "unit_tests", f"--gtest_filter={name}"]
    return run_limited(command, limit_s, cwd=tree.build_folder,
                       env=tree.environment | (environment or {}))


def measure_unit_tests(tree):
    for name in unit_tests(tree):
        with tempfile.TemporaryDirectory() as folder:
            began = time.monotonic()
            code = run_unit_test(tree, name, 120, {"MORVA_REACHED": folder})
            yield {"test": name, "passed": code == 0, "seconds": time.monotonic() - began,
                   "reached": take_reached(folder)}


def unit_killer(tree, tests):
    """The first of these tests, [(name, seconds)], that fails twice, and how."""
    for name, seconds in tests:
        for _ in range(2):
            code = run_unit_test(tree, name, SLOWER * seconds + UNIT_PATIENCE_S)
            if code == 0:
                break
        else:
            return name, "hangs" if code is None else "fails"
    return None


# --- System tests ---

def run_system_tests(tree, log, chosen=None, limit_s=3600):
    names = chosen or ["."]
    files = sorted({name.partition("::")[0] for name in names})
    with tempfile.NamedTemporaryFile("w", suffix=".chosen") as list_file:
        list_file.write("\n".join(chosen or []))
        list_file.flush()
        environment = tree.environment | {"PYTEST_ADDOPTS": "-p pytest_reach",
                                          "MORVA_REACH_LOG": str(log)}
        if chosen:
            environment["MORVA_CHOSEN"] = list_file.name
        command = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", *files]
        code = run_limited(command + ["-x"] * bool(chosen), limit_s,
                           cwd=tree.folder / "tests" / "system", env=environment)
    end_descendants()
    return code


def log_lines(log):
    return [json.loads(line) for line in log.read_text().splitlines()] if log.exists() else []


def measure_system_tests(tree):
    log = tree.folder / "build" / "reach.log"
    log.unlink(missing_ok=True)
    run_system_tests(tree, log)
    return log_lines(log)


def system_killer(tree, tests):
    """As unit_killer. A test that failed once begins the next run, which may absolve it."""
    seconds, suspect = dict(tests), None
    left = [name for name, _ in tests]
    while left:
        log = tree.folder / "build" / "system.log"
        log.unlink(missing_ok=True)
        code = run_system_tests(tree, log, left,
                                SLOWER * sum(map(seconds.get, left)) + SYSTEM_PATIENCE_S)
        if code == 0:
            return None
        if code not in (1, None):
            raise RuntimeError(f"pytest ended with {code}")
        failed = [line["test"] for line in log_lines(log) if not line["passed"]]
        done = {line["test"] for line in log_lines(log) if line["passed"]}
        failing = [*failed, *(name for name in left if name not in done), left[0]][0]
        if failing == suspect:
            return failing, "hangs" if code is None else "fails"
        suspect = failing
        left = [failing, *(name for name in left if name not in done and name != failing)]
    return None


# --- What a line of the standard input asks for ---

def prepare(tree, _):
    return {"error": tree.build(*TARGETS)}


def measure(tree, order):
    tests = measure_unit_tests if order["level"] == "unit" else measure_system_tests
    return {"tests": list(tests(tree))}


def points(tree, _):
    """What the compiler says of the points of each program."""
    with tempfile.TemporaryDirectory() as folder:
        environment = tree.environment | {"MORVA_REACHED": folder}
        for program, option in PROGRAMS.items():
            run_limited([tree.build_folder / program, option], 20, env=environment)
        return points_of(folder, tree.build_folder)


def attempt(tree, order):
    """Whether any test notices the change."""
    path = tree.folder / order["path"]
    original = path.read_text(encoding="utf-8")
    path.write_text(order["text"], encoding="utf-8")
    try:
        if tree.build("unit_tests"):
            return {"verdict": "does not compile"}
        killer = unit_killer(tree, order["unit"])
        if not killer and order["system"]:
            if tree.build(*TARGETS[1:]):
                return {"verdict": "does not compile"}
            killer = system_killer(tree, order["system"])
        end_descendants()
    finally:
        path.write_text(original, encoding="utf-8")
    if killer:
        return {"verdict": "killed", "by": killer[0], "how": killer[1]}
    return {"verdict": "lived"}


ORDERS = {each.__name__: each for each in (prepare, measure, points, attempt)}


def end_all(*_):
    end_descendants()
    os._exit(1)


def main():
    process_control = ctypes.CDLL(None).prctl
    process_control(PR_SET_CHILD_SUBREAPER, 1)  # orphans become ours, so we can end them
    process_control(PR_SET_PDEATHSIG, signal.SIGTERM)  # nothing stays when whoever asks has ended
    signal.signal(signal.SIGTERM, end_all)
    tree = Tree()
    for line in sys.stdin:
        order = json.loads(line)
        print(json.dumps(ORDERS[order["order"]](tree, order)), flush=True)


if __name__ == "__main__":
    main()
