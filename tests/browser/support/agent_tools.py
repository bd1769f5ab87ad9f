"""The browser tools as an agent uses them: over HTTP, at the address that the host registered."""

import json
import urllib.request
from urllib.parse import urlsplit

from devkit.protocol_check.findings import CLIENT, HOST, Findings
from devkit.protocol_check.http_messages import body_value, message_name, request_value

FINDINGS = Findings()  # what is said against docs/schema
_LONGEST_CALL_S = 60


class AgentTools:
    def __init__(self, provider):
        self.url = provider["url"]
        self._token = provider["token"]

    def call(self, tool, **arguments):
        """The result as the agent gets it, whatever it is."""
        url = f"{self.url}/call"
        body = json.dumps({"name": f"browser_{tool}", "arguments": arguments}).encode()
        headers = {"Content-Type": "application/json", "X-Morva-Session": self._token,
                   "Host": urlsplit(url).netloc}
        path = urlsplit(url).path
        name = message_name("POST", path)
        FINDINGS.message(CLIENT, "toolServer", name,
                         request_value("POST", path, headers.items(), body))
        request = urllib.request.Request(url, body, headers)
        with urllib.request.urlopen(request, timeout=_LONGEST_CALL_S) as answer:
            text = answer.read()
        FINDINGS.reply(HOST, "toolServer", name, {
            "status": answer.status, "reason": answer.reason, "body": body_value(text),
            "headers": {name.lower(): value for name, value in answer.headers.items()}})
        return json.loads(text)

    def use(self, tool, **arguments):
        """The same, for a call that must succeed."""
        result = self.call(tool, **arguments)
        assert result.get("ok") is True, result
        return result

    def goto(self, url):
        return self.use("navigate", url=url)

    def ref(self, query):
        """Of the first match."""
        items = self.use("find", query=query)["data"]["items"]
        assert items, f"nothing found for {query!r}"
        return items[0]["ref"]
