"""Waiting for the turn that a test has begun by hand."""

import contextlib


@contextlib.contextmanager
def whole_turn(panel):
    """What is done inside begins or ends a turn; afterwards it is over."""
    before = panel.turns_over
    yield
    panel.wait_for(lambda: panel.turns_over > before, "the turn did not end")


def say(panel, prompt):
    """A turn in the chat that is open, with what is attached to it."""
    with whole_turn(panel):
        panel.send(prompt)
