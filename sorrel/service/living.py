"""The threads there are, as the interpreter tells them apart: by their idents.

The core's ids are no help: they are half an address, and many threads' addresses have another half.
"""

from __future__ import absolute_import

import sys
import threading

import _sorrel

from sorrel.common.originals import thread
from sorrel.inspection import frames

# Taken now: a program may replace what the interpreter's modules offer.
current, _current_frames = thread.get_ident, sys._current_frames


def current_frames():
    """Where each thread is in the program, by its ident; where one is not, its innermost frame.

    The server's own frames are not handed out: one that held itself in its variables, by whatever
    way, would keep the frames of the program that it was called from, and all that is in them.
    """
    # 0: of what is left in a forked process of its parent's threads.
    return dict((ident, frames.without_own_calls(frame))
                for ident, frame in _current_frames().items() if ident != 0)


def in_order_of_start():
    """(ident, frame) of each of the current_frames()."""
    found = current_frames()
    # Each once: a thread that is being started has, for a moment, the ident of its starter.
    return [(ident, found.pop(ident)) for ident in _sorrel.thread_idents() if ident in found]


def is_in_server(thread):
    """Whether the server's own code is what this thread, which is another one, just runs."""
    frame = _current_frames().get(thread)
    return frame is not None and not frames.is_program(frame)


def idents():
    """Those of all threads that run Python code. Another thread may get that of one that ended."""
    return current_frames().keys()


def name(ident, frame):
    """What a thread whose innermost frame this is goes by; it may have none."""
    known = threading._active.get(ident)
    if known is not None:
        # Not asked: a class of the program may answer in its own way.
        return known.__dict__.get('_Thread__name') or 'Thread'
    # A thread without an object is named by the function that it runs.
    outermost = None
    for caller in frames.callers(frame):
        if frames.is_program(caller):
            outermost = caller
    return outermost.f_code.co_name if outermost is not None else 'thread %s' % ident
