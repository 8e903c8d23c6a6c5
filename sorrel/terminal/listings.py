"""Commands that show the source of whole functions and of other objects."""

from __future__ import absolute_import

import itertools

from sorrel.inspection import definitions, source


class ListingCommands(object):

    # Whether each stop shows more than its line.
    _is_sticky = False

    def do_sticky(self, argument):
        """sticky: show the whole function at each stop, or, said again, only the line."""
        self._is_sticky = not self._is_sticky
        if self._is_sticky:
            self.do_longlist('')

    def do_longlist(self, argument):
        """longlist, ll: show all lines of this function, or of the module."""
        entry = self._entry()
        here = definitions.of_code(entry.frame.f_code, entry.path)
        if here.path != source.file_name(entry.frame):
            here = here._replace(first=1, last=None)  # A file of another language.
        self._show_lines(here, lambda number: source.line(entry, number),
                         lambda number, line: self._painted(entry, number, line), entry.line)

    def show_source(self, expression):
        """That of the function, method, class or module that an expression stands for."""
        self._try(self._show_source, expression)

    def _show_source(self, expression):
        try:
            found = definitions.of_object(self._value(expression))
        except definitions.Unknown as error:
            self._say('*** %s' % error)
            return
        self._show_lines(found, lambda number: source.line_of_file(found.path, number),
                         lambda number, line: self._coloured(found.path, number, line))

    def _show_lines(self, definition, line_of, painted, current=None):
        if not line_of(definition.first):
            self._say('*** The source is not there')
        for number in itertools.count(definition.first):
            line = line_of(number)
            if not line or definition.last is not None and number > definition.last:
                break
            self._say_line(number, painted(number, line), number == current)
