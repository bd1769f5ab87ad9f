"""The browser tools as an agent uses them: over HTTP, at the address that the host registered."""

from support.standin import post_json


class AgentTools:
    def __init__(self, provider):
        self.url = provider["url"]
        self._headers = {"X-Morva-Session": provider["token"]}

    def call(self, tool, **arguments):
        """The result as the agent gets it, whatever it is."""
        body = {"name": f"browser_{tool}", "arguments": arguments}
        return post_json(f"{self.url}/call", body, self._headers)

    def use(self, tool, **arguments):
        """The same, for a call that must succeed."""
        result = self.call(tool, **arguments)
        assert result.get("ok") is True, result
        return result

    def goto(self, url):
        return self.use("navigate", url=url)

    def find(self, query, **arguments):
        """The first match."""
        items = self.use("find", query=query, **arguments)["data"]["items"]
        assert items, f"nothing found for {query!r}"
        return items[0]

    def ref(self, query):
        return self.find(query)["ref"]
