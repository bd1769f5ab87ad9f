"""What is done again and again while another call fails each time. A scenario returns whether all
went as it does when nothing fails; less is in order as long as everybody gets one answer. What is
out of order is raised."""

from __future__ import annotations

import contextlib
import json
import select
import time

from devkit.panel.pipe_client import PipeClient

from host_world import Disorder, World, body_of
from support import builds
from support.memory import held
from support.protocol import faults_of_test
from support.scripted_agent import (
    COMPLETIONS, REALTIME_EVENTS, ScriptedAgent, agent_event, delta)

USAGE = {"prompt_tokens": 1, "completion_tokens": 2, "total_tokens": 3}
FILE = bytes(range(256)) * 80


def expect(test, what):
    if not test:
        raise Disorder(what)


def events_of(frames):
    """(method, args) of every event that came as one."""
    return [(event["method"], event["args"]) for frame in frames
            if isinstance(frame, dict) and frame.get("kind") == "hostChatEvents"
            for event in frame["events"]]


class OnHost:
    """A scenario of a living host that has found an agent."""

    allocations_per_stack = 1_000_000  # more than there are: each is tried
    always_again = True  # a run in which nothing fails follows each that went well, too

    def __init__(self, plan):
        self.world = World(plan)
        self.agent = ScriptedAgent(turn=self.answer_turn)
        self.mark = 0

    def begin(self):
        """Leaves a host that reads the agent's events and has done all once; what it holds then is
        no more later."""
        self.world.ensure()
        self.agent.feeds.clear()
        expect(self.world.ask("agentReload")["ok"], "the agent is not found")
        self.world.until(self.agent.feeds_of, "the agent's events are not read")
        for _ in range(2):
            self.clean()
            expect(self.run(), "it does not go well though nothing fails")
        self.baseline = held(self.world.panel.pid)
        self.clean()

    def end(self):
        self.world.end()

    def close(self):
        self.world.close()
        self.agent.close()

    # --- One run ---

    def run(self):
        self.mark = self.world.panel.mark()
        return self.act()

    def act(self) -> bool:
        raise NotImplementedError

    def check(self):
        """Nothing was answered twice since the run began, and nothing is left over."""
        self.world.ask("getStatus")
        frames = self.world.panel.frames_since(self.mark)
        tokens = [frame["chromeRequestId"] for frame in frames
                  if isinstance(frame, dict) and "chromeRequestId" in frame]
        ends = [args[0] for method, args in events_of(frames) if method == "agentDone"]
        for what, names in (("replies", tokens), ("ends of turns", ends)):
            expect(len(names) == len(set(names)), f"{what} came twice: {names}")
        faults = faults_of_test([])
        expect(not faults, f"against the protocol: {faults[:3]}")
        self.world.settle(self.baseline)

    def clean(self):
        """What a run leaves that the next must not find."""
        self.agent.exchanges.clear()
        self.agent.cancelled.clear()
        self.agent.feeds[:] = [feed for feed in self.agent.feeds if not feed.closed.is_set()]

    # --- Sides ---

    def answer_turn(self, exchange):
        """The agent's side of a turn: it says something, and calls a tool."""
        exchange.stream(delta("one "))
        exchange.more(agent_event("tool_call", tool_name="browser_read", tool_call_id="c"))
        call = body_of({"name": "browser_read", "arguments": {}})
        self.call_went_well = False
        with contextlib.suppress(OSError):
            answer = self.world.tools.request("POST", "/api/agent-tools/call", call, origin=None)
            check_http(answer)
            self.call_went_well = answer.status == 200 and answer.json().get("ok", False)
        exchange.more(agent_event("tool_result", tool_name="browser_read", tool_call_id="c"),
                      delta("two", usage=USAGE), "[DONE]")

    def turn(self, **keys):
        """A whole turn: one reply, and when it was accepted, one end."""
        world, mark = self.world, self.world.panel.mark()
        token = world.send("send", prompt="hi", preset="plain", **keys)
        reply = world.reply(token, mark)
        if not reply["ok"]:
            return False
        done = world.frame(lambda frame: any(method == "agentDone" for method, _ in
                                             events_of([frame])), mark, "no agentDone")
        (_, ok, error), = [args for method, args in events_of([done]) if method == "agentDone"]
        expect(ok or error, "a turn failed without a text")
        return ok


def check_http(answer):
    """A whole answer, or none: the connection ended."""
    if answer.data:
        length = answer.head.lower().split(b"content-length: ")[1].split(b"\r\n")[0]
        expect(len(answer.body) == int(length), f"a torn answer: {answer.data[:300]!r}")


