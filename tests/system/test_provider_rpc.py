"""What the panel asks the agent for through the host: each request byte for byte, each answer."""

import itertools
import json

import pytest

from support.panel_side import compact
from support.scripted_agent import CONSENT, MODELS, READY, answers, holds

OK = {"ok": True, "data": {"x": [1, "ü"]}}
OPEN_FILE = "/v1/ui/open-file"
OPEN = "/v1/ui/open"
RUN = "/v1/chat/commands/run"
PROVIDERS = "/v1/host-tool-providers"
EVENTS = "/v1/chat/events?after=0"

# (arguments, verb, path, body)
RELAYED = {
    "getCreditInfo": ({}, "GET", "/v1/credit", b""),
    "listChatSessions": ({}, "GET", "/v1/chat/sessions", b""),
    "loadChatSession": ({"id": "s-1"}, "GET", "/v1/chat/session?id=s-1", b""),
    "loadChatSession without id": ({}, "GET", "/v1/chat/session?id=", b""),
    "loadChatSession as it came": ({"id": "a&b=c%20d+e"}, "GET",
                                   "/v1/chat/session?id=a&b=c%20d+e", b""),
    "saveChatSession": ({"session": {"b": 1, "a": ["ü", None]}}, "POST", "/v1/chat/sessions",
                        '{"a":["ü",null],"b":1}'.encode()),
    "saveChatSession with a text": ({"session": "s"}, "POST", "/v1/chat/sessions", b'"s"'),
    "saveChatSession without one": ({}, "POST", "/v1/chat/sessions", b"null"),
    "deleteChatSession": ({"id": "s-1"}, "DELETE", "/v1/chat/session?id=s-1", b""),
    "chatCommandsList": ({}, "GET", "/v1/chat/commands", b""),
    "chatSkillsList": ({}, "GET", "/v1/chat/skills", b""),
    "chatSkillsList with an empty folder": ({"cwd": ""}, "GET", "/v1/chat/skills", b""),
    "chatSkillsList with a folder": ({"cwd": "C:\\Work Dir"}, "GET",
                                     "/v1/chat/skills?cwd=C%3A%5CWork%20Dir", b""),
    "chatSkillsList of any characters": ({"cwd": "aZ09-._~/ü\r\n&"}, "GET",
                                         "/v1/chat/skills?cwd=aZ09-._~%2F%C3%BC%0D%0A%26", b""),
    "homeRecentPathsGet": ({}, "GET", "/v1/chat/recent-paths", b""),
    "typeaheadPresetsGet": ({}, "GET", "/v1/chat/typeahead-presets", b""),
    "searchStart": (
        {"query": "re", "headLimit": 20, "inputs": [{"path": "/a"}], "user": {"scopes": ["f"]}},
        "POST", "/v1/chat/search-names",
        b'{"headLimit":20,"inputs":[{"path":"/a"}],"query":"re","scopes":["f"]}'),
    "searchStart without the optional": (
        {"query": "re", "headLimit": 5}, "POST", "/v1/chat/search-names",
        b'{"headLimit":5,"query":"re"}'),
    "searchStart with wrong types": (
        {"query": "re", "headLimit": 5, "inputs": {"a": 1}, "user": [1]}, "POST",
        "/v1/chat/search-names", b'{"headLimit":5,"query":"re"}'),
    "rankPageModel": ({"query": "q", "model": {"a": 1}, "topK": 5}, "POST",
                      "/v1/browser/page-model/rank", b'{"model":{"a":1},"query":"q","topK":5}'),
    "rankPageModel with a fraction": ({"topK": 2.5}, "POST", "/v1/browser/page-model/rank",
                                      b'{"topK":2.5}'),
    "rankPageModel with wrong types": ({"query": 5, "model": [], "topK": "5"}, "POST",
                                       "/v1/browser/page-model/rank", b"{}"),
    "vumboArtifactsGet": ({}, "GET", "/v1/chat/vumbo-artifacts", b""),
    "vumboArtifactsGet with 0": ({"limit": 0}, "GET", "/v1/chat/vumbo-artifacts", b""),
    "vumboArtifactsGet with -1": ({"limit": -1}, "GET", "/v1/chat/vumbo-artifacts", b""),
    "vumboArtifactsGet with 1": ({"limit": 1}, "GET", "/v1/chat/vumbo-artifacts?limit=1", b""),
    "vumboArtifactsGet with 25": ({"limit": 25}, "GET", "/v1/chat/vumbo-artifacts?limit=25", b""),
}

