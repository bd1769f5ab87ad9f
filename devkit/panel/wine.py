"""How Windows programs run: under Wine, with prefixes of our own, or on Windows itself, directly.

This is the one place that decides which; on Windows there is no prefix, and no environment for one.
"""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
import time
import warnings
from pathlib import Path
from typing import Any, Iterator

import psutil

ROOT = Path(__file__).resolve().parents[2]
TEMPLATE_PREFIX = ROOT / "build" / "wine" / "prefix"

ON_WINDOWS = sys.platform == "win32"

# Debian's `wine` is a script that complains about the missing 32-bit loader; these it calls.
_LOADERS = ("/usr/lib/wine/wine64", "wine64", "wine")
_SERVERS = ("/usr/lib/wine/wineserver64", "wineserver")

_LOOK_S = 0.005  # between two looks at a program that is to end
_STUCK_S = 1.0  # so long the other threads may be there after the main thread


def _find(names: tuple[str, ...]) -> str:
    for name in names:
        if path := shutil.which(name):
            return path
    raise FileNotFoundError(f"{names[-1]} is not installed")


def loader() -> str:
    return _find(_LOADERS)


def command(program: Path | str, *arguments: Path | str) -> list[str]:
    """What starts a Windows program."""
    own = [str(program), *map(str, arguments)]
    return own if ON_WINDOWS else [loader(), *own]


def environment(prefix: Path | None) -> dict[str, str]:
    """What to add to the environment of a program that runs in `prefix`."""
    if ON_WINDOWS:
        return {}
    assert prefix is not None
    return {
        "WINEPREFIX": str(prefix.resolve()),
        "WINEDEBUG": "-all",
        "WINEDLLOVERRIDES": "mscoree,mshtml=",
    }


def default_prefix() -> Path:
    """MORVA_WINEPREFIX when set, else the prefix that `./dev setup` makes."""
    return Path(os.environ.get("MORVA_WINEPREFIX") or TEMPLATE_PREFIX)


def windows_path(path: Path) -> str:
    """The name under which a Windows program sees a path of this machine."""
    if ON_WINDOWS:
        return str(path.resolve())
    return "Z:" + str(path.resolve()).replace("/", "\\")


def make_prefix(prefix: Path, template: Path | None = None) -> None:
    """A prefix with its own registry and user folders. It shares the template's Windows folder."""
    subprocess.run(
        [ROOT / "tools" / "wine-prefix", prefix, template or TEMPLATE_PREFIX],
        check=True,
        stdin=subprocess.DEVNULL,
    )


def run(prefix: Path | None, *program: str | Path, check: bool = True, may_be_silent: bool = True,
        **options: Any) -> subprocess.CompletedProcess[bytes]:
    """Runs a Windows program to its end, again when Wine lost it (see tools/wine-run): also when it
    said nothing, unless it may be silent. `options` are those of subprocess.run."""
    silent = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL,
              "stderr": subprocess.DEVNULL, "timeout": 120}
    settings: dict[str, Any] = {"env": os.environ | environment(prefix)} | silent | options
    silence = ["--may-be-silent"] if may_be_silent else []
    runner: list[str | Path] = []
    if not ON_WINDOWS:
        runner = [ROOT / "tools" / "wine-run", *silence]
    return subprocess.run([*runner, *program], check=check, **settings)


def running(prefix: Path, part: str) -> Iterator[psutil.Process]:
    """The processes in `prefix` whose program has `part` in its path, with slashes. They are known
    by their environment, so others' are never found."""
    for process in psutil.process_iter():
        try:
            # Between a fork and the start of the program this is still the shell's command line.
            program = "".join(process.cmdline()[:1]).replace("\\", "/")
            if part in program and process.environ().get("WINEPREFIX") == str(prefix.resolve()):
                yield process
        except psutil.Error:
            pass  # it has just ended, or is somebody else's


def _main_thread_has_ended(pid: int) -> bool:
    """In no program of ours it ends before the others, unless all are ended."""
    try:
        return psutil.Process(pid).status() == psutil.STATUS_ZOMBIE
    except psutil.NoSuchProcess:
        return False  # another thread has just taken its exit code


def wait(process: subprocess.Popen[bytes], timeout: float) -> int:
    """The exit code of the Windows program that this process runs. Raises TimeoutExpired.

    This tells deaths of Wine from those of programs. A fault of a program is an exit code. Wine
    itself dies in its clean-up, when the program has ended, and loses the exit code: once in about
    a thousand ends of a signal; on a busy machine once in a hundred it waits for ever, its last
    thread for a lock that another thread held when it was ended.
    """
    if ON_WINDOWS:
        return process.wait(timeout)
    deadline = time.monotonic() + timeout
    stuck_since = None
    while (code := process.poll()) is None:
        now = time.monotonic()
        if now > deadline:
            raise subprocess.TimeoutExpired(process.args, timeout)
        if not _main_thread_has_ended(process.pid):
            stuck_since = None
        elif now > (stuck_since := stuck_since or now) + _STUCK_S:
            process.kill()
        time.sleep(_LOOK_S)
    if code >= 0:
        return code
    warnings.warn(f"Wine died of signal {-code} when its program had ended", stacklevel=3)
    return 0


def set_registry_text(prefix: Path, key: str, name: str, value: str) -> None:
    """Writes a REG_SZ value, for example below HKCU."""
    run(prefix, "reg", "add", key, "/v", name, "/t", "REG_SZ", "/d", value, "/f")


def end_server(prefix: Path) -> None:
    """Ends everything that still runs in `prefix`, which must be the caller's own, and waits.

    Sockets of Windows programs belong to the prefix's server: it must start and end with the
    network namespace that the programs are to live in.
    """
    for option in ("-k", "-w"):
        subprocess.run(
            [_find(_SERVERS), option],
            env=os.environ | environment(prefix),
            check=False,  # -k fails when no server runs, which is what we want
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            timeout=60,
        )
