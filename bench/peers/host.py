#!/usr/bin/env python3
"""The measured part of the host as one would write it in Python in an afternoon.

Acknowledges, streams a turn's answer, relays tool calls with the page cut down, and serves the
catalogue, which it reads from the file that BENCH_CATALOGUE names. What is not needed at the start
is imported when it is.
"""

from __future__ import annotations

import json
import os
import sys
import threading
from typing import Any

TOKEN = "0" * 64
PIECE = 200_000  # the browser takes no frame past 1 MiB
ITEMS = 12
ITEM_KEYS = ("checked", "disabled", "name", "ref", "role", "type", "value")
KEY_ROLES = {"textbox", "combobox", "checkbox", "radio", "searchbox", "spinbutton", "switch"}
OVERRIDES = ("ignore prior instructions", "ignore previous instructions", "system override",
             "ignore safety", "disable sandbox", "skip consent", "do not tell the user")
DEMANDS = ("~/.ssh", "id_rsa", "upload", "exfil", "| bash", "| sh", "powershell")

output = threading.Lock()
waiting: dict[str, Any] = {}


def encode(value: object) -> bytes:
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False).encode()


def frame(message: object) -> bytes:
    body = encode(message)
    return len(body).to_bytes(4, "little") + body


def write(frames: bytes) -> None:
    with output:
        sys.stdout.buffer.write(frames)
        sys.stdout.buffer.flush()


def event(method: str, *args: object) -> bytes:
    return frame({"source": "morva-chat", "kind": "hostChatEvents",
                  "events": [{"method": method, "args": args}]})


class Turn:
    def __init__(self, message: dict) -> None:
        self.preset, self.prompt = message["preset"], message["prompt"]
        self.session = message.get("chat_session_id") or "chrome"
        self.ids = {"chatSessionId": self.session, "runId": f"chrome-{os.getpid()}"}
        self.texts: list[str] = []
        self.seq = 0

    def events_of(self, block: bytes) -> list[bytes]:
        if block == b"data: [DONE]":
            return []
        text = json.loads(block[6:])["choices"][0]["delta"].get("content") or ""
        self.texts.append(text)
        events = []
        for at in range(0, len(text), PIECE):
            self.seq += 1
            events.append(event("appendAssistantDelta", self.ids | {
                "delta": text[at:at + PIECE], "seq": self.seq}))
        return events

    def stream(self) -> None:
        from http.client import HTTPConnection
        agent = HTTPConnection("127.0.0.1", 8090)
        agent.request("POST", "/v1/chat/completions", encode({
            "model": self.preset, "stream": True, "session_id": self.session,
            "messages": [{"role": "user", "content": self.prompt}]}))
        answer = agent.getresponse()
        pending = bytearray()
        while piece := answer.read1(65536):
            searched = max(len(pending) - 1, 0)
            pending += piece
            end = pending.rfind(b"\n\n", searched)
            if end >= 0:
                write(b"".join(each for block in bytes(pending[:end]).split(b"\n\n")
                               for each in self.events_of(block)))
                del pending[:end + 2]

    def run(self) -> None:
        write(event("setBusy", True) + event("agentStarted", {
            "id": self.ids["runId"], "name": self.preset, "chat_session_id": self.session}))
        self.stream()
        whole = event("completeAssistantText", self.ids | {"text": "".join(self.texts)})
        if len(whole) < 1 << 20:
            write(whole)
        write(event("agentDone", self.ids["runId"], True, ""))


def orders_about(page: dict) -> bool:
    texts = [page.get("title", ""), page["data"].get("pageText", "")]
    folded = "\n".join(texts + [item.get("name", "") for item in page["data"]["items"]]).lower()
    return (any(phrase in folded for phrase in OVERRIDES)
            and any(phrase in folded for phrase in DEMANDS))


def compacted(page: dict) -> dict:
    data, items = page["data"], page["data"]["items"]
    if orders_about(page):
        page |= {"prompt_injection_detected": True, "error": "Prompt injection detected."}
    chosen = [item for item in items if item.get("role") in KEY_ROLES][:ITEMS]
    others = [item for item in items[:2 * ITEMS] if item.get("role") not in KEY_ROLES]
    chosen += others[:ITEMS - len(chosen)]
    kept = {"count": data["count"],
            "items": [{key: item[key] for key in ITEM_KEYS if key in item} for item in chosen]}
    if len(items) > ITEMS:
        kept |= {"itemsOmitted": len(items) - ITEMS, "truncated": True}
    if data.get("pageText"):
        kept["pageTextOmitted"] = True
    return {key: value for key, value in page.items() if key != "title"} | {"data": kept}


def call(request: dict) -> dict:
    from queue import SimpleQueue
    request_id = os.urandom(8).hex()
    answers = waiting[request_id] = SimpleQueue()
    write(frame({"command": "browserUse", "requestId": request_id, "protocolVersion": 1,
                 "payload": {"name": request["name"], "arguments": request.get("arguments", {})}}))
    answer = answers.get(timeout=25)
    return compacted(answer["data"]) if answer["ok"] else {"ok": False, "error": answer["error"]}


def start_server() -> int:
    from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

    class Handler(BaseHTTPRequestHandler):
        def answer(self, value: object) -> None:
            body = encode(value)
            self.send_response(200)
            self.send_header("Content-Type", "application/json")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        def do_GET(self) -> None:
            self.answer(catalogue)

        def do_POST(self) -> None:
            self.answer(call(json.loads(self.rfile.read(int(self.headers["Content-Length"])))))

        def parse_request(self) -> bool:
            if not super().parse_request():
                return False
            if self.headers["X-Morva-Session"] != TOKEN:
                self.send_error(401)
                return False
            return True

        def log_message(self, *_: object) -> None:
            pass

    with open(os.environ["BENCH_CATALOGUE"], encoding="utf-8") as file:
        catalogue = json.load(file)
    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server.server_port


def handle(message: dict) -> None:
    if message.get("source") != "morva-chat":
        if (answers := waiting.pop(message.get("requestId"), None)) is not None:
            answers.put(message)
        return
    ack = {"source": "morva-chat", "kind": "ack", "ok": True,
           "chromeRequestId": message.get("chromeRequestId")}
    if message["kind"] == "contextImportUrl":
        ack |= {"url": f"http://127.0.0.1:{start_server()}/api/context-file", "token": TOKEN}
    write(frame(ack))
    if message["kind"] == "send":
        threading.Thread(target=Turn(message).run, daemon=True).start()


if __name__ == "__main__":
    while len(head := sys.stdin.buffer.read(4)) == 4:
        handle(json.loads(sys.stdin.buffer.read(int.from_bytes(head, "little"))))
