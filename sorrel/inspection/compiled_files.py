"""What the interpreter itself has compiled of source files, which takes long to do again.

It may be more than could be compiled here.
"""

from __future__ import absolute_import

import imp
import marshal
import os
import sys
import types

from sorrel.common import text_files
from sorrel.inspection import frames, modules

# A compiled file begins with the interpreter's number and the time of its source.
_TIME = slice(4, 8)
_HEAD = 8
# Taken now: a program may replace what the interpreter's modules offer.
_current_frames = sys._current_frames


def code_of(path, version):
    """The code of all of a source file; None where it is not there. version: of the file."""
    return _running(path) or _beside(path, version)


def is_of_another(path, version):
    """Whether a compiled file belongs to its source as it was before. version: of that now."""
    try:
        return _time_in(text_files.content(path)) != _seconds(version)
    except text_files.Unreadable:
        return False


def _running(path):
    """That of a program which is run from the file, and for which nothing is kept."""
    for frame in _current_frames().values():
        outermost = ([None] + [caller for caller in frames.callers(frame)
                               if frames.is_program(caller)])[-1]
        if outermost is not None and outermost.f_code.co_name == '<module>' \
                and outermost.f_globals is modules.namespace(sys.modules.get('__main__')) \
                and os.path.abspath(outermost.f_code.co_filename) == path:
            return outermost.f_code
    return None


def _beside(path, version):
    """What an import of the file takes in place of its text."""
    try:
        compiled = text_files.content(path + ('c' if __debug__ else 'o'))
        if not compiled.startswith(imp.get_magic()) or _time_in(compiled) != _seconds(version):
            return None
        code = marshal.loads(compiled[_HEAD:])
    except (text_files.Unreadable, EOFError, ValueError, TypeError, MemoryError):
        return None
    return code if isinstance(code, types.CodeType) else None


def _time_in(compiled):
    return sum([ord(byte) << 8 * place for place, byte in enumerate(compiled[_TIME])])


def _seconds(version):
    return int(version[0]) & 0xffffffff
