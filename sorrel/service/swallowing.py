"""Will an exception that no handler in Python code takes be swallowed on its way?

Decided at the raise, by what the frames on the stack are in the midst of: with statements and
finally clauses in each of them, and C code between one and its caller.
"""

from __future__ import absolute_import

from sorrel.inspection import frames
from sorrel.service import c_calls, with_blocks
from sorrel.service.c_callers import DROPPED, PERHAPS, PRINTED
from sorrel.service.code_paths import RAISES, UNCLEAR

# It leaves the thread's frames: with nothing between them that might swallow it; with C code of
# which that is not known; with calls that could not be read. The other fates are those of
# `c_callers`.
LEAVES, LEAVES_BY_C, LEAVES_SOMEHOW = 'leaves', 'leaves by C', 'leaves somehow'
# The fates of exceptions that end nothing, or show themselves once more in an outer frame.
SWALLOWED = (DROPPED, PRINTED, PERHAPS)


def fate(frame, kind, end=None):
    """What becomes of an exception of this class that has come up in a frame of the program.

    And the frame in which, or at whose call, it may first be swallowed; None for none. end: the
    frame that is not looked at any more, with those that it was called from.
    """
    try:
        return _fate(frame, kind, end)
    except (LookupError, RuntimeError, MemoryError):
        # Code that no compiler has made; or no room is left.
        return LEAVES_SOMEHOW, None


def _fate(frame, kind, end):
    answer, place = LEAVES, None
    for inner in frames.outward(frame):
        if inner is end:
            break
        one = _inside(inner, kind)
        outer = inner.f_back
        if one is None and outer is not None and frames.is_program(outer):
            one = c_calls.fate(inner, outer, kind)
        if one in SWALLOWED and place is None:
            place = inner
        if one == DROPPED or one == PRINTED:
            return one, place
        if one == PERHAPS or answer == PERHAPS:
            answer = PERHAPS
        elif one == c_calls.UNKNOWN_C or answer == LEAVES_BY_C:
            answer = LEAVES_BY_C
        elif one == c_calls.UNREAD:
            answer = LEAVES_SOMEHOW
    return answer, place


def _inside(frame, kind):
    """Whether the frame itself keeps the exception; None where it lets it go."""
    ends = with_blocks.ends_of(frame, kind, True)
    ends.discard(UNCLEAR)
    if not ends or ends == set([RAISES]):
        return None
    return PERHAPS if RAISES in ends else DROPPED
