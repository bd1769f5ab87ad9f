"""The thread that takes the frames which the host writes."""

from __future__ import annotations

import json
import os
import select
import threading
import time
from collections.abc import Callable
from typing import IO, Any

from . import wine
from .frames import FrameSplitter

_PIECE = 1 << 20


class OutputReader(threading.Thread):
    """Reads until the far end closes. `frames`, `bodies` and `arrivals` belong together."""

    def __init__(self, stream: IO[bytes]) -> None:
        super().__init__(name="host output", daemon=True)
        self.frames: list[Any] = []
        self.bodies: list[bytes] = []
        self.arrivals: list[float] = []
        self.fault = ""
        self.ended = False
        self._stream = stream
        self._splitter = FrameSplitter()
        self._changed = threading.Condition()
        self._may_read = threading.Event()
        self._may_read.set()
        self._taking = threading.Lock()  # held while bytes are taken; pause() waits for it

    def pause(self) -> None:
        """When it returns, no further byte is taken."""
        with self._taking:
            self._may_read.clear()

    def resume(self) -> None:
        self._may_read.set()

    def wait_for_more(self, count: int, timeout: float) -> bool:
        """Waits until there are more than `count` frames. False: time is up or none will come."""
        with self._changed:
            self._changed.wait_for(
                lambda: len(self.frames) > count or self.ended or self.fault, max(timeout, 0)
            )
            return len(self.frames) > count

    def forget(self, predicate: Callable[[Any], bool]) -> None:
        """Removes the first frame that fits."""
        with self._changed:
            for index, candidate in enumerate(self.frames):
                if predicate(candidate):
                    del self.frames[index], self.bodies[index], self.arrivals[index]
                    return

    def run(self) -> None:
        with self._stream:
            while piece := self._take():
                self._keep(self._splitter.feed(piece))
        with self._changed:
            if self._splitter.leftover and not self.fault:
                self.fault = f"the output ends within a frame: {self._splitter.leftover[:80]!r}"
            self.ended = True
            self._changed.notify_all()

    def _take(self) -> bytes:
        while True:
            self._may_read.wait()
            ready = self._has_bytes()
            with self._taking:
                if ready and self._may_read.is_set():
                    return os.read(self._stream.fileno(), _PIECE)

    def _has_bytes(self) -> bool:
        """Whether a read returns at once; waits a moment for that."""
        if not wine.ON_WINDOWS:
            return bool(select.select([self._stream], [], [], 0.5)[0])
        import _winapi  # select() takes nothing but sockets there
        import msvcrt
        try:
            handle = msvcrt.get_osfhandle(self._stream.fileno())  # type: ignore[attr-defined]
            if _winapi.PeekNamedPipe(handle, 0)[0] > 0:  # type: ignore[attr-defined]
                return True
        except BrokenPipeError:
            return True  # the end
        time.sleep(0.001)
        return False

    def _keep(self, bodies: list[bytes]) -> None:
        if not bodies:
            return
        now = time.monotonic()
        with self._changed:
            for body in bodies:
                try:
                    parsed = json.loads(body.decode("utf-8"))
                    self.bodies.append(body)
                    self.arrivals.append(now)
                    self.frames.append(parsed)  # last: who sees a frame sees the rest of it
                except ValueError as error:
                    self.fault = self.fault or f"a frame is not JSON ({error}): {body[:80]!r}"
            self._changed.notify_all()
