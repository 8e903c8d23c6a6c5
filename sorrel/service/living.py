"""The threads there are, as the interpreter tells them apart: by their idents.

The core's ids are no help: they are half an address, and many threads' addresses have another half.
"""

from __future__ import absolute_import

import sys
import thread
import threading

from sorrel.inspection import frames

# Taken now: a program may replace what the interpreter's modules offer.
current, _current_frames = thread.get_ident, sys._current_frames


def current_frames():
    """Where each thread is, by its ident."""
    frames_by_ident = _current_frames()
    frames_by_ident.pop(0, None)  # Of what is left in a forked process of its parent's threads.
    return frames_by_ident


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