# What the agent answers, and the reply's "data" or its "error".
ANSWERS = {
    "data": (answers(OK), True, OK["data"]),
    "no data": (answers({"ok": True}), True, {}),
    "data of another type": (answers({"ok": True, "data": [1]}), True, [1]),
    "null data": (answers({"ok": True, "data": None}), True, None),
    "an empty body": (answers(b""), False, "agent request failed"),
    "no JSON": (answers(b"{nope"), False, "agent request failed"),
    "no object": (answers([1]), False, "agent request failed"),
    "ok missing": (answers({"data": {}}), False, "agent request failed"),
    "ok of another type": (answers({"ok": 1}), False, "agent request failed"),
    "ok false": (answers({"ok": False, "error": "busy"}), False, "busy"),
    "error of another type": (answers({"ok": False, "error": 5}), False, "agent request failed"),
    "too deep": (answers(b"[" * 100_000), False, "agent request failed"),
    "another status": (answers(OK, status="500 No"), False, "agent request failed"),
    "created": (answers(OK, status="201 Created"), False, "agent request failed"),
    "a closed connection": (lambda exchange: None, False, "agent request failed"),
    "a reset": (lambda exchange: exchange.reset(), False, "agent request failed"),
}


def rpc(panel, method, timeout=15, **arguments):
    """The reply, without what every reply to the method must have."""
    mark = panel.mark()
    token = panel.send("providerRpc", method=method, rpcId=[7], **arguments)
    reply = dict(panel.wait_frame(lambda f: f.get("chromeRequestId") == token, mark, timeout))
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


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("case", RELAYED)
def test_a_method_makes_its_request_and_relays_the_data(shared_panel, shared_agent, case):
    arguments, verb, path, body = RELAYED[case]
    shared_agent.on[path] = answers(OK)
    before = len(shared_agent.seen(path))
    reply = rpc(shared_panel, case.split()[0], **arguments)
    assert reply == {"ok": True, "data": OK["data"]}
    (exchange,) = shared_agent.seen(path)[before:]
    expect_request(exchange, verb, path, body)


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("answer", ANSWERS)
def test_an_answer_of_the_agent_becomes_data_or_an_error(shared_panel, shared_agent, answer):
    handler, ok, result = ANSWERS[answer]
    shared_agent.on["/v1/credit"] = handler
    wanted = {"ok": True, "data": result} if ok else {"ok": False, "error": result}
    assert rpc(shared_panel, "getCreditInfo") == wanted
    assert rpc(shared_panel, "getCreditInfo", id="i") == wanted


@pytest.mark.off_protocol("agent")
def test_presets_are_made_from_the_model_list(shared_panel, shared_agent):
    shared_agent.on[MODELS] = answers({"data": [
        {"id": "Quick", "morva_preset_id": "quick"},
        {"id": "Deep", "morva_preset_id": "deep", "morva_is_default": True},
        {"id": "plain"},
        {"name": "no id"},
    ]})
    presets = [
        {"id": "quick", "name": "Quick", "is_default": False, "isDefault": False},
        {"id": "deep", "name": "Deep", "is_default": True, "isDefault": True},
        {"id": "plain", "name": "plain", "is_default": False, "isDefault": False},
    ]
    for method in ("getChatPresets", "settingsChatPresetsGet"):
        assert rpc(shared_panel, method) == {"ok": True, "data": {"presets": presets}}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("answer", [
    answers({"data": []}, status="500 No"), answers(b"{"), lambda exchange: None])
