"""The extension's side of a host: takes commands for the browser, and answers them."""


def is_command(frame):
    return isinstance(frame, dict) and frame.get("command") == "browserUse"


class Extension:
    """The extension's side: takes the commands that come from now on, or `since` a mark, and
    answers them."""

    def __init__(self, panel, since=None):
        self.panel = panel
        self._next = panel.mark() if since is None else since

    def take(self):
        """The next command."""
        command = self.panel.wait_frame(is_command, self._next)
        self._next += self.panel.frames_since(self._next).index(command) + 1
        return command

    def commands_waiting(self):
        return [each for each in self.panel.frames_since(self._next) if is_command(each)]

    def reply(self, command, **keys):
        self.panel.host.send({"requestId": command["requestId"], **keys})

    def reply_raw(self, command, rest):
        """An answer whose members behind the id are this text."""
        body = f'{{"requestId":"{command["requestId"]}",{rest}}}'.encode()
        self.panel.send_raw(len(body).to_bytes(4, "little") + body)
