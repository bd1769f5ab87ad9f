"""What goes on in a soak run: a table of things that a user, an agent or a browser does."""

from __future__ import annotations

import itertools
import json
import time
from collections.abc import Callable
from dataclasses import dataclass

from devkit.panel.pipe_client import PipeClient
from ledger import REPLY_TIMEOUT_S, LifeOver
from panel import PIPE_COMMAND
from support import builds

_numbers = itertools.count(1)


class Failed(Exception):
    """It did not succeed, which is in order while the agent is away. The text says why."""


def check(wanted, text):
    if not wanted:
        raise Failed(text)


# Weight and name of each scenario; "long" takes a number of words.
SCENARIOS = {"long": 4, "hello": 3, "unicode": 2, "browse": 2, "tools": 2, "commands": 1,
             "consent": 1, "echo": 1}
TAB = {"currentUrl": "https://example.org/", "currentTitle": "Soak"}


def turn(life):
    began = time.monotonic()
    random = life.random()
    (scenario,) = random.choices(list(SCENARIOS), SCENARIOS.values())
    count = random.randint(20, 400)
    prompt = f"/scenario {scenario} {count}"
    expected = None
    if scenario == "long":
        expected = "".join(f"word{number} " for number in range(count))
    session = f"soak-{next(_numbers)}"
    record = life.ledger.expect_turn(life.number, session, expected)
    reply = life.panel.ask("send", prompt=prompt, browser=TAB, chat_session_id=session,
                           preset="plain")
    check(reply["ok"], f"not accepted: {reply}")
    if not record.done.wait(REPLY_TIMEOUT_S):
        life.ledger.fault(f"turn {session} ({prompt}) does not end")
    if record.cut:
        raise LifeOver
    if life.ledger.disturbances.overlap(began):
        record.expected = None  # an answer that lasts until the agent hangs up may end anywhere
    check(record.ok, f"{prompt}: {record.error}")


def rpc(method, **members):
    def run(life):
        reply = life.panel.ask("providerRpc", method=method, rpcId=next(_numbers), **members)
        check(reply["ok"], f"{method}: {reply.get('error')}")
    return run


def small_messages(life):
    """A handful at once, of which none needs the agent."""
    pending = [life.panel.post(kind) for kind in ("getStatus", "poll", "hostLog", "ready")]
    pending.append(life.panel.post("browserSnapshot", browser=TAB))
    for each in pending:
        check(life.panel.reply_to(each)["ok"], each.kind)


def upload(life):
    """A file goes in, comes back the same, and is deleted as the application does it."""
    body = life.random().randbytes(life.random().randint(1, 300_000))
    server = life.tool_server()
    result = server.upload("soak file.png", body)
    if result != {"ok": False, "error": "drops folder is full"}:
        check(result["ok"], f"{result}")
        back = server.download(result["path"]).body
        if back != body and life.is_over():
            raise LifeOver
        if back != body:
            life.ledger.fault(f"{len(body)} bytes were uploaded, {len(back)} others came back")
        life.work.to_local(result["path"]).unlink()


def tool_call(life):
    name, arguments = life.random().choice(
        [("browser_read", {}), ("browser_find", {"query": "lamp"}), ("browser_scope", {})])
    body = json.dumps({"name": name, "arguments": arguments}).encode()
    answer = life.tool_server().request("POST", "/api/agent-tools/call", body, origin=None)
    result = answer.json()
    check(answer.status == 200 and result.get("ok"), f"{name}: {str(result)[:200]}")


def pipe_request(life):
    """A local program asks the extension, which answers with what it was sent."""
    asked = {"command": PIPE_COMMAND, "requestId": f"soak-pipe-{next(_numbers)}",
             "text": life.random().randbytes(life.random().randint(1, 50_000)).hex()}
    prefix = builds.wine_prefix() if builds.IS_WINDOWS else None
    with PipeClient(builds.BUILD, prefix) as client:
        answer = client.ask(asked, REPLY_TIMEOUT_S)
    if life.is_over():
        raise LifeOver
    check(answer is not None and answer.get("ok"), f"pipe: {str(answer)[:200]}")
    if (answer["requestId"], answer["text"]) != (asked["requestId"], asked["text"]):
        life.ledger.fault(f"a program that asked as {asked['requestId']} got another answer")


def event(life):
    """One that is published while the host listens must come, unless the agent dies meanwhile."""
    began = time.monotonic()
    published = life.agent.publish()
    check(published is not None, "the agent is away")
    number, listeners = published

    def excused():
        return life.is_over() or life.ledger.disturbances.overlap(began)

    if listeners and not life.ledger.wait_for_event(life.number, number, excused, REPLY_TIMEOUT_S):
        if not excused():
            life.ledger.fault(f"event {number} never came")
    if life.is_over():
        raise LifeOver
    return listeners > 0  # none: this host has not met the agent yet


@dataclass(frozen=True)
class Action:
    name: str
    run: Callable
    needs_agent: bool = False


# One list per thread, from which it chooses at random. What returns False has not been done.
ACTORS = {
    "chat 1": [Action("turn", turn, True)],
    "chat 2": [Action("turn", turn, True)],
    "panel": [
        Action("small messages", small_messages),
        Action("list sessions", rpc("listChatSessions"), True),
        Action("credit", rpc("getCreditInfo"), True),
        Action("presets", rpc("getChatPresets"), True),
        Action("search", rpc("searchStart", query="report", headLimit=5), True),
    ],
    "files": [Action("upload", upload)],
    "tools": [Action("tool call", tool_call)],
    "events": [Action("event", event, True)],
    "local program": [Action("pipe request", pipe_request)],
}
ACTIONS = list(dict.fromkeys(action.name for actions in ACTORS.values() for action in actions))
# A program that waits for the pipe may find the next host there instead; nobody waits for it.
OUTLIVES_THE_HOST = ("local program",)
