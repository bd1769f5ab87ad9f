"""What goes on in a soak run: things that a user, an agent or a browser does to a Life, each with
the choices that it makes at random. Where one does not succeed, which is in order while the agent
is away, an assertion says why."""

from __future__ import annotations

import json
import time

from devkit.panel.mcp_client import McpClient
from devkit.panel.pipe_client import PipeClient
from ledger import TIMEOUT_S, LifeOver, numbers
from support import builds
from support.sanitizer_reports import sanitizer_environment
from support.tool_server_client import NO_ROUTE_CORS

PIPE_COMMAND = "soakPipe"  # what local programs say, who get back what they sent


# Weight and name of each scenario; "long" takes a number of words.
SCENARIOS = {"long": 4, "hello": 3, "unicode": 2, "browse": 2, "tools": 2, "commands": 1,
             "consent": 1, "echo": 1}
LARGE_PAGE = "a page of 10 MB"  # what the agent looks for on one
TAB = {"currentUrl": "https://example.org/", "currentTitle": "Soak"}


def begin_turn(life, random, preset):
    """What is to become of it, and its prompt."""
    (scenario,) = random.choices(list(SCENARIOS), SCENARIOS.values())
    count = random.randint(20, 400)
    prompt = f"/scenario {scenario} {count}"
    expected = None
    if scenario == "long" and preset == "plain":  # which only the stand-in that was found knows
        expected = "".join(f"word{number} " for number in range(count))
    session = f"{prompt}, number {next(numbers)}"
    record = life.ledger.expect_turn(session, expected)
    reply = life.ask("send", prompt=prompt, browser=TAB, chat_session_id=session, preset=preset)
    assert reply["ok"], f"not accepted: {reply}"
    return record, prompt


def turn(life, random):
    began = time.monotonic()
    record, prompt = begin_turn(life, random, life.preset)
    life.ledger.wait(record)
    if life.record.disturbed_until >= began:
        record.expected = None  # an answer that lasts until the agent hangs up may end anywhere
    assert record.ok, f"{prompt}: {record.error}"


def rpc(method, **members):
    def run(life, _):
        reply = life.ask("providerRpc", method=method, rpcId=next(numbers), **members)
        assert reply["ok"], f"{method}: {reply.get('error')}"
    return run


def small_messages(life, _):
    """A handful at once, of which none needs the agent."""
    pending = [life.post(kind) for kind in ("getStatus", "poll", "hostLog", "ready")]
    pending.append(life.post("browserSnapshot", browser=TAB))
    for each in pending:
        life.ledger.wait(each)
        assert each.reply["ok"], each.name


def cli_folder(life, _):
    """A look for the program leaves lines in the log, which are taken meanwhile."""
    pending = [life.post(kind, dir="") for kind in ("cliDirApply", "poll", "poll")]
    for each in pending:
        life.ledger.wait(each)
        assert each.reply["ok"], each.name


def upload(life, random):
    """A file goes in, comes back the same, and is deleted as the application does it."""
    body = random.randbytes(random.randint(1, 300_000))
    result = life.tool_server.upload("soak file.png", body)
    if result != {"ok": False, "error": "drops folder is full"}:
        assert result["ok"], f"{result}"
        same = life.tool_server.download(result["path"]).body == body
        if not same and life.over.is_set():
            raise LifeOver
        if not same:
            life.ledger.fault(f"of {len(body)} bytes that were uploaded others came back")
        life.work.to_local(result["path"]).unlink()


def tool_call(life, random):
    call_tool(life, *random.choice(
        [("browser_read", {}), ("browser_find", {"query": "lamp"}), ("browser_scope", {})]))


def large_page(life, _):
    call_tool(life, "browser_find", {"query": LARGE_PAGE})


def call_tool(life, name, arguments):
    body = json.dumps({"name": name, "arguments": arguments}).encode()
    answer = life.tool_server.request("POST", "/api/agent-tools/call", body, origin=None)
    result = answer.json()
    assert answer.status == 200 and result.get("ok"), f"{name}: {str(result)[:200]}"


def pipe_request(life, random):
    """A local program asks the extension, which answers with what it was sent."""
    asked = {"command": PIPE_COMMAND, "requestId": f"soak-pipe-{next(numbers)}",
             "text": random.randbytes(random.randint(1, 50_000)).hex()}
    with PipeClient(builds.BUILD, builds.wine_prefix()) as client:
        answer = client.ask(asked, TIMEOUT_S)
    if life.over.is_set():
        raise LifeOver
    assert answer is not None and answer.get("ok"), f"pipe: {str(answer)[:200]}"
    if (answer["requestId"], answer["text"]) != (asked["requestId"], asked["text"]):
        life.ledger.fault(f"a program that asked as {asked['requestId']} got another answer")


