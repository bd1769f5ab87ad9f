"""The programs that are compared, started as the browser starts a host.

Raw descriptors, no threads, and no parsing while the clock runs: what is measured should be the
program. The host and the least programs run natively or under Wine, the peers always natively.
"""

from __future__ import annotations

import contextlib
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable, Iterable, Iterator
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from devkit.panel import wine

BROWSER_ARGUMENTS = ("chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/", "--parent-window=0")
READ_BYTES = 1024 * 1024
START_ATTEMPTS = 3
PEERS = {name: [program, str(Path(__file__).parent / "peers" / f"host.{suffix}")]
         for name, suffix, program in (("Node", "js", shutil.which("node")),
                                       ("Python", "py", sys.executable)) if program}
HOST, LEAST = "host", "least"


class ProgramError(Exception):
    """A program ended or answered in a way that makes its figures worthless."""


def encode(message: dict) -> bytes:
    body = json.dumps(message, separators=(",", ":")).encode()
    return struct.pack("<I", len(body)) + body


def status(request_id: object = 7) -> bytes:
    return encode({"source": "morva-chat", "kind": "getStatus", "chromeRequestId": request_id})


@dataclass
class Side:
    """One way to build and run the programs. `tools` has the native ones that measure."""

    name: str
    folder: Path
    tools: Path
    prefix: Path | None = None
    own_environment: dict[str, str] = field(default_factory=dict)

    @property
    def environment(self) -> dict[str, str]:
        of_wine = wine.environment(self.prefix) if self.prefix is not None else {}
        return os.environ | self.own_environment | of_wine

    def command(self, name: str, *arguments: str) -> list[str]:
        suffix = ".exe" if self.prefix is not None else ""
        command = [str(self.folder / (name + suffix)), *arguments]
        if self.prefix is None:
            return command
        fixed_layout = [setarch, "-R"] if (setarch := shutil.which("setarch")) else []
        return [*fixed_layout, wine.loader(), *command]

    def start(self, who: str, least: str = "least_echo", *arguments: str,
              first: bytes = b"") -> DrivenProgram:
        """The host, a peer, or this least program with these arguments."""
        if who == HOST:
            command = self.command("morva-chrome-host", *BROWSER_ARGUMENTS)
        else:
            command = PEERS.get(who) or self.command(f"bench/{least}", *arguments)
        return DrivenProgram(who, command, self.environment, first)

    @contextlib.contextmanager
    def everybody(self, least: str, *arguments: str) -> Iterator[dict[str, DrivenProgram]]:
        """All at once, so that they can take turns; each that can echo has spoken."""
        with contextlib.ExitStack() as stack:
            programs = {}
            for who in (HOST, LEAST, *PEERS):
                first = b"" if who == LEAST and arguments else status()
                programs[who] = stack.enter_context(
                    self.start(who, least, *arguments, first=first))
            yield programs


