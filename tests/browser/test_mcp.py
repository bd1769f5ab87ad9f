"""The official SDK's client uses the Windows program, and through it a real browser."""

import pytest

from devkit.panel.mcp_client import server_command, server_environment
from devkit.panel.sdk_client import MODULES, SdkClient

pytestmark = pytest.mark.skipif(not MODULES.is_dir(), reason="./dev setup installs the SDK")


@pytest.fixture
def sdk(prefix):
    client = SdkClient(server_command("windows"), server_environment("windows", prefix))
    yield client
    client.kill()


@pytest.fixture
def use(sdk, panel):
    """use(tool, ...) is the result of a call, which must be an error only when that is said."""

    def call(tool, is_error=False, **arguments):
        result = sdk.do(call=f"browser_{tool}", arguments=arguments)["result"]
        assert result["isError"] is is_error, result
        return result["structuredContent"]

    return call


@pytest.fixture
def ref(use):
    return lambda query: use("find", query=query)["data"]["items"][0]["ref"]


def test_a_client_uses_all_tools_on_a_form(sdk, use, ref, page, site):
    assert len(sdk.do(list=True)["result"]["tools"]) == 8
    use("navigate", url=f"{site.url}/shop.html")
    use("navigate", url=f"{site.url}/form.html")
    assert use("read")["data"]["count"] == 14
    use("type", ref=ref("your name"), text="\u00c4nne")
    use("click", ref=ref("it is a gift"))
    use("select", ref=ref("size"), value="m")
    assert page("""
      const of = (name) => document.querySelector(`[name=${name}]`);
      return [of('who').value, of('gift').checked, of('size').value];
    """) == ["\u00c4nne", True, "m"]
    assert use("scope", name="Pages")["scope"]["active"] is True
    assert use("read")["data"]["count"] == 2
    use("scope", clear=True)
    batch = use("batch", steps=[{"action": "find", "query": "gift"}, {"action": "click"}])
    assert (batch["all_ok"], batch["first_failure"]) == (False, 1)
    assert use("navigate", action="back")["url"] == f"{site.url}/shop.html"


def test_a_client_gets_refusals_and_cancels(sdk, use, site):
    use("navigate", url=f"{site.url}/form.html")
    assert sdk.do(call="shell")["error"]["code"] == -32602
    for arguments, text in (({"ref": "e4000"}, "no element e4000"), ({}, "a ref is needed")):
        refused = sdk.do(call="browser_select", arguments=arguments)["result"]
        assert refused == {"content": [{"type": "text", "text": text}], "isError": True}
    waits = {"steps": [{"action": "wait", "ms": 5000}] * 3}
    assert "error" in sdk.do(call="browser_batch", arguments=waits, cancelAfterMs=300)
    assert use("read")["data"]["count"] == 14  # while the extension still waits
    use("navigate", url=f"{site.url}/reviews.html")
    hostile = use("read", is_error=True)
    assert hostile["prompt_injection_detected"] is True
    assert "refusing to continue" in hostile["error"]
    assert sdk.close() == 0
