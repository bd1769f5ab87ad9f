"""JSON texts that take many times their size as trees, on every road into a host that cannot have
much memory: each is refused before it takes that, and the host lives.

What is refused exactly is tested in tests/unit/text.
"""

import pytest

from support import builds
from support.desktop_app import DesktopApp, announce
from support.memory import limit_memory
from support.scripted_agent import MODELS, RUN, STREAM_HEAD, answers, event_bytes, sends
from support.tool_server_client import ToolServer

from devkit.panel.frames import frame
from devkit.panel.pipe_client import PipeClient

pytestmark = [
    pytest.mark.skipif(builds.IS_SANITIZED, reason="a sanitizer takes addresses by the terabyte"),
    pytest.mark.off_protocol("panel", "pipe client", "client", "agent", "application"),
]

MIB = 1 << 20
LIMIT_MIB = 512


def many(size):
    """Values of the fewest bytes each."""
    return b"[" + b"1," * (size // 2 - 2) + b"1]"


def dear(size):
    """Values of the most memory each, for their bytes."""
    chain = b'{"a":' * 900 + b"1" + b"}" * 900
    return b"[" + (chain + b",") * (size // (len(chain) + 1) - 1) + chain + b"]"


TEXTS = {"json has too many values": many, "json takes too much memory": dear}


@pytest.fixture(scope="module")
def small_panel(launch, module_agent):
    panel = launch(env={"MALLOC_ARENA_MAX": "1"})  # else each thread takes 64 MiB of addresses
    limit_memory(panel, LIMIT_MIB)
    panel.agent = module_agent
    panel.agent.on[RUN] = answers({"ok": False, "needsUi": True})
    yield panel
    panel.end()


@pytest.fixture
def limited(small_panel, roaming):
    """The one host with little memory, and its agent; no application is announced."""
    small_panel.roaming = roaming
    yield small_panel
    small_panel.prove_alive()


def by_frame(panel, make):
    mark = panel.mark()
    panel.send_raw(frame(make(11 * MIB)))  # what can hold either text; the test looks at it too
    panel.send("poll")
    (line,) = panel.wait_event(
        "appendDebugLog", lambda args: args[0]["level"] == "error", mark, timeout=60)
    return line["text"]


def by_the_pipe(_, make):
    with PipeClient(builds.BUILD, builds.wine_prefix()) as client:
        return client.ask_raw(frame(make(16 * MIB)))["error"]["message"]


def by_a_tool_call(panel, make):
    server = ToolServer(panel)
    return server.request("POST", "/api/agent-tools/call", make(MIB), origin=None).json()["error"]


def by_an_agents_answer(panel, make):
    head = b"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n"
    panel.agent.on[MODELS] = sends(head, make(60 * MIB))
    return panel.run_turn(preset="", timeout=60).done[1]


def by_an_agents_stream(panel, make):
    panel.agent.turn(sends(STREAM_HEAD, b"data: ", make(60 * MIB), b"\n\n"))
    return panel.run_turn(timeout=60).done[1]


def by_a_feed(panel, make):
    """What a feed cannot use is passed over: the next event comes."""
    mark = panel.mark()
    panel.find_agent()
    feed = panel.agent.wait_feed()
    feed.send(b"data: " + make(60 * MIB) + b"\n\n")
    feed.send(event_bytes({"method": "next", "args": []}))
    panel.wait_event("next", since=mark, timeout=60)
    return "passed over"


def run_command(panel):
    def error():
        command = {"method": "commandRun", "rpcId": 1, "id": "open-report"}
        return panel.ask("providerRpc", timeout=60, **command)["error"]

    said = error()
    return error() if said == "cmd_ipc connect failed" else said  # the one before it is gone


def by_the_application(panel, make):
    def script(connection):
        connection.challenge()
        connection.receive()
        connection.send_frame(make(15 * MIB))

    with DesktopApp(script) as application:
        announce(panel.roaming, application.port)
        return run_command(panel)


def by_an_instance_file(panel, make):
    folder = panel.roaming / "Quenlark" / "morva-viewer" / "instances" / "run-ipc"
    folder.mkdir(parents=True)
    (folder / "a.json").write_bytes(make(MIB))
    return run_command(panel)


# What comes of each. Two take less than could break a limit.
ROADS = {
    by_frame: "frame dropped: {}", by_the_pipe: "{}", by_a_tool_call: "missing tool name",
    by_an_agents_answer: "{}", by_an_agents_stream: "{}", by_a_feed: "passed over",
    by_the_application: "cmd_ipc recv failed", by_an_instance_file: "morva is not running",
}


@pytest.mark.linux_side
@pytest.mark.parametrize("reason", TEXTS)
@pytest.mark.parametrize("road", ROADS, ids=lambda road: road.__name__)
def test_a_text_that_would_take_too_much_memory_is_refused(limited, road, reason):
    assert road(limited, TEXTS[reason]) == ROADS[road].format(reason)


@pytest.mark.linux_side
def test_two_million_plain_values_are_taken(limited):
    assert limited.ask("getStatus", timeout=60, a=[1] * 1_999_995)["ok"] is True
