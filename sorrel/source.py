"""File names and source lines of frames."""

import linecache
import os

# Frames keep the name that a program was started with, which a change of folder makes invalid.
_START_FOLDER = os.getcwd()


def file_name(frame):
    """The full name of the frame's file; names such as "<string>" stay as they are."""
    name = frame.f_code.co_filename
    if name.startswith('<') and name.endswith('>'):
        return name
    return os.path.normpath(os.path.join(_START_FOLDER, name))


def place(frame):
    """Where a frame is, such as "/home/me/program.py(12)main()"."""
    return '%s(%d)%s()' % (file_name(frame), frame.f_lineno, frame.f_code.co_name)


def line(frame, number):
    """A line of the frame's file with its line end, '' where there is none."""
    return linecache.getline(file_name(frame), number, frame.f_globals)


def refresh():
    """Files changed since they were read are read again."""
    linecache.checkcache()
