"""Which code is the user's own, and which that of libraries."""

from __future__ import absolute_import

import os
import threading

from sorrel.inspection import frames, source

# An environment of a program's own may have but a part of the library, with the first of these.
_LIBRARIES = tuple(set([os.path.dirname(os.path.abspath(module.__file__)) + os.sep
                        for module in (os, threading)]))


def is_library(path):
    """Whether a file belongs to the interpreter or was installed for it."""
    return path.startswith(_LIBRARIES) or '/site-packages/' in path or '/dist-packages/' in path


def is_own_code(frame):
    """Whether a frame is the program's and runs code of no library."""
    return frames.is_program(frame) and not is_library(source.file_name(frame))
