"""Fixtures: the host in the build that MORVA_HOST_BUILD names, and an agent to talk to it."""

import sys

import pytest

from support import builds, protocol
from support.cli_program import CliProgram
from support.own_network import LongTests
from support.panel_side import Panel
from support.sanitizer_reports import sanitizer_environment, take_reports
from support.scripted_agent import ScriptedAgent
from support.virtual_display import VirtualDisplay

from devkit.panel import wine
from devkit.panel.host_process import HostProcess

pytest_plugins = ["support.tool_server_fixtures", "support.failing_calls"]

sys.setrecursionlimit(20_000)  # frames may be nested 1,000 levels deep


def pytest_report_header():
    return f"host: {builds.PROGRAM}"


def pytest_collection_modifyitems(items):
    skip = {
        "linux_side": (wine.ON_WINDOWS, "looks at the host by what Linux says of its process"),
        "windows_only": (not builds.IS_WINDOWS, "only the Windows build has this"),
        "posix_only": (builds.IS_WINDOWS, "only the native builds have this"),
    }
    for item in items:
        for marker, (applies, reason) in skip.items():
            if applies and item.get_closest_marker(marker):
                item.add_marker(pytest.mark.skip(reason=reason))
    items.sort(key=lambda item: item.get_closest_marker("long") is not None)


def pytest_configure(config):
    if not wine.ON_WINDOWS:  # where all share the one network
        config.pluginmanager.register(LongTests())


@pytest.fixture(scope="session")
def user_folders(tmp_path_factory):
    """Where a native host finds the per-user folders; a Windows one asks the system."""
    base = tmp_path_factory.mktemp("user")
    folders = {"APPDATA": base / "Roaming", "LOCALAPPDATA": base / "Local"}
    for folder in folders.values():
        folder.mkdir()
    return {name: str(folder) for name, folder in folders.items()}


@pytest.fixture(scope="session")
def launch(user_folders):
    """launch(args=..., env=...) starts a host and sees to nothing else."""

    def start(args=None, env=None, greet=True):
        environment = {**sanitizer_environment(), **(env or {})}
        if not builds.IS_WINDOWS:
            environment = {**user_folders, **environment}
        host = HostProcess(builds.BUILD, args, environment, builds.wine_prefix(), builds.PROGRAM,
                           greet)
        protocol.watch(host)
        return Panel(host.start())

    return start


@pytest.fixture
def start_panel(launch, request):
    """As `launch`; what a test leaves running must end in order when the test is over."""
    if "cli" in request.fixturenames:
        request.getfixturevalue("cli")  # looks for agents that are left when the hosts have ended
    panels = []

    def start(**options):
        panels.append(launch(**options))
        return panels[-1]

    yield start
    try:
        for panel in panels:
            if panel.host.running:
                panel.end()
    finally:
        for panel in panels:
            panel.host.kill()
            panel.check_stream()


@pytest.fixture
def panel(start_panel):
    """A host of the test's own, started as Chrome starts it."""
    return start_panel()


@pytest.fixture(scope="module")
def module_panels(launch):
    """The host that the tests of one module share, and a new one after one that died."""
    panels = []
    yield panels
    if panels:
        panels[-1].end()


@pytest.fixture
def shared_panel(module_panels, launch):
    """For tests that leave the host as they found it: starting one for each would take minutes."""
    if not module_panels or not module_panels[-1].host.running:
        module_panels.append(launch())
    return module_panels[-1]


@pytest.fixture
def agent():
    """An agent on port 8090 that answers every turn with "hello"."""
    with ScriptedAgent() as listening:
        yield listening


@pytest.fixture(scope="module")
def module_agent():
    with ScriptedAgent() as listening:
        yield listening


@pytest.fixture
def shared_agent(module_agent):
    """One agent for a whole module: the host keeps to the port that it knows."""
    handlers = dict(module_agent.on)
    module_agent.cancelled.clear()
    yield module_agent
    module_agent.on = handlers


@pytest.fixture(scope="session")
def display():
    """A screen for those whose programs show windows."""
    if wine.ON_WINDOWS:
        pytest.skip("the tests drive windows by an X server")
    with VirtualDisplay() as shown:
        yield shown


@pytest.fixture
def cli(tmp_path):
    """The program that the host starts an agent with: none outlives its host."""
    program = CliProgram(tmp_path)
    yield program
    try:
        program.wait_until_gone()
    finally:
        program.end()


@pytest.fixture(autouse=True)
def speaks_the_protocol(request):
    """Whatever is said while a test runs must satisfy docs/schema (see support/protocol.py)."""
    yield
    allowed = [side for mark in request.node.iter_markers("off_protocol") for side in mark.args]
    faults = protocol.faults_of_test(allowed)
    if faults:
        text = "\n".join([f"{len(faults)} against the protocol:", *faults[:20]])
        pytest.fail(text, pytrace=False)


@pytest.fixture(autouse=True)
def no_sanitizer_report():
    """Whatever a sanitizer reports while a test runs fails that test."""
    yield
    reports = take_reports() if builds.IS_SANITIZED else ""
    assert not reports, reports[:20_000]
