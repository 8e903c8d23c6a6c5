"""Lines that were typed at the prompt, in this session and in others."""

from __future__ import absolute_import

import os

from sorrel.common import text_files

_FILE = '.sorrel_history'
# Of lines that are remembered; the file may have twice as many before it is written anew.
_LIMIT = 1000


class History(object):
    """The program may have one of its own, in the same library: each has its turn there."""

    def __init__(self, readline):
        self._readline = readline
        self._path = os.path.join(os.path.expanduser('~'), _FILE)
        # None until they are needed.
        self._lines = None
        self._of_program = []

    def enter(self):
        """From now on it is about this one."""
        if self._lines is None:
            self._lines = _read(self._path)
        self._of_program = self._exchange(self._lines)

    def leave(self, typed):
        """typed: what is to be remembered; None for nothing."""
        self._exchange(self._of_program)
        self._of_program = []
        if typed and typed.strip() and self._lines[-1:] != [typed]:
            self._lines.append(typed)
            del self._lines[:-_LIMIT]
            _append(self._path, typed)

    def _exchange(self, lines):
        """Has the library remember these; returns what it has remembered."""
        count = self._readline.get_current_history_length()
        before = [self._readline.get_history_item(number) for number in range(1, count + 1)]
        self._readline.clear_history()
        for line in lines:
            self._readline.add_history(line)
        return [line for line in before if line is not None]


def _read(path):
    try:
        lines = [line for line in text_files.text(path).split('\n') if line]
    except text_files.Unreadable:
        return []
    if len(lines) > 2 * _LIMIT:
        _write(path, lines[-_LIMIT:])
    return lines[-_LIMIT:]


def _write(path, lines):
    """At once: another session may be about to add to it."""
    made = '%s.%d' % (path, os.getpid())
    try:
        os.close(os.open(made, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0600))
        _append(made, '\n'.join(lines))
        os.rename(made, path)
    except OSError:
        pass  # It stays as long as it is.


def _append(path, text):
    try:
        file = os.open(path, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0600)
        try:
            os.write(file, text + '\n')
        finally:
            os.close(file)
    except OSError:
        pass  # There is no such folder, or no room in it: it is remembered in this session.
