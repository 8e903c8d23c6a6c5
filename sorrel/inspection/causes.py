"""What was being handled when an exception was raised, which the interpreter does not note."""

from __future__ import absolute_import

import sys

from sorrel.inspection import frames, try_statements


def of(error):
    """The exceptions that were being handled when this one was raised, the last one first.

    To be called by the thread that has raised it, where nothing is handled in between.
    """
    if error[2] is None:
        return []
    raising = frames.innermost(error[2]).tb_frame
    callers = list(frames.outward(raising))
    found = []
    handled = sys.exc_info()
    while handled[2] is not None and handled[2].tb_frame in callers:
        handler = handled[2].tb_frame
        del callers[:callers.index(handler) + 1]
        # What a function has handled it keeps until it returns.
        if handled[1] is not error[1] and try_statements.is_being_left(
                handler.f_code, handled[2].tb_lasti, handler.f_lasti):
            found.append(handled)
        handled = handler.f_exc_type, handler.f_exc_value, handler.f_exc_traceback
    return found
