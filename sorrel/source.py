"""File names and source lines of frames and of entries of stacks."""

import linecache

import tmorvik26_vs2012_x64 as core


def file_name(frame):
    """The full name of the frame's file; names such as "<stdin>" stay as they are."""
    name = frame.f_code.co_filename
    if name.startswith('<') and name.endswith('>'):
        # The core goes by the module's file here, whose lines are not these.
        return name
    return core.get_frame_file(frame)


def place(entry):
    """Where an entry is, such as "/home/me/program.py(12)main()"."""
    return '%s(%d)%s()' % (entry.path, entry.line, entry.frame.f_code.co_name)


def line(entry, number):
    """A line of the entry's file with its line end, '' where there is none."""
    return linecache.getline(entry.path, number, entry.frame.f_globals)


def refresh():
    """Files changed since they were read are read again."""
    linecache.checkcache()
