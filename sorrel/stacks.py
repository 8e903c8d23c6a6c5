"""Stacks as a person is shown them: the program's frames, where they are in the program's files."""

from collections import namedtuple

from sorrel import frames, source, sublanguages

# One frame: where it is, or was when an exception left it.
Entry = namedtuple('Entry', 'frame path line')


def at_stop(stop):
    """The stack of a stopped thread down to its Stop's frame, outermost first."""
    return _outermost_first(outward_from_stop(stop))


def of_thread(thread):
    """The stack of a Thread, outermost first."""
    return _outermost_first(outward(thread.id, thread.frame))


def outward_from_stop(stop):
    """The same as at_stop, innermost first, one by one."""
    frame = stop.frame
    if stop.policy is not None:
        # Some of the frames may have been left by now, and lead nowhere.
        traceback = frames.of_program(stop.argument[2])
        frame = traceback.tb_frame.f_back
        left = []
        while traceback is not None:
            left += _shown(stop.thread, traceback.tb_frame, traceback.tb_lineno)
            traceback = traceback.tb_next
        for entry in reversed(left):
            yield entry
    for entry in outward(stop.thread, frame):
        yield entry


def outward(thread, frame):
    """The entries of a thread (the core's id) from this frame on, innermost first, one by one."""
    for caller in frames.outward(frame):
        for entry in _shown(thread, caller, caller.f_lineno):
            yield entry


def _outermost_first(entries):
    found = list(entries)
    found.reverse()
    return found


def _shown(thread, frame, line):
    if sublanguages.is_hidden(thread, frame):
        return []
    location = sublanguages.location(thread, frame)
    return [Entry(frame, *(location or (source.file_name(frame), line)))]
