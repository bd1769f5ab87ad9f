"""What the panel asks the agent for through the host: the requests, the answers, their limits.

Each method's request and every answer of the agent are in tables of the unit tests.
"""

from typing import Any

import pytest

from support.panel_side import ACK
from support.scripted_agent import CONSENT, EVENTS, READY, answers, holds

OK = {"ok": True, "data": {"x": [1, "ü"]}}
OPEN_FILE = "/v1/ui/open-file"
SESSION = "/v1/chat/session"
NOT_ON_PATH = "morva-viewer-cli.exe is not on PATH"

# method: (arguments, verb, path, body)
RELAYED: dict[str, tuple[dict[str, Any], str, str, bytes]] = {
    "deleteChatSession": ({"id": "a&b=c%20d\r\nX-Evil: 1 ü"}, "DELETE",
                          f"{SESSION}?id=a&b=c%20d%0D%0AX-Evil:%201%20%C3%BC", b""),
    "saveChatSession": ({"session": {"a": ["ü", None], "b": 1}}, "POST", "/v1/chat/sessions",
                        '{"a":["ü",null],"b":1}'.encode()),
}


def rpc(panel, method, timeout=15, **arguments):
    """The reply, without what every reply to the method must have."""
    token = panel.send("providerRpc", method=method, rpcId=[7], **arguments)
    reply = dict(panel.wait_frame(lambda f: f.get("chromeRequestId") == token, timeout=timeout))
    assert reply.pop("source") == "morva-chat"
    assert reply.pop("kind") == "hostProviderRpc"
    assert reply.pop("chromeRequestId") == token
    assert reply.pop("rpcId") == [7]
    assert reply.pop("id", None) == arguments.get("id")
    return reply


def expect_request(exchange, verb, path, body):
    assert (exchange.method, exchange.path, exchange.version) == (verb, path, "HTTP/1.1")
    assert exchange.body == body
    assert exchange.header("Content-Type") == (["application/json"] if body else [])
    assert exchange.header("User-Agent") == ["morva-chrome-host"]
    assert exchange.header("X-Evil") == []


@pytest.mark.parametrize("method", RELAYED)
def test_a_method_makes_its_request_and_relays_the_data(shared_panel, shared_agent, method):
    arguments, verb, path, body = RELAYED[method]
    shared_agent.on[path] = answers(OK)
    assert rpc(shared_panel, method, **arguments) == {"ok": True, "data": OK["data"]}
    (exchange,) = shared_agent.seen(path)
    expect_request(exchange, verb, path, body)
    shared_agent.on[path] = answers({"ok": False, "error": "busy"})
    assert rpc(shared_panel, method, **arguments) == {"ok": False, "error": "busy"}


def test_some_methods_ask_nobody(shared_panel, shared_agent):
    assert rpc(shared_panel, "commandEventsSubscribe") == {"ok": True, "data": {}}
    before = len(shared_agent.exchanges)
    assert rpc(shared_panel, "searchCancel") == {"ok": True, "data": {}}
    assert rpc(shared_panel, "ü") == {"ok": False, "error": "chrome host does not handle ü"}
    # The event stream may be opened late.
    assert {e.path for e in shared_agent.exchanges[before:]} <= {EVENTS + "?after=0"}
    too_long = rpc(shared_panel, "loadChatSession", id="x" * 1_000_000)
    assert too_long["ok"] is False and too_long["error"].endswith("request failed")


@pytest.mark.off_protocol("panel")
def test_without_an_agent_every_method_says_so(panel, shared_agent):
    shared_agent.on[READY] = answers({"ready": False})
    for method in (*RELAYED, "searchStart", "getChatPresets", "commandEventsSubscribe"):
        assert rpc(panel, method, id="i") == {"ok": False, "error": NOT_ON_PATH}, method
    assert rpc(panel, "commandRun") == {"ok": False, "error": "morva is not running"}
    for kind in ("openPathInternal", "settings", "consentReply", "agentReload"):
        reply = panel.ask(kind)
        assert (reply["ok"], reply["error"]) == (False, NOT_ON_PATH), kind


def test_a_kind_posts_to_the_agent_and_gives_its_verdict(shared_panel, shared_agent):
    shared_agent.on[CONSENT] = answers({"ok": False, "error": "no such thing"})
    reply = shared_panel.ask("consentReply", id="c-1", chromeRequestId=5)
    assert reply == {**ACK, "ok": False, "error": "no such thing", "chromeRequestId": 5}
    expect_request(shared_agent.seen(CONSENT)[-1], "POST", CONSENT,
                   b'{"chromeRequestId":5,"id":"c-1","source":"morva-chat"}')
    shared_agent.on[OPEN_FILE] = answers({"ok": True})
    shared_panel.ask_for_ack("openPathFullscreen", path="ü")
    expect_request(shared_agent.seen(OPEN_FILE)[-1], "POST", OPEN_FILE,
                   '{"fullscreen":true,"paths":["ü"]}'.encode())


@pytest.mark.long
def test_an_agent_that_never_answers_holds_the_panel_no_longer_than_a_read(panel, shared_agent):
    """15 s; the system under the Windows build waits twice."""
    shared_agent.on["/v1/chat/sessions"] = holds
    assert rpc(panel, "listChatSessions", timeout=40) == {
        "ok": False, "error": "agent request failed"}