class DrivenProgram:
    """One run of a program. With `first` its first frame lies in the pipe when it starts."""

    def __init__(self, who: str, command: list[str], environment: dict[str, str],
                 first: bytes = b"") -> None:
        self.who = who
        for attempt in range(START_ATTEMPTS):
            self._spawn(command, environment, first)
            if not first:
                return
            try:
                self.first_reply = self.read_frame()
                self.first_reply_s = time.perf_counter() - self._started
                return
            except ProgramError:  # about one Wine start in 3000 ends without a word
                self.kill()
                if attempt + 1 == START_ATTEMPTS:
                    raise

    def _spawn(self, command: list[str], environment: dict[str, str], first: bytes) -> None:
        child_in, self.stdin = os.pipe()
        self.stdout, child_out = os.pipe()
        self._left = b""
        if first:
            os.write(self.stdin, first)
        self._started = time.perf_counter()
        self.process = subprocess.Popen(
            command, stdin=child_in, stdout=child_out, stderr=subprocess.DEVNULL, env=environment)
        os.close(child_in)
        os.close(child_out)

    def send(self, frame: bytes) -> None:
        left = memoryview(frame)
        while left:
            left = left[os.write(self.stdin, left):]

    def _more(self) -> bytes:
        piece = os.read(self.stdout, READ_BYTES)
        if not piece:
            raise ProgramError(f"{self.who}: the output ended")
        return piece

    def read_frame(self) -> bytes:
        pieces, size, wanted = [self._left], len(self._left), 4
        while True:
            while size < wanted:
                pieces.append(self._more())
                size += len(pieces[-1])
            data = pieces[0] if len(pieces) == 1 else b"".join(pieces)
            pieces, wanted = [data], 4 + struct.unpack_from("<I", data)[0]
            if size >= wanted:
                self._left = data[wanted:]
                return data[4:wanted]

    def read_past(self, marker: bytes) -> tuple[float, list[bytes]]:
        """When the first bytes with `marker` had come, and the frames up to the one with it."""
        pieces, tail = [self._left], self._left
        while marker not in tail:
            pieces.append(self._more())
            tail = tail[-len(marker):] + pieces[-1]
        came = time.perf_counter()
        data = b"".join(pieces)
        frames, at, last = [], 0, data.index(marker)
        while at <= last:
            end = at + 4 + struct.unpack_from("<I", data, at)[0]
            while end > len(data):
                data += self._more()
            frames.append(data[at + 4:end])
            at = end
        self._left = data[at:]
        return came, frames

    def ask(self, kind: str) -> dict[str, Any]:
        """The reply to a message that has nothing but its kind."""
        self.send(encode({"source": "morva-chat", "kind": kind, "chromeRequestId": kind}))
        while (reply := json.loads(self.read_frame())).get("chromeRequestId") != kind:
            pass
        return reply

    # What the system says about the process

    def peak_memory_mb(self) -> float:
        """The most that was resident so far."""
        return self._kilobytes("status", "VmHWM") * 1024 / 1e6

    def own_memory_mb(self) -> float:
        """What is resident and shared with no other process."""
        return sum(self._kilobytes("smaps_rollup", name) * 1024 / 1e6
                   for name in ("Private_Clean", "Private_Dirty"))

    def _kilobytes(self, file: str, name: str) -> int:
        text = Path(f"/proc/{self.process.pid}/{file}").read_text()
        return int(re.search(rf"{name}:\s+(\d+) kB", text)[1])

    def sleeps(self) -> dict[str, int]:
        """By thread: how often it went to sleep so far. Being put aside for others is no sleep."""
        counts = {}
        for task in Path(f"/proc/{self.process.pid}/task").iterdir():
            text = (task / "status").read_text()
            counts[task.name] = int(re.search(r"\nvoluntary_ctxt_switches:\s+(\d+)", text)[1])
        return counts

    def close(self) -> None:
        """Ends the program as the browser does; one that waits for a connection must be killed."""
        os.close(self.stdin)
        try:
            self.process.wait(20 if self.who == HOST else 1)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        os.close(self.stdout)

    def kill(self) -> None:
        self.process.kill()
        self.close()

    def __enter__(self) -> DrivenProgram:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def load(side: Side, mode: str, *words: object, files: tuple[bytes, ...],
         program: DrivenProgram | None = None) -> tuple[list[float], bytes]:
    """Runs the native program that stands for the browser and the agent. Returns the seconds that
    it took and the last reply or answer; all were as long."""
    descriptors = (program.stdin, program.stdout) if program else ()
    with contextlib.ExitStack() as stack:
        paths = []
        for content in files:
            file = stack.enter_context(tempfile.NamedTemporaryFile())
            file.write(content)
            file.flush()
            paths.append(file.name)
        command = (side.tools / "load", mode, *descriptors, *words, *paths)
        done = subprocess.run([str(word) for word in command], check=False, capture_output=True,
                              pass_fds=descriptors)
    if done.returncode != 0:
        raise ProgramError(f"{program.who if program else mode}: {done.stderr.decode()}")
    times, _, answer = done.stdout.partition(b"\n\n")
    return [float(each) for each in times.split()], answer


def in_turns(names: Iterable[str], rounds: int,
             sample: Callable[[str], list[float]]) -> dict[str, list[float]]:
    """Samples of all programs, which take turns, so that a disturbance hits all."""
    seen: dict[str, list[float]] = {who: [] for who in names}
    for _ in range(rounds):
        for who, values in seen.items():
            values += sample(who)
    return seen


@contextlib.contextmanager
def one_core() -> Iterator[None]:
    """Keeps this process and what it starts on one core.

    On several, what counts most is whether the system wakes the far side on the same core or on
    another one, and it sticks to one or the other for as long as two processes live.
    """
    allowed = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {max(allowed)})
    try:
        yield
    finally:
        os.sched_setaffinity(0, allowed)
