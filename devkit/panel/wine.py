"""Wine: where it is, what environment it wants, prefixes of our own, values in their registry."""

from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
TEMPLATE_PREFIX = ROOT / "build" / "wine" / "prefix"

# Debian's `wine` is a script that complains about the missing 32-bit loader; these it calls.
_LOADERS = ("/usr/lib/wine/wine64", "wine64", "wine")
_SERVERS = ("/usr/lib/wine/wineserver64", "wineserver")


def _find(names: tuple[str, ...]) -> str:
    for name in names:
        if path := shutil.which(name):
            return path
    raise FileNotFoundError(f"{names[-1]} is not installed")


def loader() -> str:
    return _find(_LOADERS)


def environment(prefix: Path) -> dict[str, str]:
    """What to add to the environment of a program that runs in `prefix`."""
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
    return "Z:" + str(path.resolve()).replace("/", "\\")


def make_prefix(prefix: Path, template: Path | None = None) -> None:
    """A prefix with its own registry and user folders. It shares the template's Windows folder."""
    subprocess.run(
        [ROOT / "tools" / "wine-prefix", prefix, template or TEMPLATE_PREFIX],
        check=True,
        stdin=subprocess.DEVNULL,
    )


def run(prefix: Path, *command: str | Path, check: bool = True, may_be_silent: bool = True,
        **options: Any) -> subprocess.CompletedProcess[bytes]:
    """Runs a Windows program to its end, again when Wine lost it (see tools/wine-run): also when it
    said nothing, unless it may be silent. `options` are those of subprocess.run."""
    silent = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL,
              "stderr": subprocess.DEVNULL, "timeout": 120}
    settings: dict[str, Any] = {"env": os.environ | environment(prefix)} | silent | options
    silence = ["--may-be-silent"] if may_be_silent else []
    return subprocess.run([ROOT / "tools" / "wine-run", *silence, *command], check=check,
                          **settings)


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
