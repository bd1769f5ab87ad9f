"""What the system knows of the host's TCP connections, under Wine too: the ones that wait to be
accepted, and the ones that the host has closed."""

from pathlib import Path

from support.waiting import until

_ESTABLISHED, _LISTENING = "01", "0A"


def _rows(port):
    """Local and remote port, state and receive queue of the sockets on a local port."""
    for line in Path("/proc/net/tcp").read_text().splitlines()[1:]:
        _, local, remote, state, queues, *_ = line.split()
        if int(local.split(":")[1], 16) == port:
            yield int(remote.split(":")[1], 16), state, int(queues.split(":")[1], 16)


def wait_until_accepted(port, patience=10):
    """Waits until no connection to the port waits for its acceptance."""
    until(lambda: not any(state == _LISTENING and queue for _, state, queue in _rows(port)),
          "connections are not accepted", patience, 0.001)


def listening(ports):
    """Those of the ports on which somebody listens."""
    return [port for port in ports if any(state == _LISTENING for _, state, _ in _rows(port))]


def has_left(port, connection):
    """Whether the far end on this port, which we may not have read to its end, is closed."""
    ours = connection.getsockname()[1]
    return not any(remote == ours and state == _ESTABLISHED for remote, state, _ in _rows(port))
