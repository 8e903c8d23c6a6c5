"""Imports at a stop, where a thread that waits may be in the midst of one of its own.

Such a thread keeps the interpreter's import lock for as long as it waits: nothing may wait for it.
"""

from __future__ import absolute_import

import __builtin__
import imp
import itertools
import sys

# Taken now: a program may replace what the interpreter's modules offer.
_held, _acquire, _release = imp.lock_held, imp.acquire_lock, imp.release_lock
_frames_of_threads = sys._current_frames
# The interpreter's own: the core puts another one in its place, which the server is to hear of.
default_import = __builtin__.__import__


class Locked(Exception):
    """Nothing can be imported just now."""


def call(function, *arguments):
    """Calls what may import something. Raises Locked where that would have to wait."""
    if not _take():
        raise Locked
    try:
        return function(*arguments)
    finally:
        _release()


def _take():
    # By any(), no instruction of Python code comes between seeing it free and taking it.
    if not any(itertools.chain(
            itertools.starmap(_held, [()]), itertools.starmap(_acquire, [()]))):
        return True
    if len(_frames_of_threads()) > 1:
        return False
    _acquire()  # It is the calling thread that is in the midst of an import.
    return True
