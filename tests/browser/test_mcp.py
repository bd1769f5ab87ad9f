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


def test_a_client_fills_a_form_goes_back_and_is_stopped_by_a_hostile_page(sdk, panel, site):
    def use(tool, is_error=False, **arguments):
        result = sdk.do(call=f"browser_{tool}", arguments=arguments)["result"]
        assert result["isError"] is is_error, result
        return result["structuredContent"]

    def ref(query):
        return use("find", query=query)["data"]["items"][0]["ref"]

    use("navigate", url=f"{site.url}/shop.html")
    use("navigate", url=f"{site.url}/form.html")
    assert use("read")["data"]["count"] == 14
    use("type", ref=ref("your name"), text="\u00c4nne")
    use("click", ref=ref("it is a gift"))
    assert use("read")["data"]["items"][0]["value"] == "\u00c4nne"
    assert use("scope")["ok"] is True
    batch = use("batch", steps=[{"action": "find", "query": "gift"}, {"action": "click"}])
    assert (batch["all_ok"], batch["first_failure"]) == (False, 1)
    assert use("navigate", action="back")["url"] == f"{site.url}/shop.html"
    refused = sdk.do(call="browser_select", arguments={"ref": "e4000"})["result"]
    assert refused == {
        "content": [{"type": "text", "text": "no element e4000"}], "isError": True}
    use("navigate", url=f"{site.url}/reviews.html")
    hostile = use("read", is_error=True)
    assert hostile["prompt_injection_detected"] is True
    assert "refusing to continue" in hostile["error"]
