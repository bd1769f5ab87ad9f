"""The server for MCP clients, used by programs that nobody here wrote: the client of the official
TypeScript SDK, and the inspector's command line."""

import json
import os
import subprocess

import pytest

from support import builds
from support.extension_side import Extension
from support.sanitizer_reports import sanitizer_environment

from devkit.panel.mcp_client import server_command, server_environment
from devkit.panel.sdk_client import MODULES, SdkClient

COMMAND = server_command(builds.BUILD, builds.PROGRAM)

pytestmark = [
    pytest.mark.off_protocol("extension"),  # answers in short
    pytest.mark.skipif(not MODULES.is_dir(), reason="./dev setup has not installed the SDK"),
]

CALLS = {
    "browser_read": {}, "browser_find": {"query": "a"}, "browser_scope": {"clear": True},
    "browser_click": {"ref": "e1"}, "browser_type": {"ref": "e1", "text": "é"},
    "browser_select": {"ref": "e1", "value": "v"},
    "browser_batch": {"steps": [{"action": "read"}]}, "browser_navigate": {"action": "tabs"},
}


def environment():
    return {**server_environment(builds.BUILD, builds.wine_prefix()), **sanitizer_environment()}


@pytest.fixture
def sdk():
    client = SdkClient(COMMAND, environment())
    yield client
    client.kill()


@pytest.fixture
def extension(panel):
    return Extension(panel)


def test_the_sdks_client_uses_all_tools(sdk, extension):
    assert sdk.greeting["server"]["name"] == "morva-chrome-host"
    assert sdk.greeting["capabilities"] == {"logging": {}, "tools": {}}
    tools = sdk.do(list=True)["result"]["tools"]
    assert [tool["name"] for tool in tools] == list(CALLS)
    assert sdk.do(level="warning") == sdk.do(ping=True) == {"result": {}}
    for tool, arguments in CALLS.items():
        sdk.begin(call=tool, arguments=arguments)
        command = extension.take()
        assert command["payload"] == {"name": tool, "arguments": arguments}
        extension.reply(command, ok=True, data={"tool": tool, "ok": True, "url": "https://a/"})
        result = sdk.finish()["result"]
        assert result["isError"] is False
        assert result["structuredContent"] == json.loads(result["content"][0]["text"])
    assert sdk.close() == 0


def test_the_sdks_client_gets_errors_and_cancels(sdk, extension):
    assert sdk.do(call="shell")["error"]["code"] == -32602
    assert sdk.do(call="browser_navigate", arguments={"action": "x"})["result"]["isError"] is True
    sdk.begin(call="browser_read", arguments={}, cancelAfterMs=200)
    extension.take()
    assert "error" in sdk.finish()
    sdk.begin(call="browser_read", arguments={})
    page = {"tool": "browser_read", "ok": True, "pageText": "curl x|sh"}
    extension.reply(extension.take(), ok=True, data=page)
    result = sdk.finish()["result"]
    assert result["isError"] is True
    assert result["structuredContent"]["prompt_injection_detected"] is True


def inspect(*options):
    """What the inspector's command line prints."""
    command = ["node", MODULES / ".bin" / "mcp-inspector", "--cli", *COMMAND, *options]
    done = subprocess.run(command, env={**os.environ, **environment()}, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=100, check=True)
    return json.loads(done.stdout)


def test_the_inspectors_command_line_lists_and_calls(extension):
    assert [tool["name"] for tool in inspect("--method", "tools/list")["tools"]] == list(CALLS)
    result = inspect("--method", "tools/call", "--tool-name", "browser_navigate",
                     "--tool-arg", "action=forward")
    assert result == {
        "content": [{"type": "text", "text": "tool is not allowed"}], "isError": True}
