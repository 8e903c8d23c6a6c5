"""Files with commands: those that a person names, and those that are read at the start."""

from __future__ import absolute_import

import os

from sorrel.common import start_files, text_files
from sorrel.terminal.typed import Line


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
        self.begin_with(*start_files.read())

    def begin_with(self, lines, complaints):
        """The same for what start_files.read() has said, be it elsewhere."""
        self._news += ['*** ' + complaint for complaint in complaints]
        self.cmdqueue += [Line(*line) for line in lines]
