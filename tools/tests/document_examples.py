"""The examples of docs/protocol.md: fenced blocks whose first line says what they are.

    ```json panel send                            a frame, or a file
    ```json panel send reply                      what answers it
    ```http agent "POST /v1/speak"                a request, or with "reply" an answer
    ```sse agentStream /v1/chat/completions       events of a stream
"""

import json
import re
import shlex
from dataclasses import dataclass
from typing import Any

from conftest import ROOT
from protocol_check.http_messages import answer_value, request_value

DOCUMENT = ROOT / "docs" / "protocol.md"
_FENCE = re.compile(r"^```(json|http|sse) ([^\n]+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


@dataclass(frozen=True)
class Example:
    line: int
    channel: str
    name: str
    is_reply: bool
    value: Any

    @property
    def key(self):
        return self.channel, self.name, self.is_reply

    def __str__(self):
        return f"{self.channel} {self.name}{' reply' if self.is_reply else ''} (line {self.line})"


def _http_value(text, channel, is_reply):
    head, _, body = text.rstrip("\n").partition("\n\n")
    data = body.encode()
    first, *lines = head.split("\n")
    headers = [(name, value) for name, _, value in (line.partition(": ") for line in lines)]
    length = {name.lower(): value for name, value in headers}.get("content-length")
    assert length is None or int(length) == len(data), f"Content-Length is {len(data)}:\n{text}"
    if not is_reply:
        method, target, version = first.split(" ")
        assert version == "HTTP/1.1"
        return request_value(method, target, headers, data)
    answer = answer_value(head.replace("\n", "\r\n").encode() + b"\r\n\r\n" + data)
    if channel == "agent":  # the host looks at nothing else
        return {"status": answer["status"], "body": answer["body"]}
    return answer


def _values(language, text, channel, is_reply):
    if language == "json":
        return [json.loads(text)]
    if language == "http":
        return [_http_value(text, channel, is_reply)]
    blocks = [block.removeprefix("data: ") for block in text.strip("\n").split("\n\n")]
    return [block if block == "[DONE]" else json.loads(block) for block in blocks]


def examples():
    text = DOCUMENT.read_text(encoding="utf-8")
    found = []
    for match in _FENCE.finditer(text):
        channel, name, *rest = shlex.split(match[2])
        line = text.count("\n", 0, match.start()) + 1
        for value in _values(match[1], match[3], channel, rest == ["reply"]):
            found.append(Example(line, channel, name, rest == ["reply"], value))
    return found
