"""Which code is the user's own, and which that of libraries."""

import os

from sorrel.inspection import frames, source

_LIBRARY = os.path.dirname(os.path.abspath(os.__file__)) + os.sep


def is_library(path):
    """Whether a file belongs to the interpreter or was installed for it."""
    return path.startswith(_LIBRARY) or '/site-packages/' in path or '/dist-packages/' in path


def is_own_code(frame):
    """Whether a frame is the program's and runs code of no library."""
    return frames.is_program(frame) and not is_library(source.file_name(frame))
