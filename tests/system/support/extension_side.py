"""The extension's side of the browser tools: takes commands as they come, and answers them."""

import json
import threading

from support.tool_server_client import check_request

CALL = "/api/agent-tools/call"


def is_command(frame):
    return isinstance(frame, dict) and frame.get("command") == "browserUse"


class ToolCall(threading.Thread):
    """One call of a tool over HTTP, on a thread of its own; `result` waits for its end."""

    def __init__(self, server, name, arguments=None, body=None):
        super().__init__(daemon=True)
        request = {"name": name, **({} if arguments is None else {"arguments": arguments})}
        self._server = server
        self._body = json.dumps(request).encode() if body is None else body
        self._checked = body is None  # a body that is given is whatever the test wants
        self._answer = None
        self._failure = None
        self.start()

    def run(self):
        try:
            head = self._server.head("POST", CALL, len(self._body), origin=None)
            if self._checked:
                check_request(head, self._body)
            self._answer = self._server.exchange(head + self._body, timeout=60)
        except Exception as failure:  # shown where the result is asked for
            self._failure = failure

    def answer(self, timeout=60):
        self.join(timeout)
        assert not self.is_alive(), "the call was not answered"
        assert self._failure is None, self._failure
        return self._answer

    def result(self, timeout=60):
        answer = self.answer(timeout)
        assert answer.data.startswith(b"HTTP/1.1 200 OK\r\n"), answer.data[:300]
        return answer.json()


class Extension:
    """Commands that the host sends, from the moment on in which this was made."""

    def __init__(self, panel):
        self.panel = panel
        self._next = panel.mark()

    def take(self, timeout=15):
        """The next command."""
        command = self.panel.wait_frame(is_command, self._next, timeout)
        frames = self.panel.host.frames
        while frames[self._next] is not command:
            self._next += 1
        self._next += 1
        return command

    def commands_waiting(self):
        return [each for each in self.panel.frames_since(self._next) if is_command(each)]

    def reply(self, command, **keys):
        self.panel.host.send({"requestId": command["requestId"], **keys})

    def reply_raw(self, command, rest):
        """An answer whose members behind the id are this text."""
        body = f'{{"requestId":"{command["requestId"]}",{rest}}}'.encode()
        self.panel.send_raw(len(body).to_bytes(4, "little") + body)


def failure(tool, error):
    return {"error": error, "ok": False, "tool": tool}


NO_ANSWER = "Chrome extension did not answer the browser tool."
