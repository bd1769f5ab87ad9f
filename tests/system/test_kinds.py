"""The table of kinds: what each is answered with, whatever its arguments are."""

import itertools

import pytest

from support.scripted_agent import ScriptedAgent

# Acknowledged, and nothing else happens.
ACKNOWLEDGED = [
    "ready", "chatWebState", "requestContext", "hostLog", "getStatus",
    "", "noSuchKind", "Send", "send ", "stop\0",
]

# The arguments that each built kind reads.
ARGUMENTS = {
    "browserSnapshot": ["kind", "browser"],
    "getStatus": ["kind"],
    "noSuchKind": ["kind"],
    "stop": ["kind"],
    "providerRpc": ["kind", "method", "rpcId", "id"],
    "send": ["kind", "prompt", "browser", "chat_session_id", "preset", "context_paths"],
    "poll": ["x"],
    "panelClosed": ["x"],
    "chatSender": ["after", "sender"],
    "consentReply": ["id", "answer"],
    "settings": ["section"],
    "openPathInternal": ["path", "paths"],
    "openPathFullscreen": ["path", "paths"],
    "realtimeStart": ["browser", "preset", "chat_session_id", "mic_send", "acquire_timeout_ms"],
    "realtimePushToTalk": ["held", "latched", "finishInputTurn"],
    "realtimeStop": ["x"],
    "speak": ["text"],
    "contextImportUrl": ["x"],
    "cliDirGet": ["x"],
    "cliDirSet": ["dir"],
    "cliDirApply": ["dir"],
    "openPathDefault": ["path", "url"],
    "openUrlDefault": ["kind"],  # every text is handed to the shell
    "revealPathInExplorer": ["path", "url"],
    "selectPathInExplorer": ["path", "url"],
    "openFolderInExplorer": ["path", "url"],
}

VALUES = {
    "null": None,
    "a number": 7,
    "a negative fraction": -1.5,
    "a huge number": 1e300,
    "a string": "text",
    "an empty string": "",
    "an array": [1, "two", None],
    "an object": {"a": 1},
    "true": True,
}

GOOD_ARGUMENTS = {"prompt": "hi", "preset": "plain", "method": "noSuchMethod"}


@pytest.mark.parametrize("kind", ACKNOWLEDGED)
def test_is_only_acknowledged(shared_panel, kind):
    reply = shared_panel.ask(kind, argument=5)
    del reply["chromeRequestId"]
    assert reply == {"source": "morva-chat", "kind": "ack", "ok": True}


def test_a_provider_method_that_is_not_known_says_so(shared_panel):
    reply = shared_panel.ask("providerRpc", method="chat.sessions", rpcId=1)
    assert (reply["kind"], reply["ok"], reply["rpcId"]) == ("hostProviderRpc", False, 1)
    assert "chat.sessions" in reply["error"]


def test_a_message_without_a_kind_is_acknowledged(shared_panel):
    mark = shared_panel.mark()
    shared_panel.host.send({"source": "morva-chat", "chromeRequestId": "no kind"})
    reply = shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == "no kind", mark)
    assert reply == {
        "source": "morva-chat", "kind": "ack", "ok": True, "chromeRequestId": "no kind"}


def test_a_browser_snapshot_is_acknowledged(shared_panel):
    assert shared_panel.ask("browserSnapshot", browser={"currentUrl": "https://a/"})["ok"] is True


WRONG_TYPES = [
    (kind, argument, value)
    for kind, arguments in ARGUMENTS.items()
    for argument, value in itertools.product(arguments, VALUES)
]


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("kind,argument,value", WRONG_TYPES)
def test_an_argument_of_any_type_gets_exactly_one_reply(
    shared_panel, shared_agent, kind, argument, value
):
    message = {"kind": kind, **GOOD_ARGUMENTS, argument: VALUES[value]}
    mark = shared_panel.mark()
    token = shared_panel.send(**message)
    reply = shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == token, mark)
    assert isinstance(reply["ok"], bool)
    assert reply["ok"] or reply["error"]
    if message["kind"] == "send" and reply["ok"]:
        shared_panel.wait_event("agentDone", since=mark)
    shared_panel.prove_alive()
    frames = shared_panel.frames_since(mark)
    assert len([f for f in frames if f.get("chromeRequestId") == token]) == 1
    done = [m for m, _ in shared_panel.events_since(mark) if m == "agentDone"]
    assert len(done) == (1 if message["kind"] == "send" and reply["ok"] else 0)


NO_TEXTS = [name for name, value in VALUES.items() if not isinstance(value, (str, type(None)))]


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("value", NO_TEXTS)
@pytest.mark.parametrize("kind", ["kind", "prompt"])
def test_a_text_of_another_type_is_refused_with_the_librarys_text(shared_panel, kind, value):
    message = {"kind": "send", "prompt": "hi", kind: VALUES[value]}
    reply = shared_panel.ask(**message)
    del reply["chromeRequestId"]
    types = {int: "number", float: "number", list: "array", dict: "object", bool: "boolean"}
    assert reply == {
        "source": "morva-chat",
        "kind": "ack",
        "ok": False,
        "error": "[json.exception.type_error.302] type must be string, but is "
                 + types[type(VALUES[value])],
    }


@pytest.mark.off_protocol("panel")
@pytest.mark.parametrize("prompt", ["", None, "missing"])
def test_an_empty_prompt_is_an_error_and_starts_nothing(shared_panel, prompt):
    mark = shared_panel.mark()
    keys = {} if prompt == "missing" else {"prompt": prompt}
    reply = shared_panel.ask("send", **keys)
    del reply["chromeRequestId"]
    assert reply == {
        "source": "morva-chat", "kind": "error", "ok": False, "error": "empty prompt"}
    shared_panel.prove_alive()
    assert shared_panel.events_since(mark) == []


def test_stop_without_a_known_agent_asks_nobody(start_panel):
    with ScriptedAgent(port=8091) as agent:
        panel = start_panel()
        assert panel.ask("stop")["ok"] is True
        assert agent.exchanges == []
        panel.end()


def test_replies_come_in_the_order_of_the_messages(shared_panel):
    mark = shared_panel.mark()
    kinds = ["getStatus", "poll", "browserSnapshot", "stop", "noSuchKind", "providerRpc"]
    tokens = [shared_panel.send(kind) for _, kind in itertools.product(range(20), kinds)]
    shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == tokens[-1], mark)
    frames = shared_panel.frames_since(mark)
    assert [f["chromeRequestId"] for f in frames if "chromeRequestId" in f] == tokens


def test_a_burst_followed_by_the_end_of_input_still_gets_its_replies(panel):
    mark = panel.mark()
    tokens = [panel.send("getStatus") for _ in range(500)]
    panel.end(alive=False)
    assert [f.get("chromeRequestId") for f in panel.frames_since(mark)] == tokens


def test_two_thousand_messages_are_answered_one_each(shared_panel):
    mark = shared_panel.mark()
    tokens = [shared_panel.send("getStatus") for _ in range(2000)]
    shared_panel.wait_frame(lambda f: f.get("chromeRequestId") == tokens[-1], mark, timeout=60)
    assert [f.get("chromeRequestId") for f in shared_panel.frames_since(mark)] == tokens
