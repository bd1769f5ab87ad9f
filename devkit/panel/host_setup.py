"""What a host of the demo runs in: a Wine prefix, and a place where it finds the program."""

from __future__ import annotations

import os
import shutil
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from . import wine

_REGISTRATION = r"HKCU\Software\Google\Chrome\NativeMessagingHosts\com.quenlark.morva.chrome"


@contextmanager
def demo_prefix(build: str) -> Iterator[Path | None]:
    """A Wine prefix for one run of the demo; None for a build that runs without Wine.

    It is a copy of the one that `./dev setup` made, so that the sockets of its programs belong to
    this network namespace and nothing stays behind. MORVA_WINEPREFIX is used as it is instead.
    """
    if build != "windows":
        yield None
        return
    if os.environ.get("MORVA_WINEPREFIX"):
        yield wine.default_prefix()
        return
    prefix = wine.TEMPLATE_PREFIX.parent / f"demo-{os.getpid()}"
    wine.make_prefix(prefix, wine.TEMPLATE_PREFIX)
    try:
        yield prefix
    finally:
        wine.end_server(prefix)
        shutil.rmtree(prefix, ignore_errors=True)


def offer_program(build: str, prefix: Path | None) -> dict[str, str]:
    """Puts the stand-in program where the host looks; what to add to the host's environment."""
    program = wine.ROOT / "build" / build / "cli" / "morva-viewer-cli.exe"
    if not program.is_file():
        raise FileNotFoundError(f"{program} has not been built")
    if prefix is None:
        return {"PATH": f"{program.parent}{os.pathsep}{os.environ['PATH']}"}
    wine.set_registry_text(prefix, _REGISTRATION, "cli", wine.windows_path(program))
    return {}


def roaming_folder(prefix: Path | None, own: Path) -> Path:
    """The host's %APPDATA%. A build that runs without Wine is to be given `own` as that."""
    if prefix is None:
        return own
    users = prefix / "drive_c" / "users"
    user = next(each for each in users.iterdir() if each.name != "Public")
    return user / "AppData" / "Roaming"
