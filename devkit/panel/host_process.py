"""Runs the host as the browser does: frames on its standard input and output.

    with HostProcess(build="asan") as host:
        host.send({"source": "morva-chat", "kind": "getStatus", "chromeRequestId": 1})
        reply = host.wait_for(lambda frame: frame.get("chromeRequestId") == 1)
        host.close_stdin()
        assert host.wait() == 0

A thread takes what the host writes, so the host never stalls on its output unless
`pause_reading()` asks for it. Every method may be called from any thread.
"""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import threading
import time
from collections.abc import Callable, Mapping, Sequence
from pathlib import Path
from typing import Any

from . import wine
from .frames import encode_body, frame
from .output_reader import OutputReader

# As Chrome calls it: the extension that asked, and (on Windows) its window.
BROWSER_ARGUMENTS = (
    "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/",
    "--parent-window=0",
)

_GREETING_ID = "host_process-greeting"
_START_ATTEMPTS = 3
_START_TIMEOUT_S = 90.0  # the first start in a Wine prefix also starts Wine's services


class HostError(Exception):
    """The host did not do what a host must do; the text says what, with its error output."""


class HostTimeout(HostError):
    """Nothing that fits came in time. The host may still send it."""


class HostProcess:
    """One run of the host.

    build       preset whose program is run: "windows" under Wine (on Windows directly), any other
                one directly
    args        arguments of the program; those of the browser when not given
    env         variables to add to this process's environment
    wineprefix  for "windows"; MORVA_WINEPREFIX or the prefix of `./dev setup` when not given
    program     the executable, when it is not the one of the preset
    greet       start() waits until the host answers a "getStatus" (whose reply is not among the
                frames), and starts it again when it ended without a word, as about one start in
                3000 does under Wine. Without it start() returns at once and nothing is retried.
    """

    def __init__(
        self,
        build: str = "windows",
        args: Sequence[str] | None = None,
        env: Mapping[str, str] | None = None,
        wineprefix: Path | None = None,
        program: Path | None = None,
        greet: bool = True,
    ) -> None:
        self._windows = build == "windows"
        suffix = ".exe" if self._windows else ""
        default_program = wine.ROOT / "build" / build / f"morva-chrome-host{suffix}"
        self.program = Path(program or default_program)
        self._args = list(BROWSER_ARGUMENTS if args is None else args)
        self._env = dict(os.environ)
        if self._windows:
            self._env |= wine.environment(wineprefix or wine.default_prefix())
        self._env |= env or {}
        self._greet = greet
        self._process: subprocess.Popen[bytes] | None = None
        self._output: OutputReader | None = None
        self._errors = bytearray()
        self._errors_thread: threading.Thread | None = None
        self._next = 0  # the frame that read() gives next
        self.ended_at = 0.0  # when wait() saw it, on the clock of time.monotonic()
        self.on_sent: Callable[[bytes], object] | None = None  # is told of all that is sent

    # Start and end

    def start(self) -> HostProcess:
        if not self.program.is_file():
            raise HostError(f"{self.program} has not been built")
        for _ in range(_START_ATTEMPTS):
            self._spawn()
            if not self._greet or self._greeted():
                return self
            self.kill()
        raise HostError(f"the host did not start ({_START_ATTEMPTS} attempts){self._error_note()}")

    def close_stdin(self) -> None:
        """What the browser does when the panel's connection ends."""
        stdin = self._running.stdin
        assert stdin is not None
        try:
            stdin.close()
        except BrokenPipeError:
            pass  # nobody reads it any more

    def close_stdout(self) -> None:
        """Closes the reading side of the host's output, as a browser that is gone: what comes from
        now on is lost, and the last frame may be cut."""
        assert self._running.stdout is not None
        null = os.open(os.devnull, os.O_RDONLY)
        os.dup2(null, self._running.stdout.fileno())
        os.close(null)

    def wait(self, timeout: float = 10.0) -> int:
        """The exit code, once the process has ended and its output is read. Raises HostError.

        Natively a negative number is the signal that ended it. Under Wine, which runs the program
        within the process that we start, it is the low byte of the Windows exit code, or 1 when
        only that byte is 0: so 0 means 0, and 3 is an uncaught exception. (When Wine died: see
        wine.wait.)
        """
        try:
            process = self._running
            code = wine.wait(process, timeout) if self._windows else process.wait(timeout)
            self.ended_at = time.monotonic()
        except subprocess.TimeoutExpired:
            raise HostError(f"the host still runs after {timeout} s{self._error_note()}") from None
        # A child that inherited the pipes keeps them open: then what has come so far must do.
        self._reader.join(2.0)
        if self._errors_thread is not None:
            self._errors_thread.join(2.0)
        return code

    def kill(self) -> None:
        """Ends this process hard, and no other; nothing happens when it has ended."""
        process = self._running
        if process.poll() is None:
            process.kill()
        process.wait()
        self.close_stdin()
        self._reader.resume()
        self._reader.join(2.0)

    def __enter__(self) -> HostProcess:
        return self.start()

    def __exit__(self, *_: object) -> None:
        self.kill()

    @property
    def pid(self) -> int:
        return self._running.pid

    @property
    def started(self) -> bool:
        return self._process is not None and self._output is not None

    @property
    def running(self) -> bool:
        return self._running.poll() is None

    # Sending. A host that has ended raises BrokenPipeError.

    def send(self, message: Any) -> None:
        self.send_raw(frame(encode_body(message)))

    def send_raw(self, data: bytes) -> None:
        """Bytes as they are: broken lengths, bodies that are not JSON, pieces of frames."""
        stdin = self._running.stdin
        assert stdin is not None
        if self.on_sent is not None:
            self.on_sent(data)
        left = memoryview(data)
        while left:
            left = left[stdin.write(left):]

    # Receiving

    @property
    def frames(self) -> list[Any]:
        """Everything received so far, parsed, in order."""
        return self._reader.frames

    @property
    def bodies(self) -> list[bytes]:
        """The same frames as the bytes that came."""
        return self._reader.bodies

    @property
    def arrivals(self) -> list[float]:
        """When each frame came, on the clock of time.monotonic()."""
        return self._reader.arrivals

    @property
    def stderr(self) -> str:
        """What the program wrote to standard error, a sanitizer's report for example."""
        return self._errors.decode("utf-8", "replace")

    @property
    def stream_fault(self) -> str:
        """Why what the host wrote is not a sequence of JSON frames; empty when it is one."""
        return self._reader.fault

    @property
    def stdout_ended(self) -> bool:
        """Nobody holds the host's standard output any more, no child of it either."""
        return self._reader.ended

    def read(self, timeout: float = 10.0) -> Any:
        """The next frame that read() has not given yet. Raises as wait_for() does."""
        found = self.wait_for(lambda _: True, timeout, since=self._next)
        self._next += 1
        return found

    def wait_for(
        self, predicate: Callable[[Any], Any], timeout: float = 10.0, since: int = 0
    ) -> Any:
        """The first frame of `frames[since:]`, come or still to come, that `predicate` likes.

        Raises HostTimeout when the time is up, and HostError when the output ends or breaks the
        framing.
        """
        deadline = time.monotonic() + timeout
        looked = since
        while True:
            while looked < len(self.frames):
                candidate = self.frames[looked]
                looked += 1
                if predicate(candidate):
                    return candidate
            if not self._reader.wait_for_more(looked, deadline - time.monotonic()):
                raise self._failure(timeout)

    def pause_reading(self) -> None:
        """From now on nothing is taken from the host's output: its writes block, as they do when
        the browser is busy, as soon as the pipe is full."""
        self._reader.pause()

    def resume_reading(self) -> None:
        self._reader.resume()

    # How it is done

    @property
    def _running(self) -> subprocess.Popen[bytes]:
        if self._process is None:
            raise HostError("the host has not been started")
        return self._process

    @property
    def _reader(self) -> OutputReader:
        if self._output is None:
            raise HostError("the host has not been started")
        return self._output

    def _spawn(self) -> None:
        command = [str(self.program), *self._args]
        if self._windows:
            command = wine.command(*command)
        if setarch := shutil.which("setarch"):
            # Without address space randomization: Wine's loader and the thread sanitizer need
            # fixed ranges to be free.
            command = [setarch, "-R", *command]
        self._errors.clear()
        self._process = subprocess.Popen(
            command,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env=self._env,
            bufsize=0,
            start_new_session=True,  # Ctrl-C in the terminal is for the panel, not for the host
        )
        assert self._process.stdout is not None
        self._output = OutputReader(self._process.stdout)
        self._output.start()
        self._next = 0
        self._errors_thread = threading.Thread(
            target=self._collect_errors, args=(self._process,), daemon=True
        )
        self._errors_thread.start()

    def _collect_errors(self, process: subprocess.Popen[bytes]) -> None:
        assert process.stderr is not None
        with process.stderr:
            while piece := process.stderr.read(65536):
                self._errors += piece

    def _greeted(self) -> bool:
        """False when the process ended without having said anything."""
        try:
            self.send(
                {"source": "morva-chat", "kind": "getStatus", "chromeRequestId": _GREETING_ID}
            )
            self.wait_for(_answers_greeting, _START_TIMEOUT_S)
        except (BrokenPipeError, HostError):
            if self.frames or not self._ended_within(5.0) or self._errors:
                raise
            return False
        self._reader.forget(_answers_greeting)
        return True

    def _ended_within(self, timeout: float) -> bool:
        try:
            self.wait(timeout)
        except HostError:
            return False
        return True

    def _failure(self, timeout: float) -> HostError:
        last = [json.dumps(seen)[:300] for seen in self.frames[-5:]]
        note = "\n  ".join(["; last frames:", *last]) + self._error_note()
        if self.stream_fault:
            return HostError(self.stream_fault + note)
        if self.stdout_ended:
            code = self._running.returncode if self._ended_within(1.0) else None
            return HostError(f"the host's output ended (exit code {code})" + note)
        return HostTimeout(f"nothing that fits within {timeout} s" + note)

    def _error_note(self) -> str:
        return f"\nstandard error:\n{self.stderr[-4000:]}" if self._errors else ""


def _answers_greeting(candidate: Any) -> bool:
    return isinstance(candidate, dict) and candidate.get("chromeRequestId") == _GREETING_ID
