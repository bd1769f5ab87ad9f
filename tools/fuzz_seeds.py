#!/usr/bin/env python3
"""Writes the examples of docs/protocol.md as seeds: tools/fuzz_seeds.py TARGET FOLDER

They are what is really said on each channel, one of every message, and grow with the protocol.
"""

import hashlib
import json
import re
import struct
import sys
from pathlib import Path

DOCUMENT = Path(__file__).resolve().parent.parent / "docs" / "protocol.md"
FENCE = re.compile(r"^```(json|http|sse) (\w+) [^\n]*?(reply)?\n(.*?)^```$",
                   re.MULTILINE | re.DOTALL)
WHOLE = b"\xff" * 8  # the input comes in as large pieces as there are


def objects(value):
    """All objects within a value."""
    if isinstance(value, dict):
        yield value
        value = list(value.values())
    for each in value if isinstance(value, list) else ():
        yield from objects(each)


def compact(value):
    return json.dumps(value, ensure_ascii=False, separators=(",", ":")).encode()


def as_frame(body):
    return struct.pack("<I", len(body)) + body


def seeds(target, document):
    found = [(language, channel, reply, text.rstrip("\n"))
             for language, channel, reply, text in FENCE.findall(document)]
    texts = [compact(json.loads(text)) for language, _, _, text in found if language == "json"]
    texts += [text.partition("\n\n")[2].encode() for language, _, _, text in found
              if language == "http" and "\n\n" in text]
    requests = [text.encode().replace(b"\n", b"\r\n") for language, channel, reply, text in found
                if (language, channel, reply) == ("http", "toolServer", "")]
    streams = [text.encode() + b"\n\n" for language, _, _, text in found if language == "sse"]
    inner = []
    for text in texts:
        try:
            inner += map(compact, objects(json.loads(text)))
        except ValueError:
            pass  # a file that is uploaded
    events = [b"data: " + text + b"\n\n" for text in inner]
    # Longer than what is sent as it comes.
    events.append(b'data: {"choices":[{"delta":{"content":"%b"}}]}\n\n' % (b'\\"word' * 30_000))
    return {
        "frames": [b"".join(map(as_frame, texts[start:start + 4]))
                   for start in range(0, len(texts), 4)],
        "json_parse": texts, "json_view": texts, "page_result": inner, "step_checks": inner,
        "instance_file": inner, "injection_text": inner,
        "cmd_ipc": [b"\1" + as_frame(text) for text in inner],
        "turn_stream": [WHOLE + text for text in streams + events],
        "event_splitter": [WHOLE + text for text in streams + events],
        "http_request": [WHOLE + (text if b"\r\n\r\n" in text else text + b"\r\n\r\n")
                         for text in requests],
        "url_query": [text.split(b" ")[1] for text in requests],
    }.get(target.removesuffix("_fuzz"), texts)


def write(target, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for seed in set(seeds(target, DOCUMENT.read_text(encoding="utf-8"))):
        (folder / hashlib.sha1(seed).hexdigest()).write_bytes(seed)


if __name__ == "__main__":
    write(sys.argv[1], Path(sys.argv[2]))
