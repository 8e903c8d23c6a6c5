"""Stacks as a person is shown them: the program's frames, where they are in the program's files."""

from __future__ import absolute_import

from sorrel.common.records import record
from sorrel.inspection import frames, source
from sorrel.languages import sublanguages

# One frame: where it is, or was when an exception left it.
Entry = record('Entry', 'frame path line')


def at_stop(stop):
    """The stack of a stopped thread down to its Stop's frame, outermost first."""
    return _outermost_first(outward_from_stop(stop))


def of_thread(thread):
    """The stack of a Thread, outermost first."""
    return _outermost_first(outward(thread.ident, thread.frame))


def of_traceback(thread, traceback, with_hidden=False):
    """The entries that an exception has left in a thread (its ident), outermost first."""
    language = sublanguages.at_work(thread, frames.innermost(traceback).tb_frame)
    found = []
    while traceback is not None:
        found += _shown(language, traceback.tb_frame, traceback.tb_lineno, with_hidden)
        traceback = traceback.tb_next
    return found


def outward_from_stop(stop, with_hidden=False):
    """The same as at_stop, innermost first, one by one.

    with_hidden: also what a sub-language hides.
    """
    frame = stop.frame
    if stop.policy is not None:
        # Some of the frames may have been left by now, and lead nowhere.
        traceback = frames.of_program(stop.argument[2])
        frame = traceback.tb_frame.f_back
        for entry in reversed(of_traceback(stop.thread, traceback, with_hidden)):
            yield entry
    for entry in outward(stop.thread, frame, with_hidden):
        yield entry


def outward(thread, frame, with_hidden=False):
    """The entries of a thread (its ident) from this frame on, innermost first, one by one."""
    language = sublanguages.at_work(thread)
    for caller in frames.outward(frame):
        for entry in _shown(language, caller, caller.f_lineno, with_hidden):
            yield entry


def is_own_place(entry):
    """Whether it is where its frame's code is, and not where a sub-language says."""
    return entry.path == source.file_name(entry.frame)


def _outermost_first(entries):
    found = list(entries)
    found.reverse()
    return found


def _shown(language, frame, line, with_hidden):
    if sublanguages.is_hidden(language, frame):
        return [Entry(frame, source.file_name(frame), line)] if with_hidden else []
    location = sublanguages.location(language, frame)
    return [Entry(frame, *(location or (source.file_name(frame), line)))]


class LazyStack(object):
    """A stack of which no more is made than is looked at."""

    def __init__(self, entries, most):
        """entries: an iterator over them. most: how many there can be."""
        self._entries = entries
        self._most = most
        self._made = []

    def page(self, start, count):
        """Some of the entries; count: 0 for all from start on."""
        while self._most is not None and not (count and len(self._made) >= start + count):
            try:
                self._made.append(next(self._entries))
            except StopIteration:
                self._most = None
        return self._made[start:start + count] if count else self._made[start:]

    def most(self):
        """How many there are, or can be as far as is known."""
        return len(self._made) if self._most is None else self._most
