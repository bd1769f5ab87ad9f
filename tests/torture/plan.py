"""What fails next in the program that is being tortured: the file that it shares with its driver,
laid out as failure_plan.h says."""

from __future__ import annotations

import ctypes
import functools
import mmap
import re
import subprocess
from dataclasses import dataclass
from pathlib import Path

KINDS = {"memory": 1, "services": 2}

# The JSON library's destructor takes memory to hold what it is to destroy; where there is none it
# ends the program, and nobody can help it.
SPARED = re.compile(r"json_value::destroy\(|basic_json<.*>::~basic_json\(\)$")

OF_EVERY_THREAD = re.compile("detached.cpp|threads_posix.cpp|failing_")


class _Range(ctypes.Structure):
    _fields_ = [("begin", ctypes.c_uint64), ("end", ctypes.c_uint64)]


class _Layout(ctypes.Structure):
    _fields_ = [
        *[(name, ctypes.c_uint64) for name in (
            "armed", "run", "times_per_stack", "stride", "phase", "calls", "failures", "detail")],
        ("name", ctypes.c_char * 64), ("depth", ctypes.c_uint64), ("stack", ctypes.c_uint64 * 64),
        ("spared_count", ctypes.c_uint64), ("spared", _Range * 64),
        ("tried", ctypes.c_uint64 * 65536), ("seen", ctypes.c_uint64 * (3 * 16384))]


@dataclass
class Failure:
    """A call that failed."""

    name: str
    detail: int  # bytes asked for, or a descriptor
    stack: list[int]


@dataclass
class Sample:
    """Of so many places one is tried; later calls from one stack are no places of their own."""

    stride: int = 1
    phase: int = 0
    times_per_stack: int = 1


class Plan:
    def __init__(self, path: Path, program: Path):
        self.path, self.program = path, program
        path.write_bytes(bytes(ctypes.sizeof(_Layout)))
        with open(path, "r+b") as file:
            self._file = mmap.mmap(file.fileno(), 0)
        self._plan = _Layout.from_buffer(self._file)
        for number, (begin, end) in enumerate(_spared_code(program)):
            self._plan.spared[number] = _Range(begin, end)
            self._plan.spared_count = number + 1

    def forget(self):
        """What has been tried may be tried again."""
        ctypes.memset(ctypes.addressof(self._plan.tried), 0, ctypes.sizeof(self._plan.tried))

    def arm(self, kind: str, sample: Sample):
        plan = self._plan
        plan.run += 1
        plan.times_per_stack, plan.stride = sample.times_per_stack, sample.stride
        plan.phase, plan.calls, plan.failures = sample.phase, 0, 0
        plan.armed = KINDS[kind]

    def disarm(self) -> Failure | None:
        """What has failed since the arming."""
        self._plan.armed = 0
        return self.failure

    def clear(self):
        """As if nothing had failed."""
        self._plan.failures = 0

    @property
    def calls(self) -> int:
        """Those that could have failed since the arming, up to the one that did."""
        return self._plan.calls

    @property
    def failure(self) -> Failure | None:
        plan = self._plan
        if not plan.failures:
            return None
        return Failure(plan.name.decode(), plan.detail, list(plan.stack[:plan.depth]))

    def story(self, failure: Failure) -> str:
        """Where it was, for a person."""
        calls = [f"0x{address - 1:x}" for address in failure.stack if address]
        done = subprocess.run(
            ["llvm-symbolizer", "--obj", self.program, "--no-demangle", "--output-style=GNU",
             "--pretty-print", "--basenames", *calls],
            capture_output=True, text=True, check=True)
        lines = [line.rpartition(" at ") for line in done.stdout.splitlines()]
        places = [place for _, _, place in lines if re.search(r"\.cpp:[1-9]|yyjson", place)]
        return f"{failure.name}({failure.detail}) " + " < ".join(
            place for place in places if not OF_EVERY_THREAD.match(place))


@functools.cache
def _spared_code(program: Path) -> list[tuple[int, int]]:
    done = subprocess.run(["nm", "-CS", "--defined-only", program], capture_output=True, text=True,
                          check=True)
    found = []
    for line in done.stdout.splitlines():
        address, size, *rest = line.split(" ", 3)
        if len(rest) == 2 and SPARED.search(rest[1]):
            found.append((int(address, 16), int(address, 16) + int(size, 16)))
    assert found, "the code that is to be spared is not found"
    return found