def mcp_calls(life, random):
    """A client starts a server of its own, which goes through the same pipe."""
    with McpClient(builds.BUILD, builds.wine_prefix(), builds.PROGRAM,
                   sanitizer_environment()) as client:
        client.initialize()
        for _ in range(random.randint(1, 4)):
            result = client.call("browser_find", {"query": "lamp"})
            if life.over.is_set():
                raise LifeOver
            assert not result["isError"], f"MCP: {str(result)[:200]}"
        code, _ = client.end()
    if code != 0:
        life.ledger.fault(f"a server of an MCP client ended with {code}")


def slow_client(life, random):
    """Of the tool server: stutters, reads in bits, leaves in the middle, or says nothing."""
    request = life.tool_server.head("GET", "/api/nothing")
    size = random.choice([0, random.randrange(len(request)), len(request)])
    with life.tool_server.connect() as connection:
        for at in range(0, size, 10):
            connection.sendall(request[at:min(at + 10, size)])
            time.sleep(0.02)
        time.sleep(random.uniform(0, 1))
        answer = b"".join(iter(lambda: connection.recv(16), b"")) if size == len(request) else b""
    assert answer == (NO_ROUTE_CORS if answer else b""), f"{answer!r}"


def silent_program(life, random):
    """A local program that has the pipe, which is one at a time, and says nothing, or not all."""
    with PipeClient(builds.BUILD, builds.wine_prefix()) as client:
        client.send_raw(b"\x20\0\0\0{"[:random.randint(0, 5)])
        time.sleep(random.uniform(0, 1))


def event(life, _):
    """One that is published while the host listens must come, unless the agent dies meanwhile."""
    began = time.monotonic()
    number = next(numbers)
    listeners = life.agent.ask("/test/running")["events"]
    life.agent.ask("/test/events", {"method": "soakEvent", "args": [{"number": number}]})
    if not listeners:
        return False  # this host has not met the agent yet
    came = life.ledger.event(number).done
    while not (came.wait(0.1) or life.over.is_set() or life.record.disturbed_until >= began):
        if time.monotonic() > began + TIMEOUT_S:
            life.ledger.fault(f"event {number} never came")
            break
    if life.over.is_set():
        raise LifeOver


def point_events(life, random):
    """The panel is opened anew and goes on behind the last event, for all senders or for one."""
    if random.random() < 0.5:
        life.ask("panelClosed")
    last = life.agent.ask("/test/running")["lastEvent"]
    reply = life.ask("chatSender", sender=random.choice(["", "soak"]), after=last)
    assert reply["ok"], f"{reply}"


def speak(life, _):
    reply = life.ask("speak", text="one two three")
    assert reply["ok"], f"{reply}"


def voice(life, random):
    """A session, and another while it runs, which the agent takes or refuses."""
    for kind, members in (
            ("realtimeStart", {"preset": "plain"}), ("realtimePushToTalk", {"held": True}),
            ("realtimePushToTalk", {"held": False, "finishInputTurn": True}),
            ("realtimeStart", {"mic_send": random.random() < 0.5}), ("realtimeStop", {})):
        assert life.ask(kind, **members)["ok"], kind


ACTIONS = {
    "turn": turn, "small messages": small_messages, "upload": upload, "tool call": tool_call,
    "event": event, "point events": point_events, "voice": voice, "speak": speak,
    "cli folder": cli_folder, "pipe request": pipe_request, "large page": large_page,
    "MCP calls": mcp_calls, "slow client": slow_client, "silent program": silent_program,
    "list sessions": rpc("listChatSessions"), "credit": rpc("getCreditInfo"),
    "presets": rpc("getChatPresets"), "search": rpc("searchStart", query="report", headLimit=5),
}
NEED_NO_AGENT = ("small messages", "cli folder", "upload", "tool call", "pipe request",
                 "large page", "MCP calls", "slow client", "silent program")
# One list per thread, from which it chooses at random. What returns False has not been done.
ACTORS = {
    "chat 1": ["turn"], "chat 2": ["turn"], "files": ["upload"],
    "tools": ["tool call"] * 50 + ["large page"], "slow client": ["slow client"],
    "panel": ["small messages", "cli folder", "list sessions", "credit", "presets", "search"],
    "events": ["event", "event", "point events"], "voice": ["voice"],
    "reading aloud": ["speak"], "local program": ["pipe request"] * 3 + ["silent program"],
    "MCP client": ["MCP calls"],
}
# Those of which the host's own stand-in agent can do everything.
FOR_ANY_AGENT = ("chat 1", "chat 2", "files", "tools", "reading aloud", "local program",
                 "MCP client", "slow client")
# A program that waits for the pipe may find the next host there instead; nobody waits for it.
OUTLIVES_THE_HOST = ("local program",)
