"""Every frame and HTTP body that the tests see is held against docs/schema.

What the host says must always be right. What the tests send must be too, unless a test says that
it is not, by the sides that it plays:

    @pytest.mark.off_protocol("agent", "extension")

Bytes that are sent as they are (`send_raw`, `exchange`, pieces of a stream that are bytes) are not
looked at; frames to the host are, however they were sent.
"""

from support import builds  # first: it makes devkit findable

from devkit.protocol_check.findings import (  # noqa: E402
    AGENT, APPLICATION, CLIENT, EXTENSION, HOST, PANEL, PIPE_CLIENT, SIDES, Findings)
from devkit.protocol_check.host_traffic import HostTraffic  # noqa: E402

findings = Findings()
_watched = []


def watch(host):
    """From now on the frames of this HostProcess are looked at whenever `faults_since` is asked."""
    traffic = HostTraffic(findings)
    host.on_sent = traffic.sent
    _watched.append((host, traffic, [0]))
    return traffic


def _look(host, traffic, looked):
    frames = host.frames[looked[0]:] if host.started else []
    looked[0] += len(frames)
    traffic.check(frames)


def faults_of_test(allowed):
    """What was wrong since the last call, but for what the sides in `allowed` said."""
    assert set(allowed) <= set(SIDES) - {HOST}, f"no such sides: {allowed}"
    for entry in list(_watched):
        _look(*entry)
        if entry[0].started and not entry[0].running:
            _watched.remove(entry)
    return [f"{each.side}: {each.text}" for each in findings.take() if each.side not in allowed]


__all__ = ["AGENT", "APPLICATION", "CLIENT", "EXTENSION", "HOST", "PANEL", "PIPE_CLIENT",
           "builds", "faults_of_test", "findings", "watch"]
