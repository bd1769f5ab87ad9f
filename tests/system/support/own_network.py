"""Tests that take long run beside the others, each with a network and a Wine prefix of its own.

The ports of host and agent are fixed, so two tests on one network would disturb each other. A test
marked `long` is started in a process of its own when the run begins; when its turn comes, last of
all, the run waits for that process and takes over how it ended.
"""

import contextlib
import os
import signal
import subprocess
import sys
import threading

from support import builds

_INSIDE = "MORVA_LONG_TEST"


def is_inside():
    """Whether this process is one that was started for a long test."""
    return bool(os.environ.get(_INSIDE))


# Most of them only wait, but each start takes a processor for a while.
_places = threading.Semaphore(8)


class BesideRun:
    """The run of one long test in a process of its own, begun as soon as there is a place."""

    def __init__(self, item, number):
        self._environment = {**os.environ, _INSIDE: "1"}
        self._command = [str(builds.ROOT / "tools" / "in-own-network")]
        if builds.IS_WINDOWS:
            prefix = builds.wine_prefix()
            self._environment["WINEPREFIX"] = f"{prefix}-long-{number}"
            self._environment.pop("MORVA_WINEPREFIX", None)
            self._command.append(str(builds.ROOT / "tools" / "with-wine-server"))
        self._command += [
            sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider",
            f"{item.path}::{item.name}"]
        self._process = None
        self._ended = False
        self._output = ""
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def wait(self, timeout):
        self._thread.join(timeout)
        assert not self._thread.is_alive(), f"still running after {timeout} s"
        assert self._process.returncode == 0, self._output[-20_000:]

    def end(self):
        self._ended = True
        if self._process is not None and self._process.poll() is None:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(self._process.pid, signal.SIGTERM)  # a session that we began
            self._process.wait(30)

    def _run(self):
        with _places:
            if self._ended:
                return
            self._process = subprocess.Popen(
                self._command, env=self._environment, stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                start_new_session=True)
            self._output, _ = self._process.communicate()
