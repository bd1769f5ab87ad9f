"""The files that announce a running application."""

from __future__ import annotations

import json
import os
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from protocol_check.findings import APPLICATION

from .command_channel import FINDINGS

_FOLDER = Path("Quenlark") / "morva-viewer" / "instances" / "run-ipc"

# Windows numbers its processes in steps of four. A program under Wine does not see ours, but those
# of Wine's own services, which have low numbers: one file for each that one of them may have.
_NUMBERS_UNDER_WINE = range(4, 400, 4)


@contextmanager
def announced(
    appdata: Path, port: int, token: str, started_unix_ms: int, under_wine: bool
) -> Iterator[None]:
    """Announces the application for as long as it is entered."""
    folder = appdata / _FOLDER
    folder.mkdir(parents=True, exist_ok=True)
    written = []
    try:
        for pid in _NUMBERS_UNDER_WINE if under_wine else (os.getpid(),):
            path = folder / f"standin-{os.getpid()}-{pid}.json"
            instance = {"kind": "ui", "transport": "tcp", "pid": pid, "endpoint": str(port),
                        "token": token, "startedUnixMs": started_unix_ms}
            FINDINGS.message(APPLICATION, "application", "instanceFile", instance)
            path.write_text(json.dumps(instance))
            written.append(path)
        yield
    finally:
        for path in written:
            path.unlink(missing_ok=True)
