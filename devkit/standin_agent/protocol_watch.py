"""Holds what the host asks, and what this agent says, against docs/schema.

Faults are wrong answers on purpose, and are not looked at. Neither is what a scenario writes as
bytes or as the text of a data line: there the scenario is about broken streams.
"""

from __future__ import annotations

from typing import Any

import aiohttp
from aiohttp import web

from protocol_check.findings import AGENT, CLIENT, HOST, Findings
from protocol_check.http_messages import body_value, message_name, request_value

FINDINGS = Findings()
_MOST_SHOWN = 20  # what fits into a pipe that nobody reads meanwhile


def hold_request(request: web.Request, body: bytes) -> None:
    name = message_name(request.method, request.raw_path)
    value = request_value(request.method, request.raw_path, request.headers.items(), body)
    FINDINGS.message(HOST, "agent", name, value)


def hold_answer(request: web.Request, response: web.StreamResponse) -> None:
    if isinstance(response, web.Response) and isinstance(response.body, (bytes, type(None))):
        value = {"status": response.status, "body": body_value(response.body or b"")}
        FINDINGS.reply(AGENT, "agent", message_name(request.method, request.raw_path), value)


def hold_event(path: str, event: Any) -> None:
    FINDINGS.message(AGENT, "agentStream", path, event)


async def hold_tool_call(response: aiohttp.ClientResponse, body: bytes) -> None:
    """A request to the host's tool server, and its answer."""
    asked = response.request_info
    name = message_name(asked.method, asked.url.raw_path_qs)
    value = request_value(asked.method, asked.url.raw_path_qs, asked.headers.items(), body)
    FINDINGS.message(CLIENT, "toolServer", name, value)
    headers = {key.decode().lower(): each.decode() for key, each in response.raw_headers}
    FINDINGS.reply(HOST, "toolServer", name, {
        "status": response.status, "reason": response.reason, "headers": headers,
        "body": body_value(await response.read())})


def report() -> str:
    """The first that was against the protocol, a line each; empty when nothing was."""
    return "\n".join(f"{finding.side}: {finding.text}" for finding in FINDINGS.take()[:_MOST_SHOWN])
