"""Tests that take long run beside the others, each with a network and a Wine prefix of its own.

The ports of host and agent are fixed, so two tests on one network would disturb each other. A test
marked `long` is started in a process of its own when the run begins; when its turn comes, last of
all, the run waits for that process and takes over how it ended.
"""

import os
import signal
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from support import builds

_INSIDE = "MORVA_LONG_TEST"  # in the environment of a process that was started for a long test


class LongTests:
    """A plugin of pytest. Eight run at a time: most of them only wait, but each start takes a
    processor for a while."""

    def __init__(self):
        self._places = ThreadPoolExecutor(8)
        self._begun = {}
        self._processes = []

    def pytest_runtestloop(self, session):
        if session.config.option.collectonly or session.testsfailed or _INSIDE in os.environ:
            return
        wanted = [item for item in session.items if item.get_closest_marker("long")
                  and not item.get_closest_marker("skip")]
        for number, item in enumerate(wanted):
            self._begun[item.nodeid] = self._places.submit(self._run, item, number)

    @pytest.hookimpl(tryfirst=True)
    def pytest_pyfunc_call(self, pyfuncitem):
        if pyfuncitem.nodeid not in self._begun:
            return None
        code, output = self._begun[pyfuncitem.nodeid].result(180)
        assert code == 0, output[-20_000:]
        return True

    def pytest_sessionfinish(self):
        self._places.shutdown(wait=False, cancel_futures=True)
        for process in self._processes:
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGTERM)  # a session that we began
                process.wait(30)

    def _run(self, item, number):
        environment = {**os.environ, _INSIDE: "1"}
        command: list[str | Path] = [builds.ROOT / "tools" / "in-own-network"]
        if builds.IS_WINDOWS:
            environment["WINEPREFIX"] = f"{builds.wine_prefix()}-long-{number}"
            environment.pop("MORVA_WINEPREFIX", None)
            command.append(builds.ROOT / "tools" / "with-wine-server")
        command += [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider",
                    f"{item.path}::{item.name}"]
        process = subprocess.Popen(
            command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, start_new_session=True)
        self._processes.append(process)
        output, _ = process.communicate()
        return process.returncode, output
