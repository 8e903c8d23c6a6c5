"""The files with a person's commands that are carried out before the first prompt."""

from __future__ import absolute_import

import os
import stat

from sorrel.common import text_files

_NAME = '.sorrelrc'
_BY_OTHERS = stat.S_IWGRP | stat.S_IWOTH


def read():
    """Their lines, each a text, the file's name and the number; and complaints about files."""
    home = os.path.join(os.path.expanduser('~'), _NAME)
    here = _here()
    lines, complaints = [], []
    if text_files.is_file(home):
        _add_lines(home, os.path.join('~', _NAME), lines, complaints)
    if here is not None and os.path.realpath(here) != os.path.realpath(home) \
            and text_files.is_file(here):
        if _is_own(here) and _is_own(os.path.dirname(here)):
            _add_lines(here, _NAME, lines, complaints)
        else:
            complaints.append('Not read, since others may write it: %s' % here)
    return lines, complaints


def _here():
    """That of the current folder, or None."""
    try:
        return os.path.abspath(_NAME)
    except OSError:
        return None  # The folder is gone.


def _add_lines(path, name, lines, complaints):
    try:
        texts = text_files.text(path).split('\n')
    except text_files.Unreadable as error:
        complaints.append('Cannot read %s: %s' % (name, error))
    else:
        lines += [(text, name, number) for number, text in enumerate(texts, 1)]


def _is_own(path):
    """Whether only this user can write it."""
    status = os.stat(path)
    return status.st_uid == os.getuid() and not status.st_mode & _BY_OTHERS
