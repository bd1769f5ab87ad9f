"""Which build of the host the tests run, and what differs between builds."""

import os
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT))  # for devkit

BUILD = os.environ.get("MORVA_HOST_BUILD", "windows")
IS_WINDOWS = BUILD == "windows"
IS_SANITIZED = BUILD in ("asan", "tsan")

# MORVA_BUILD_DIR is for trying out a build that is not below build/.
BUILD_DIR = Path(os.environ.get("MORVA_BUILD_DIR") or ROOT / "build" / BUILD)
PROGRAM = BUILD_DIR / ("morva-chrome-host.exe" if IS_WINDOWS else "morva-chrome-host")
CLI_NAME = "morva-viewer-cli.exe"
CLI_PROGRAM = BUILD_DIR / "cli" / CLI_NAME

# Time limits of the product are multiplied by this: a sanitizer slows every step down.
SLOWER = {"asan": 2.0, "tsan": 3.0}.get(BUILD, 1.0)

# What Chrome passes; a test that leaves it out starts the host as a person on a console would.
EXTENSION = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"


def wine_prefix():
    """The Wine prefix of this run; None without Wine. Its server must live in the network
    that the tests use."""
    from devkit.panel import wine

    if not IS_WINDOWS or wine.ON_WINDOWS:
        return None
    chosen = os.environ.get("MORVA_WINEPREFIX") or os.environ.get("WINEPREFIX")
    return Path(chosen) if chosen else wine.default_prefix()
