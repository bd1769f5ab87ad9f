#!/usr/bin/env python3
"""An agent that does nothing but send events as fast as the network takes them.

It is a process of its own with a raw socket, and a stream's bytes are made once and kept for the
next request, so that it is not what a measurement measures. The request's prompt says what to
stream:

    bench:chunk:COUNT          all events in one write
    bench:packet:COUNT         one write for each event
    bench:paced:COUNT:MICROS   one event every MICROS microseconds, each with the time of its write

The stream ends with "[DONE]" and with the connection.
"""

from __future__ import annotations

import json
import re
import socket
import sys
import time
from functools import lru_cache

PORT = 8090
REQUEST = re.compile(rb"bench:(chunk|packet|paced):(\d+)(?::(\d+))?")
STREAM_HEAD = (b"HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
               b"Cache-Control: no-store\r\nConnection: close\r\n\r\n")
END = b"data: [DONE]\n\n"
STAMP_DIGITS = 20


def event(content: str) -> bytes:
    chunk = {
        "id": "bench", "object": "chat.completion.chunk", "model": "bench",
        "choices": [{"index": 0, "delta": {"content": content}, "finish_reason": None}],
    }
    return b"data: " + json.dumps(chunk, separators=(",", ":")).encode() + b"\n\n"


@lru_cache(maxsize=None)
def events(count: int) -> list[bytes]:
    return [event(f"{number} ") for number in range(count)]


@lru_cache(maxsize=None)
def whole_stream(count: int) -> bytes:
    return b"".join(events(count)) + END


def read_request(connection: socket.socket) -> bytes:
    data = b""
    while b"\r\n\r\n" not in data:
        piece = connection.recv(65536)
        if not piece:
            return b""
        data += piece
    head, _, body = data.partition(b"\r\n\r\n")
    length = re.search(rb"(?i)\r\ncontent-length:\s*(\d+)", head)
    while length and len(body) < int(length[1]):
        body += connection.recv(65536)
    return head + b"\r\n\r\n" + body


def stream_paced(connection: socket.socket, count: int, micros: int) -> None:
    # Cut once, so that between the clock and the write there is only putting the digits in.
    before, after = event("#" * STAMP_DIGITS).split(b"#" * STAMP_DIGITS)
    for _ in range(count):
        time.sleep(micros / 1e6)
        stamp = str(time.monotonic_ns()).zfill(STAMP_DIGITS).encode()
        connection.sendall(before + stamp + after)


def stream(connection: socket.socket, kind: bytes, count: int, micros: int) -> None:
    connection.sendall(STREAM_HEAD)
    if kind == b"chunk":
        connection.sendall(whole_stream(count))
        return
    if kind == b"packet":
        for each in events(count):
            connection.sendall(each)
    else:
        stream_paced(connection, count, micros)
    connection.sendall(END)


def answer_json(connection: socket.socket, value: object) -> None:
    body = json.dumps(value).encode()
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                       b"Content-Length: %d\r\nConnection: close\r\n\r\n%s" % (len(body), body))


def serve(connection: socket.socket) -> None:
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    request = read_request(connection)
    wanted = REQUEST.search(request)
    if request.startswith(b"GET /ready "):
        answer_json(connection, {"ready": True})
    elif wanted:
        stream(connection, wanted[1], int(wanted[2]), int(wanted[3] or 0))


def main() -> None:
    with socket.create_server(("127.0.0.1", PORT), backlog=64) as listener:
        print("ready", flush=True)
        while True:
            connection, _ = listener.accept()
            with connection:
                try:
                    serve(connection)
                except ConnectionError as error:  # the program went away in the middle
                    print(error, file=sys.stderr)


if __name__ == "__main__":
    main()
