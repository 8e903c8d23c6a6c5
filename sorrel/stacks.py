"""Stacks as a person is shown them: the program's frames, where they are in the program's files."""

from collections import namedtuple

from sorrel import frames, source, sublanguages

# One frame: where it is, or was when an exception left it.
Entry = namedtuple('Entry', 'frame path line')


def at_stop(stop):
    """The stack of a stopped thread down to its Stop's frame, outermost first."""
    if stop.policy is None:
        return _entries(stop.thread, stop.frame)
    # Some of the frames may have been left by now, and lead nowhere.
    traceback = frames.of_program(stop.argument[2])
    found = _entries(stop.thread, traceback.tb_frame.f_back)
    while traceback is not None:
        found += _shown(stop.thread, traceback.tb_frame, traceback.tb_lineno)
        traceback = traceback.tb_next
    return found


def of_thread(thread):
    """The stack of a Thread, outermost first."""
    return _entries(thread.id, thread.frame)


def _entries(thread, innermost):
    found = []
    for frame in frames.stack(innermost):
        found += _shown(thread, frame, frame.f_lineno)
    return found


def _shown(thread, frame, line):
    if sublanguages.is_hidden(thread, frame):
        return []
    location = sublanguages.location(thread, frame)
    return [Entry(frame, *(location or (source.file_name(frame), line)))]
