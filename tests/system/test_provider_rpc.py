"""What the panel asks the agent for through the host: the requests, the answers, their limits.

Each method's request and every answer of the agent are in tables of the unit tests.
"""

from typing import Any

import pytest

from support.feeding_agent import EVENTS, PROVIDERS
from support.panel_side import ACK, compact
from support.scripted_agent import CONSENT, READY, answers, holds

OK = {"ok": True, "data": {"x": [1, "ü"]}}
OPEN_FILE = "/v1/ui/open-file"
RUN = "/v1/chat/commands/run"
SESSION = "/v1/chat/session"
NOT_ON_PATH = "morva-viewer-cli.exe is not on PATH"

# method: (arguments, verb, path, body)
RELAYED: dict[str, tuple[dict[str, Any], str, str, bytes]] = {
    "getCreditInfo": ({}, "GET", "/v1/credit", b""),
    "deleteChatSession": ({"id": "a&b=c%20d\r\nX-Evil: 1 ü"}, "DELETE",
                          f"{SESSION}?id=a&b=c%20d%0D%0AX-Evil:%201%20%C3%BC", b""),
    "saveChatSession": ({"session": {"b": 1, "a": ["ü", None]}}, "POST", "/v1/chat/sessions",
                        '{"a":["ü",null],"b":1}'.encode()),
}

ASKING = [*RELAYED, "listChatSessions", "loadChatSession", "chatCommandsList", "chatSkillsList",
          "homeRecentPathsGet", "typeaheadPresetsGet", "searchStart", "rankPageModel",
          "vumboArtifactsGet", "getChatPresets", "settingsChatPresetsGet",
          "commandEventsSubscribe"]


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
    for method in ("searchCancel", "searchCancelAll"):
        assert rpc(shared_panel, method) == {"ok": True, "data": {}}
    for method in ("foo", "", "getcreditinfo", "ü"):
        assert rpc(shared_panel, method) == {
            "ok": False, "error": f"chrome host does not handle {method}"}
    # The event stream may be opened late.
    assert {e.path for e in shared_agent.exchanges[before:]} <= {EVENTS + "?after=0"}
    assert rpc(shared_panel, "commandEventsSubscribe") == {"ok": True, "data": {}}
    asked = {exchange.path for exchange in shared_agent.exchanges[before:]}
    assert READY in asked and asked <= {READY, PROVIDERS, EVENTS + "?after=0"}


@pytest.mark.off_protocol("panel")
def test_without_an_agent_every_method_says_so(panel, shared_agent):
    shared_agent.on[READY] = answers({"ready": False})
    for method in ASKING:
        assert rpc(panel, method, id="i") == {"ok": False, "error": NOT_ON_PATH}, method
    assert rpc(panel, "commandRun") == {"ok": False, "error": "morva is not running"}
    for kind in ("openPathInternal", "openPathFullscreen", "settings", "consentReply",
                 "agentReload"):
        reply = panel.ask(kind)
        assert (reply["ok"], reply["error"]) == (False, NOT_ON_PATH), kind


@pytest.mark.off_protocol("agent")
def test_a_command_goes_as_the_panel_sent_it_with_the_sender(panel, shared_agent):
    """What the agent refuses is left to the application, which does not run here."""
    command = {"id": "summarize", "arguments": ["ü"]}
    shared_agent.on[RUN] = answers(OK)
    assert rpc(panel, "commandRun", **command) == {"ok": True, "data": OK["data"]}
    panel.ask("chatSender", sender="window 1", after=3)
    shared_agent.on[RUN] = answers(b"<html>")
    assert rpc(panel, "commandRun", **command, sender="mine") == {
        "ok": False, "error": "morva is not running"}
    first, second = shared_agent.seen(RUN)
    for exchange in (first, second):
        expect_request(exchange, "POST", RUN, compact(exchange.json()))
    sent = first.json()
    assert sent.pop("chromeRequestId")
    assert sent == {"source": "morva-chat", "kind": "providerRpc", "method": "commandRun",
                    "rpcId": [7], **command}
    assert second.json()["sender"] == "window 1"


PLAIN = [("openPathFullscreen", {"path": "ü"}, OPEN_FILE, '{"fullscreen":true,"paths":["ü"]}'),
         ("settings", {}, "/v1/ui/open", '{"section":"chat"}'),
         ("consentReply", {"id": "c-1", "chromeRequestId": 5}, CONSENT,
          '{"chromeRequestId":5,"id":"c-1","source":"morva-chat"}')]


@pytest.mark.parametrize("kind,arguments,path,body", PLAIN)
def test_a_kind_posts_to_the_agent_and_gives_its_verdict(
    shared_panel, shared_agent, kind, arguments, path, body
):
    shared_agent.on[path] = answers({"ok": False, "error": "no such thing"})
    reply = shared_panel.ask(kind, **arguments)
    del reply["chromeRequestId"]
    assert reply == {**ACK, "ok": False, "error": "no such thing"}
    shared_agent.on[path] = answers({"ok": True})
    shared_panel.ask_for_ack(kind, **arguments)
    for exchange in shared_agent.seen(path):
        expect_request(exchange, "POST", path, body.encode())


# --- What is too large ---

def test_what_is_too_large_is_a_reply_that_says_so(panel, shared_agent):
    data = "x" * (3 << 20)
    shared_agent.on[f"{SESSION}?id=big"] = answers({"ok": True, "data": data})
    reply = panel.ask("providerRpc", method="loadChatSession", id="big", rpcId=1)
    whole = {**reply, "ok": True, "data": data}
    del whole["error"]
    assert (reply["ok"], reply["error"]) == (
        False, f"reply too large for the browser ({len(compact(whole))} bytes)")
    assert (reply["kind"], reply["id"], reply["rpcId"]) == ("hostProviderRpc", "big", 1)
    reply = rpc(panel, "loadChatSession", id="x" * 1_000_000)
    assert reply["ok"] is False and reply["error"].endswith("request failed")


@pytest.mark.long
def test_an_agent_that_never_answers_holds_the_panel_no_longer_than_a_read(panel, shared_agent):
    """15 s; the system under the Windows build waits twice."""
    path = "/v1/chat/sessions"
    shared_agent.on[path] = holds
    assert rpc(panel, "listChatSessions", timeout=40) == {
        "ok": False, "error": "agent request failed"}
    panel.send("providerRpc", method="listChatSessions")
    shared_agent.wait_for(path, 2)
    assert panel.end(alive=False, limit=1.0) < 10
