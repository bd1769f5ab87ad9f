"""Fixtures: a native host one of whose calls of the system fails."""

import subprocess
from pathlib import Path

import pytest


@pytest.fixture(scope="session")
def failing_calls(tmp_path_factory):
    """A library that makes calls of the system fail."""
    source = Path(__file__).with_suffix(".cpp")
    library = tmp_path_factory.mktemp("failing") / "failing_calls.so"
    subprocess.run(["clang++", "-std=c++20", "-shared", "-fPIC", "-O1", "-o", library, source],
                   check=True)
    return library


@pytest.fixture
def start_failing(start_panel, failing_calls):
    """start_failing(call, switch): from the beginning, or while the file `switch` exists."""
    def start(call, switch=None, **env):
        return start_panel(env={
            "LD_PRELOAD": str(failing_calls), "MORVA_FAILING_CALL": call, **env,
            **({"MORVA_FAILING_FROM": str(switch)} if switch else {})})

    return start