def test_a_model_list_that_cannot_be_had_is_an_error(shared_panel, shared_agent, answer):
    shared_agent.on[MODELS] = answer
    for method in ("getChatPresets", "settingsChatPresetsGet"):
        assert rpc(shared_panel, method) == {"ok": False, "error": "preset list failed"}


@pytest.mark.parametrize("method", ["searchCancel", "searchCancelAll"])
def test_a_search_is_cancelled_without_asking_anybody(shared_panel, shared_agent, method):
    def asked():  # but for the event stream, which an earlier look for the agent may open late
        return [e.path for e in shared_agent.exchanges if e.path != EVENTS]

    before = asked()
    assert rpc(shared_panel, method) == {"ok": True, "data": {}}
    assert asked() == before


def test_subscribing_only_makes_sure_of_the_agent(shared_panel, shared_agent):
    before = len(shared_agent.exchanges)
    assert rpc(shared_panel, "commandEventsSubscribe") == {"ok": True, "data": {}}
    asked = {exchange.path for exchange in shared_agent.exchanges[before:]}
    assert READY in asked and asked <= {READY, PROVIDERS, EVENTS}


@pytest.mark.parametrize("method", ["foo", "", "getcreditinfo", "ü"])
def test_an_unknown_method_is_named(shared_panel, method):
    assert rpc(shared_panel, method) == {
        "ok": False, "error": f"chrome host does not handle {method}"}


ASKING = sorted({name.split()[0] for name in RELAYED} | {
    "getChatPresets", "settingsChatPresetsGet", "commandEventsSubscribe"})


@pytest.fixture
def no_agent(shared_agent):
    shared_agent.on[READY] = answers({"ready": False})


@pytest.mark.off_protocol("panel")
def test_without_an_agent_every_method_says_so(panel, no_agent):
    for method in ASKING:
        assert rpc(panel, method, id="i") == {
            "ok": False, "error": "morva-viewer-cli.exe is not on PATH"}
    assert rpc(panel, "commandRun") == {"ok": False, "error": "morva is not running"}
    panel.end()


# --- What may not stand in a request line ---

INJECTED = {
    "a header": ("a\r\nX-Evil: 1", "a%0D%0AX-Evil:%201"),
    "a blank": ("a b", "a%20b"),
    "a request": ("a HTTP/1.1\r\n\r\nGET /x", "a%20HTTP/1.1%0D%0A%0D%0AGET%20/x"),
    "not ASCII": ("ü€", "%C3%BC%E2%82%AC"),
    "an emoji": ("\U0001F600", "%F0%9F%98%80"),
    "controls": ("\x01\t\x7f", "%01%09%7F"),
    "a quote": ('a"b', "a%22b"),
    "an escape of its own": ("%0d%0a", "%0d%0a"),
    "a parameter": ("a&b=c", "a&b=c"),
    "a fragment": ("a#b", "a%23b"),
}


@pytest.mark.parametrize("name", INJECTED)
@pytest.mark.parametrize("method", ["loadChatSession", "deleteChatSession"])
def test_a_session_id_stays_within_the_request_line(shared_panel, shared_agent, method, name):
    sent, arrives = INJECTED[name]
    path = f"/v1/chat/session?id={arrives}"
    shared_agent.on[path] = answers(OK)
    before = len(shared_agent.seen(path))
    assert rpc(shared_panel, method, id=sent)["ok"] is True
    (exchange,) = shared_agent.seen(path)[before:]
    assert exchange.header("X-Evil") == []


def test_a_session_id_of_a_megabyte_is_answered(shared_panel, shared_agent):
    reply = rpc(shared_panel, "loadChatSession", id="x" * 1_000_000)
    assert reply["ok"] is False and reply["error"].endswith("request failed")
    shared_panel.prove_alive()


# --- Commands ---

COMMAND = {"id": "summarize", "arguments": ["ü"]}

