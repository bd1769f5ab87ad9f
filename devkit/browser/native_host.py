"""Announces the host to a browser: the native-messaging manifest in a profile's folder."""

from __future__ import annotations

import json
import shlex
import sys
from collections.abc import Mapping
from pathlib import Path

from ..panel import wine

HOST_NAME = "com.quenlark.morva.chrome"
EXTENSION = wine.ROOT / "devkit" / "extension"
# Follows from the "key" of the extension's manifest.
EXTENSION_ID = "nbbookgfggbijgcpeghdbdkddagffggl"


def announce_host(
    profile: Path, build: str, environment: Mapping[str, str], report: Path | None
) -> None:
    """Makes browsers of this profile start the host of a build with what `environment` adds.

    With a `report`, what is said against the protocol is written there. What the host writes to
    standard error goes to host-errors.txt in the profile.
    """
    folder = profile / "NativeMessagingHosts"
    folder.mkdir(parents=True)
    program = profile / "morva-chrome-host"
    errors = profile / "host-errors.txt"
    command = [*_tap(report), *_host(build, environment)]
    # A manifest names a program and nothing more, so this is one, of two lines.
    redirection = f"2>>{shlex.quote(str(errors))}"
    program.write_text(f'#!/bin/sh\nexec {shlex.join(command)} "$@" {redirection}\n')
    program.chmod(0o755)
    manifest = {
        "name": HOST_NAME,
        "description": "Native-messaging host of the morva assistant",
        "path": str(program),
        "type": "stdio",
        "allowed_origins": [f"chrome-extension://{EXTENSION_ID}/"],
    }
    (folder / f"{HOST_NAME}.json").write_text(json.dumps(manifest, indent=2))


def _tap(report: Path | None) -> list[str]:
    """What holds the frames of the command that follows it against docs/schema."""
    if report is None:
        return []
    return ["env", f"PYTHONPATH={wine.ROOT / 'devkit'}", sys.executable, "-m",
            "protocol_check.tap", str(report)]


def _host(build: str, environment: Mapping[str, str]) -> list[str]:
    program = wine.ROOT / "build" / build / "morva-chrome-host"
    command = ["env", *(f"{name}={value}" for name, value in environment.items())]
    return [*command, *wine.command(f"{program}.exe")] if build == "windows" else [
        *command, str(program)]
