"""pytest plugin of tools/mutants: runs chosen tests in a chosen order, and notes what each reaches.

MORVA_CHOSEN names a file with one test id per line. MORVA_REACH_LOG names a file to which a line of
JSON is added for every test: its id, whether it passed, how long it took, and the numbers of the
points that ran in each program (see reached_points.cpp).
"""

import json
import os
import shutil
import tempfile
from pathlib import Path

import pytest

CHOSEN = os.environ.get("MORVA_CHOSEN")
LOG = os.environ.get("MORVA_REACH_LOG")
_running = {}


def take_reached(folder):
    """{program: numbers} of the points that ran since the last call."""
    found = {}
    for file in Path(folder).glob("*.reached"):
        program, pid = file.name.split(".")[0], file.name.split(".")[-2]
        reached = file.read_bytes()
        if any(reached):
            found.setdefault(program, set()).update(at for at, byte in enumerate(reached) if byte)
        if not Path("/proc", pid).exists():
            file.unlink()
        elif any(reached):
            with open(file, "r+b") as memory:  # in place: the process goes on writing there
                memory.write(bytes(len(reached)))
    return {program: sorted(numbers) for program, numbers in found.items()}


def pytest_configure():
    if LOG:
        # Of its own: a test that takes long runs in another pytest beside this one.
        os.environ["MORVA_REACHED"] = tempfile.mkdtemp(prefix="reached-")


def pytest_unconfigure():
    if LOG:
        shutil.rmtree(os.environ["MORVA_REACHED"], ignore_errors=True)


@pytest.hookimpl(trylast=True)
def pytest_collection_modifyitems(items):
    if not CHOSEN or os.environ.get("MORVA_LONG_TEST"):
        return
    order = {name: at for at, name in enumerate(Path(CHOSEN).read_text().splitlines())}
    items[:] = sorted((item for item in items if item.nodeid in order),
                      key=lambda item: (item.get_closest_marker("long") is not None,
                                        order[item.nodeid]))


def pytest_runtest_logreport(report):
    seconds, passed = _running.get(report.nodeid, (0.0, True))
    _running[report.nodeid] = (seconds + report.duration, passed and not report.failed)


def pytest_runtest_logfinish(nodeid):
    if not LOG:
        return
    seconds, passed = _running.pop(nodeid, (0.0, True))
    line = json.dumps({"test": nodeid, "passed": passed, "seconds": seconds,
                       "reached": take_reached(os.environ["MORVA_REACHED"])})
    with open(LOG, "a") as log:
        log.write(line + "\n")
