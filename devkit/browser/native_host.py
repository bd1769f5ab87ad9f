"""Announces the host to a browser: the native-messaging manifest in a profile's folder."""

from __future__ import annotations

import json
import shlex
from collections.abc import Mapping
from pathlib import Path

from ..panel import wine

HOST_NAME = "com.quenlark.morva.chrome"
EXTENSION = wine.ROOT / "devkit" / "extension"
# Follows from the "key" of the extension's manifest.
EXTENSION_ID = "nbbookgfggbijgcpeghdbdkddagffggl"


def announce_host(profile: Path, build: str, environment: Mapping[str, str]) -> Path:
    """Makes browsers of this profile start the host of a build with what `environment` adds.

    Gives the file to which everything goes that the host writes to standard error.
    """
    folder = profile / "NativeMessagingHosts"
    folder.mkdir(parents=True)
    errors = profile / "host-errors.txt"
    program = profile / "morva-chrome-host"
    program.write_text(_wrapper(build, environment, errors))
    program.chmod(0o755)
    manifest = {
        "name": HOST_NAME,
        "description": "Native-messaging host of the morva assistant",
        "path": str(program),
        "type": "stdio",
        "allowed_origins": [f"chrome-extension://{EXTENSION_ID}/"],
    }
    (folder / f"{HOST_NAME}.json").write_text(json.dumps(manifest, indent=2))
    return errors


def _wrapper(build: str, environment: Mapping[str, str], errors: Path) -> str:
    """A script of two lines, since a manifest names a program and nothing more."""
    program = wine.ROOT / "build" / build / "morva-chrome-host"
    command = ["env", *(f"{name}={value}" for name, value in environment.items())]
    if build == "windows":
        command += [wine.loader(), f"{program}.exe"]
    else:
        command += [str(program)]
    return f'#!/bin/sh\nexec {shlex.join(command)} "$@" 2>>{shlex.quote(str(errors))}\n'
