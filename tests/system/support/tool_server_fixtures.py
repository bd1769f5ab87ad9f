"""Fixtures for the tool server: a host that serves, and its data folder, empty."""

import os
import shutil
from pathlib import Path

import pytest

from support import builds
from support.tool_server_client import ToolServer, WorkFolder

from devkit.panel import wine


def roaming_folder(user_folders):
    """Where the host keeps its folder: as we see it, and as the host sees it."""
    if not builds.IS_WINDOWS:
        return Path(user_folders["APPDATA"]), user_folders["APPDATA"]
    if wine.ON_WINDOWS:
        return Path(os.environ["APPDATA"]), os.environ["APPDATA"]
    users = builds.wine_prefix() / "drive_c" / "users"
    user = os.environ.get("USER") or os.environ.get("LOGNAME") or "root"
    if not (users / user).is_dir():
        user = next(each.name for each in users.iterdir() if each.name != "Public")
    return users / user / "AppData" / "Roaming", f"C:\\users\\{user}\\AppData\\Roaming"


def empty(folder):
    if folder.is_file():
        folder.unlink()
    folder.mkdir(parents=True, exist_ok=True)
    for each in folder.iterdir():
        if each.is_dir() and not each.is_symlink():
            shutil.rmtree(each)
        else:
            each.unlink()


@pytest.fixture
def roaming(user_folders):
    """%APPDATA% with nothing of ours in it: no announced application, no data folder."""
    folder = roaming_folder(user_folders)[0]
    empty(folder / "Quenlark")
    (folder / "Quenlark").rmdir()
    yield folder
    empty(folder / "Quenlark")


@pytest.fixture
def work(user_folders):
    """The host's data folder, with nothing in it."""
    folder = WorkFolder(*roaming_folder(user_folders))
    empty(folder.local)
    yield folder
    empty(folder.local)


@pytest.fixture
def server(shared_panel):
    """The tool server of the module's host; it must still be well when the test is over."""
    serving = ToolServer(shared_panel)
    yield serving
    serving.is_well()


@pytest.fixture
def own_server(panel):
    """The tool server of a host of the test's own."""
    return ToolServer(panel)
