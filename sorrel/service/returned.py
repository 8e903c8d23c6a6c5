"""What the calls have returned that a thread's step has gone over."""

from __future__ import absolute_import

import tmorvik26_vs2012_x64 as core

from sorrel.inspection import frames

_note_returns, _returned = [core._for_sorrel[name] for name in ('note_returns', 'returned')]


def note(on):
    """Whether it is kept, for steps that begin from now on: until the thread goes on again."""
    _note_returns(on)


def to(frame):
    """(name, value) of the last calls that this frame has made itself, in their order.

    The frame is one of the calling thread's, which has stopped. Calls that are made from C code,
    and not by it, are the frame's, too.
    """
    return [(name, value) for name, variables, value in _returned(frame)
            if not frames.is_own_namespace(variables)]
