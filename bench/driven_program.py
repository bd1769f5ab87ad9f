"""Starts a program as the browser does and speaks frames with it, adding as little as can be.

Raw descriptors, no threads, no parsing: what is measured should be the program.
"""

from __future__ import annotations

import json
import os
import re
import shutil
import struct
import subprocess
import time
from dataclasses import dataclass, field
from pathlib import Path

from devkit.panel import wine

BROWSER_ARGUMENTS = ("chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/", "--parent-window=0")
READ_BYTES = 1024 * 1024
START_ATTEMPTS = 3


class ProgramError(Exception):
    """A program ended or answered in a way that makes its figures worthless."""


@dataclass
class Side:
    """One way to build and run the programs: natively, or for Windows under Wine."""

    name: str
    folder: Path
    prefix: Path | None = None
    environment: dict[str, str] = field(default_factory=dict)

    def __post_init__(self) -> None:
        self.environment = os.environ | self.environment
        if self.prefix is not None:
            self.environment |= wine.environment(self.prefix)

    def program(self, name: str) -> Path:
        suffix = ".exe" if self.prefix is not None else ""
        inside = "" if name.startswith("morva") else "bench"
        return self.folder / inside / (name + suffix)

    def command(self, name: str, arguments: tuple[str, ...]) -> list[str]:
        command = [str(self.program(name)), *arguments]
        if self.prefix is None:
            return command
        fixed_layout = [setarch, "-R"] if (setarch := shutil.which("setarch")) else []
        return [*fixed_layout, wine.loader(), *command]

    def libraries(self, name: str) -> set[str]:
        """The system libraries that the loader brings in for a program."""
        command, pattern = ["readelf", "-d"], r"\(NEEDED\).*\[(.*)\]"
        if self.prefix is not None:
            command, pattern = ["x86_64-w64-mingw32-objdump", "-p"], r"DLL Name: (\S+)"
        shown = subprocess.run([*command, str(self.program(name))], check=True,
                               capture_output=True, text=True)
        return set(re.findall(pattern, shown.stdout))


def encode(message: dict) -> bytes:
    body = json.dumps(message, separators=(",", ":")).encode()
    return struct.pack("<I", len(body)) + body


class DrivenProgram:
    """One run of a program. With `first` its first frame lies in the pipe when it starts."""

    def __init__(
        self, side: Side, name: str, arguments: tuple[str, ...] = BROWSER_ARGUMENTS,
        first: bytes = b"",
    ) -> None:
        self.name = f"{name} ({side.name})"
        command = side.command(name, arguments)
        for attempt in range(START_ATTEMPTS):
            self._spawn(command, side.environment, first)
            if not first:
                return
            try:
                self.first_reply = self.read_frame()
                self.first_reply_s = time.perf_counter() - self.started
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
        self.started = time.perf_counter()
        self.process = subprocess.Popen(
            command, stdin=child_in, stdout=child_out, stderr=subprocess.DEVNULL, env=environment
        )
        os.close(child_in)
        os.close(child_out)

    @property
    def pid(self) -> int:
        return self.process.pid

    def send(self, frame: bytes) -> None:
        left = memoryview(frame)
        while left:
            left = left[os.write(self.stdin, left):]

    def _more(self) -> bytes:
        piece = os.read(self.stdout, READ_BYTES)
        if not piece:
            raise ProgramError(f"{self.name}: the output ended")
        return piece

    def read_frame(self) -> bytes:
        data = self._left
        while len(data) < 4 or len(data) < 4 + struct.unpack_from("<I", data)[0]:
            data += self._more()
        end = 4 + struct.unpack_from("<I", data)[0]
        self._left = data[end:]
        return data[4:end]

    def read_until(self, marker: bytes) -> bytes:
        """Everything up to and with the frame that ends with `marker`."""
        pieces = [self._left]
        tail = self._left
        while marker not in tail:
            piece = self._more()
            pieces.append(piece)
            tail = tail[-len(marker):] + piece
        data = b"".join(pieces)
        end = data.rindex(marker) + len(marker)
        self._left = data[end:]
        return data[:end]

    def round_trip_s(self, frame: bytes) -> float:
        begin = time.perf_counter()
        os.write(self.stdin, frame)
        self.read_frame()
        return time.perf_counter() - begin

    # What the system says about the process

    def peak_memory_mib(self) -> float:
        status = Path(f"/proc/{self.pid}/status").read_text()
        return int(re.search(r"VmHWM:\s+(\d+) kB", status)[1]) / 1024

    def sleeps(self) -> dict[str, int]:
        """By thread: how often it went to sleep so far. Being put aside for others is no sleep."""
        counts = {}
        for task in Path(f"/proc/{self.pid}/task").iterdir():
            status = (task / "status").read_text()
            counts[task.name] = int(re.search(r"\nvoluntary_ctxt_switches:\s+(\d+)", status)[1])
        return counts

    def cpu_s(self) -> float:
        """Processor time of all its threads so far, in steps of 10 ms."""
        after_name = Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(after_name[11]) + int(after_name[12])) / os.sysconf("SC_CLK_TCK")

    def close(self) -> None:
        """Ends the program as the browser does."""
        os.close(self.stdin)
        try:
            self.process.wait(20)
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
