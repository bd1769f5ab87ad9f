"""python3 -m protocol_check.tap REPORT COMMAND...

Starts a host, passes its standard input and output through unchanged, and appends to REPORT, a line
each, what was said against the protocol on them. It stands in a native-messaging manifest where
the host would, so that an extension can be held against docs/schema in a real browser.
"""

from __future__ import annotations

import json
import os
import struct
import subprocess
import sys
import threading
from pathlib import Path
from typing import IO

from .findings import HOST, Findings
from .host_traffic import HostTraffic

_PIECE = 1 << 16
_HEADER = struct.Struct("<I")


class Tap:
    def __init__(self, report: Path) -> None:
        self._report = report
        self._findings = Findings()
        self._traffic = HostTraffic(self._findings)
        self._pending = bytearray()

    def pass_input(self, source: int, target: IO[bytes]) -> None:
        """From the browser to the host, until the browser closes."""
        try:
            while piece := os.read(source, _PIECE):
                self._traffic.sent(piece)
                target.write(piece)
        except BrokenPipeError:
            pass  # the host has ended; its output says so
        finally:
            target.close()

    def pass_output(self, source: IO[bytes], target: int) -> None:
        """From the host to the browser, until the host ends."""
        while piece := os.read(source.fileno(), _PIECE):
            left = memoryview(piece)
            while left:
                left = left[os.write(target, left):]
            self._pending += piece
            self._look()

    def _look(self) -> None:
        while len(self._pending) >= _HEADER.size:
            (length,) = _HEADER.unpack_from(self._pending)
            end = _HEADER.size + length
            if len(self._pending) < end:
                break
            body = bytes(self._pending[_HEADER.size:end])
            del self._pending[:end]
            try:
                self._traffic.check([json.loads(body.decode("utf-8"))])
            except ValueError as error:
                self._findings.fault(HOST, f"a frame of the host is not JSON: {error}")
        self.write_report()

    def write_report(self) -> None:
        lines = [f"{finding.side}: {finding.text}\n" for finding in self._findings.take()]
        if lines:
            with self._report.open("a", encoding="utf-8") as file:
                file.writelines(lines)

    def end(self) -> None:
        self._traffic.check([])
        self.write_report()


def main(arguments: list[str]) -> int:
    if len(arguments) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    tap = Tap(Path(arguments[0]))
    host = subprocess.Popen(arguments[1:], stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)
    assert host.stdin is not None and host.stdout is not None
    inward = threading.Thread(
        target=tap.pass_input, args=(sys.stdin.fileno(), host.stdin), daemon=True)
    inward.start()
    tap.pass_output(host.stdout, sys.stdout.fileno())
    code = host.wait()
    tap.end()
    return code


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