COMMAND_ANSWERS = {
    "data": (answers(OK), {"ok": True, "data": OK["data"]}),
    "no data": (answers({"ok": True}), {"ok": True, "data": {}}),
    "refused": (answers({"ok": False, "error": "no"}), {"ok": False, "error": "no"}),
    "refused without a text": (answers({"ok": False}), {"ok": False, "error": "commandRun failed"}),
    "another status": (answers(OK, status="500 No"), {"ok": False, "error": "commandRun failed"}),
    "another status with a text": (answers({"error": "boom"}, status="503 No"),
                                   {"ok": False, "error": "boom"}),
    "no answer": (lambda exchange: None, {"ok": False, "error": "commandRun failed"}),
    # What the agent leaves to the application, which does not run here:
    "needs the window": (answers({"ok": False, "needsUi": True, "error": "x"}),
                         {"ok": False, "error": "morva is not running"}),
    "not known": (answers(OK, status="404 Not Found"),
                  {"ok": False, "error": "morva is not running"}),
    "no JSON": (answers(b"<html>"), {"ok": False, "error": "morva is not running"}),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("answer", COMMAND_ANSWERS)
def test_a_command_is_run_by_the_agent_or_left_to_the_application(
    shared_panel, shared_agent, answer
):
    handler, wanted = COMMAND_ANSWERS[answer]
    shared_agent.on[RUN] = handler
    assert rpc(shared_panel, "commandRun", **COMMAND) == wanted


def test_a_command_goes_as_the_panel_sent_it_with_the_sender(panel, shared_agent):
    shared_agent.on[RUN] = answers(OK)
    before = len(shared_agent.seen(RUN))
    rpc(panel, "commandRun", **COMMAND)
    panel.ask("chatSender", sender="window 1", after=3)
    rpc(panel, "commandRun", **COMMAND, sender="mine")
    first, second = shared_agent.seen(RUN)[before:]
    for exchange in (first, second):
        expect_request(exchange, "POST", RUN, exchange.body)
        assert exchange.body == json.dumps(
            exchange.json(), sort_keys=True, separators=(",", ":"), ensure_ascii=False).encode()
    sent = first.json()
    assert sent.pop("chromeRequestId")
    assert sent == {"source": "morva-chat", "kind": "providerRpc", "method": "commandRun",
                    "rpcId": [7], **COMMAND}
    assert second.json()["sender"] == "window 1"
    panel.end()


# --- Plain kinds that post ---

PLAIN = {
    "openPathInternal": ({"path": "C:\\a b.txt"}, OPEN_FILE,
                         b'{"fullscreen":false,"paths":["C:\\\\a b.txt"]}', "file did not open"),
    "openPathInternal with paths": ({"paths": ["a", "b"], "path": "c"}, OPEN_FILE,
                                    b'{"fullscreen":false,"paths":["a","b"]}',
                                    "file did not open"),
    "openPathFullscreen": ({"path": "ü"}, OPEN_FILE,
                           '{"fullscreen":true,"paths":["ü"]}'.encode(), "file did not open"),
    "openPathFullscreen without a path": ({}, OPEN_FILE, b'{"fullscreen":true,"paths":[""]}',
                                          "file did not open"),
    "settings": ({}, OPEN, b'{"section":"chat"}', "settings did not open"),
    "settings of a section": ({"section": "voice"}, OPEN, b'{"section":"voice"}',
                              "settings did not open"),
    "consentReply": ({"id": "c-1", "allow": True, "chromeRequestId": 5}, CONSENT,
                     b'{"allow":true,"chromeRequestId":5,"id":"c-1","source":"morva-chat"}',
                     "agent request failed"),
}

# What the agent answers, and the reply's error; None is the kind's own, "" is none.
PLAIN_ANSWERS = {
    "ok": (answers({"ok": True}), ""),
    "refused": (answers({"ok": False, "error": "no such thing"}), "no such thing"),
    "refused without a text": (answers({"ok": False}), None),
    "nothing": (answers(b""), None),
    "no JSON": (answers(b"{"), None),
    "ok of another type": (answers({"ok": "yes"}), None),
    "another status": (answers({"ok": True}, status="500 No"), None),
    "another status with a text": (answers({"ok": False, "error": "e"}, status="500 No"), "e"),
    "a closed connection": (lambda exchange: None, None),
}


@pytest.mark.off_protocol("agent")
@pytest.mark.parametrize("case,answer", itertools.product(PLAIN, PLAIN_ANSWERS))
def test_a_kind_posts_to_the_agent_and_gives_its_verdict(shared_panel, shared_agent, case, answer):
    arguments, path, body, own_error = PLAIN[case]
    handler, error = PLAIN_ANSWERS[answer]
    shared_agent.on[path] = handler
    before = len(shared_agent.seen(path))
    reply = shared_panel.ask(case.split()[0], **arguments)
    del reply["chromeRequestId"]
    error = own_error if error is None else error
    assert reply == {"source": "morva-chat", "kind": "ack", "ok": not error,
                     **({"error": error} if error else {})}
    (exchange,) = shared_agent.seen(path)[before:]
    expect_request(exchange, "POST", path, body)


@pytest.mark.parametrize("kind", ["openPathInternal", "openPathFullscreen", "settings",
                                  "consentReply", "agentReload"])
def test_without_an_agent_a_kind_says_so(shared_panel, no_agent, kind):
    reply = shared_panel.ask(kind)
    assert (reply["ok"], reply["error"]) == (False, "morva-viewer-cli.exe is not on PATH")


# --- What is too large, or of the wrong type ---

def test_a_session_too_large_for_the_browser_is_a_reply_that_says_so(panel, shared_agent):
    path = "/v1/chat/session?id=big"
    shared_agent.on[path] = answers({"ok": True, "data": "x" * (3 << 20)})
    reply = panel.ask("providerRpc", method="loadChatSession", id="big", rpcId=1)
    whole = {**reply, "ok": True, "data": "x" * (3 << 20)}
    del whole["error"]
    size = len(compact(whole))
    assert (reply["ok"], reply["error"]) == (
        False, f"reply too large for the browser ({size} bytes)")
    assert (reply["kind"], reply["id"], reply["rpcId"]) == ("hostProviderRpc", "big", 1)
    assert rpc(panel, "searchCancel")["ok"] is True
    panel.end()


VALUES = {"null": None, "a number": 7, "a fraction": -1.5, "a huge number": 1e300, "a text": "t",
          "an array": [1], "an object": {"a": 1}, "true": True}
ARGUMENTS = {
    "loadChatSession": ["id"], "saveChatSession": ["session"], "deleteChatSession": ["id"],
    "commandRun": ["id", "sender"], "chatSkillsList": ["cwd"],
    "searchStart": ["query", "headLimit", "inputs", "user"],
    "rankPageModel": ["query", "model", "topK"], "vumboArtifactsGet": ["limit"],
    "listChatSessions": ["rpcId", "id", "method"],
}
WRONG_TYPES = [(method, argument, value) for method, names in ARGUMENTS.items()
               for argument, value in itertools.product(names, VALUES)]


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("method,argument,value", WRONG_TYPES)
def test_an_argument_of_any_type_gets_one_reply(shared_panel, shared_agent, method, argument,
                                                value):
    mark = shared_panel.mark()
    message = {"method": method, argument: VALUES[value]}
    token = shared_panel.send("providerRpc", **message)
    reply = shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == token, mark)
    assert reply["kind"] == "hostProviderRpc"
    assert reply["ok"] is True or (isinstance(reply["error"], str) and reply["error"])
    for key in ("rpcId", "id"):
        assert reply.get(key) == message.get(key)
    shared_panel.prove_alive()
    frames = shared_panel.frames_since(mark)
    assert len([f for f in frames if f.get("chromeRequestId") == token]) == 1


@pytest.mark.long
def test_an_agent_that_never_answers_holds_the_panel_no_longer_than_a_read(panel, shared_agent):
    """15 s; the system under the Windows build waits twice."""
    path = "/v1/chat/sessions"
    shared_agent.on[path] = holds
    before = len(shared_agent.seen(path))
    assert rpc(panel, "listChatSessions", timeout=40) == {
        "ok": False, "error": "agent request failed"}
    panel.send("providerRpc", method="listChatSessions")
    shared_agent.wait_for(path, before + 2)
    assert panel.end(alive=False, limit=1.0) < 10
