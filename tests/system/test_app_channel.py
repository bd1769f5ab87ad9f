"""Commands that the desktop application runs: proving who we are, each kind of end.

Finding it, and every fault of an exchange, is tested in tests/unit/app_ipc.
"""

import json
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

from support import builds
from support.desktop_app import PROOF, TOKEN, Connection, DesktopApp, announce, replies
from support.panel_side import compact
from support.scripted_agent import READY, RUN, answers
from support.tool_server_client import ToolServer
from support.waiting import until

RECV_FAILED = "cmd_ipc recv failed"


@pytest.fixture
def leaving_agent(shared_agent):
    """An agent that leaves every command to the application."""
    shared_agent.on[RUN] = answers({"ok": False, "needsUi": True})
    return shared_agent


@pytest.fixture
def app(roaming, leaving_agent):
    with DesktopApp() as application:
        announce(roaming, application.port)
        yield application


def run(panel, timeout=20, **keys):
    """Runs a command and gives the reply without what every reply has."""
    command = {"method": "commandRun", "rpcId": 1, "id": "open-report", **keys}
    reply = panel.ask("providerRpc", timeout=timeout, **command)
    for key in ("source", "chromeRequestId", "rpcId", "kind", *({"id"} - keys.keys())):
        del reply[key]
    return reply


def failed(text):
    return {"ok": False, "error": text}


def test_the_application_gets_the_command_and_a_proof_but_never_the_token(panel, app):
    panel.ask("chatSender", sender="window 1")
    app.script = replies({"ok": True, "data": {"opened": ["ü"]}})
    assert run(panel, id="open-view", arguments={"b": 1, "a": "ü"}) == {
        "ok": True, "data": {"opened": ["ü"]}, "id": "open-view"}
    (body,) = app.requests
    sent = json.loads(body)
    assert body == compact(sent)
    token = sent["request"].pop("chromeRequestId")
    assert token and sent == {
        "action": "command_run", "proof": PROOF,
        "request": {"source": "morva-chat", "kind": "providerRpc", "method": "commandRun",
                    "rpcId": 1, "id": "open-view", "arguments": {"b": 1, "a": "ü"},
                    "sender": "window 1"}}
    assert TOKEN.lower().encode() not in body.lower()
    ToolServer(panel).is_well()  # which uses sockets too


def test_without_an_agent_the_application_is_asked(panel, app, leaving_agent):
    leaving_agent.on[READY] = answers({"ready": False})
    assert run(panel) == {"ok": True, "data": {}}


ENDS = [
    (replies({"ok": False, "error": "no window"}), "no window"),
    (replies([1]), "commandRun failed"),
    (lambda connection: connection.send(b"\x10"), RECV_FAILED),
    (lambda connection: connection.send(b"\x01\x00\x00\x01"), "cmd_ipc frame too large"),
]


@pytest.mark.off_protocol("application")
def test_each_end_of_an_exchange_has_its_reply(panel, app):
    for app.script, error in ENDS:
        assert run(panel) == failed(error)


def test_a_large_command_goes_whole(panel, app):
    text = "ü" * 1_500_000
    assert run(panel, text=text)["ok"] is True
    assert json.loads(app.requests[0])["request"]["text"] == text


def test_the_application_is_found_when_it_has_come_and_missed_when_it_has_gone(
        panel, roaming, leaving_agent):
    assert run(panel) == failed("morva is not running")
    with DesktopApp() as app:
        announce(roaming, app.port)
        assert run(panel)["ok"] is True
    assert run(panel) == failed("cmd_ipc connect failed")


def test_an_application_that_hangs_does_not_hold_up_the_end(panel, app):
    app.script = Connection.wait_for_host
    panel.send("providerRpc", method="commandRun", id="open-report")
    until(lambda: app.connections, "the application is not asked", 10)
    panel.end(alive=False, limit=1.0)


def drips(connection):
    for byte in b"\x10\0\0\0{":
        connection.send(bytes([byte]))
        time.sleep(9)


@pytest.mark.long
def test_an_application_that_is_silent_or_drips_is_left(start_panel, app):
    panels = [start_panel(), start_panel()]
    for panel in panels:
        assert run(panel)["ok"] is True  # it knows its agent now

    def leave(panel, least, most):
        began = time.monotonic()
        assert run(panel, timeout=60) == failed(RECV_FAILED)
        assert least <= time.monotonic() - began <= most * builds.SLOWER

    is_played = threading.Event()

    def script(connection):
        is_played.set()
        connection.wait_for_host()

    app.script = script
    with ThreadPoolExecutor(1) as threads:
        first = threads.submit(leave, panels[0], 14, 17)
        assert is_played.wait(10)
        app.script = drips
        leave(panels[1], 29, 32)
        first.result()