class Turn(OnHost):
    """A chat turn with a tool call."""

    def act(self):
        self.call_went_well = False
        ok = self.turn(browser={"currentUrl": "https://a/", "currentTitle": "A"})
        # The agent may have more to say than the host takes.
        self.world.until(lambda: all(each.finished.is_set() for each in self.agent.exchanges
                                     if each.path == COMPLETIONS), "the agent's call hangs")
        return ok and self.call_went_well


class Upload(OnHost):
    """A file that is pasted."""

    def act(self):
        answer = self.world.tools.request("POST", "/api/context-file?name=a.png", FILE)
        self.check_torn(answer)
        for each in self.world.work.drops.glob("*"):
            expect(each.read_bytes() == FILE, f"half a file stays: {each}")
            each.unlink()
        return answer.status == 200 and answer.json()["ok"]

    def check_torn(self, answer):
        failure = self.world.plan.failure
        if not (failure and failure.name == "send"):
            check_http(answer)


class Served(Upload):
    """A file of the work folder that the panel shows."""

    def act(self):
        path = self.world.work.put("a.png", FILE)
        answer = self.world.tools.download(path)
        self.check_torn(answer)
        same = answer.status != 200 or answer.body == FILE
        expect(same or self.world.plan.failure, "another file")
        return answer.status == 200 and answer.body == FILE


class Pipe(OnHost):
    """A local program asks the extension."""

    def act(self):
        asked = {"command": "torture", "requestId": "torture-1", "text": "x" * 3000}
        with PipeClient(builds.BUILD) as client:
            try:
                client.send(asked)
                self.world.until(lambda: select.select([client._socket], [], [], 0.05)[0],
                                 "no answer on the pipe", pause=0)
                answer = client.read_all(PIPE_S)
            except OSError:
                return False
        size = int.from_bytes(answer[:4], "little")
        if not answer:
            return False
        expect(len(answer) == size + 4, f"a torn answer on the pipe: {answer[:200]!r}")
        reply = json.loads(answer[4:])
        expect(not reply["ok"] or reply["echo"] == asked, "another answer on the pipe")
        return reply["ok"]


PIPE_S = 5.0


class Voice(OnHost):
    """A voice session from its start to its stop."""

    def act(self):
        world, mark = self.world, self.world.panel.mark()
        known = len(self.agent.feeds_of(REALTIME_EVENTS))
        if not world.ask("realtimeStart", preset="plain")["ok"]:
            return world.ask("realtimeStop")["ok"] and False

        def done():
            return [method for method, _ in events_of(world.panel.frames_since(mark))
                    if method == "realtimeDone"]

        feeds = world.until(lambda: self.agent.feeds_of(REALTIME_EVENTS)[known:] or done(),
                            "neither a voice session nor its end")
        return self.use(feeds[0], mark, done)

    def use(self, feed, mark, done):
        world = self.world
        heard = not done() and self.hear(feed, mark, done)
        before = len(done())
        stopped = world.ask("realtimeStop")["ok"]
        expect(not stopped or len(done()) == before + 1, f"a stop was reported {done()}")
        expect(before <= 1, f"the end of a session was reported {before} times")
        if not isinstance(feed, str):
            world.until(feed.closed.is_set, "the session's events are still read")
        return stopped and heard and not before

    def hear(self, feed, mark, done):
        """What is said now reaches the panel; for want of memory a word may be lost."""
        for number in range(3):
            feed.tell("realtimeTranscript", ["word", {"final": number}])
            deadline = time.monotonic() + 1.0

            def came():
                heard = [args for method, args in events_of(self.world.panel.frames_since(mark))
                         if method == "realtimeTranscript" and args[1]["final"] == number]
                return heard or done() or time.monotonic() > deadline

            if isinstance(self.world.until(came, "no word"), list) and not done():
                return number == 0
            if done():
                return False
        raise Disorder("nothing that is said is heard")


class VoiceEnd(Voice):
    """A voice session that the agent ends."""

    def use(self, feed, mark, done):
        if isinstance(feed, str):
            return False
        feed.tell("realtimeDone", [])
        feed.end()
        self.world.until(done, "no end of the session")
        stopped = self.world.ask("realtimeStop")["ok"]
        expect(len(done()) <= 2, f"the ends of a session and of none were reported {done()}")
        return stopped and len(done()) == 2


ON_HOST = {"turn": Turn, "upload": Upload, "file": Served, "pipe": Pipe, "voice": Voice,
           "voice-end": VoiceEnd}
