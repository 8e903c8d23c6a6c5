"""Files with commands: those that a person names, and those that are read at the start."""

from __future__ import absolute_import

import os
import stat

from sorrel.common import text_files
from sorrel.terminal.typed import Line

_START_FILE = '.sorrelrc'
_BY_OTHERS = stat.S_IWGRP | stat.S_IWOTH


class CommandFiles(object):

    def do_source(self, argument):
        """source FILE | OBJECT: carry out the commands in a file, or show an object's source.

        In a file, what follows a "#" is a comment. What is the name of no file is an expression for
        a function, a method, a class or a module.
        """
        path = os.path.expanduser(argument)
        if text_files.is_file(path) or os.sep in argument:
            self._carry_out_file(path, argument)
        else:
            self.show_source(argument)

    def _carry_out_file(self, path, name):
        known = [self._line] + self.cmdqueue
        if [line for line in known if line is not None and line.file == name]:
            self._say('*** The commands in %s are being carried out' % name)
            return
        try:
            lines = text_files.text(path).split('\n')
        except text_files.Unreadable as error:
            self._say('*** Cannot read %s: %s' % (name, error))
            return
        self.cmdqueue[:0] = [Line(text, name, number) for number, text in enumerate(lines, 1)]

    def read_start_files(self):
        """What is carried out before the first prompt."""
        home = os.path.join(os.path.expanduser('~'), _START_FILE)
        here = os.path.abspath(_START_FILE)
        if os.path.realpath(here) != os.path.realpath(home) and text_files.is_file(here):
            if _is_own(here) and _is_own(os.path.dirname(here)):
                self._carry_out_file(here, _START_FILE)
            else:
                self._say('*** Not read, since others may write it: %s' % here)
        if text_files.is_file(home):
            self._carry_out_file(home, os.path.join('~', _START_FILE))


def _is_own(path):
    """Whether only this user can write it."""
    status = os.stat(path)
    return status.st_uid == os.getuid() and not status.st_mode & _BY_OTHERS
