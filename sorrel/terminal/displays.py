"""Expressions that are shown at each stop where their values have changed."""

from __future__ import absolute_import

import sys

from sorrel.common import errors
from sorrel.inspection import evaluation, source
from sorrel.inspection.time_limit import Overtime
from sorrel.terminal.console import Closed


class DisplayCommands(object):
    """Commands find here: `_displays`, by where functions are, pairs of an expression and how its
    value was last shown. Nothing of the program's is kept alive for them.
    """

    def do_display(self, argument):
        """display [EXPRESSION]: show it at each stop in this function where it has changed.

        Alone, list what is shown in this function.
        """
        shown = self._displays.get(self._function(), [])
        if not argument:
            for known in shown:
                self._say('display %s: %s' % tuple(known))
            if not shown:
                self._say('Nothing is displayed in this function.')
            return
        try:
            evaluation.check_expression(argument)
        except (SyntaxError, TypeError, MemoryError):
            self._say('*** ' + errors.error_text(*sys.exc_info()[:2]))
            return
        value = self._displayed(argument)
        self._displays[self._function()] = [
            known for known in shown if known[0] != argument] + [[argument, value]]
        self._say('display %s: %s' % (argument, value))

    def do_undisplay(self, argument):
        """undisplay [EXPRESSION]: show it no more in this function; by default all."""
        shown = self._displays.get(self._function(), [])
        left = [known for known in shown if argument and known[0] != argument]
        if argument and len(left) == len(shown):
            self._say('*** Not displayed in this function: %s' % argument)
        else:
            self._displays[self._function()] = left

    def described_displays(self):
        """What display_as() takes, in another process."""
        return [list(function) + [[known[0] for known in shown]]
                for function, shown in self._displays.items()]

    def display_as(self, described):
        for path, line, name, expressions in described:
            self._displays[path.encode('utf-8'), line, str(name)] = [
                [expression.encode('utf-8'), None] for expression in expressions]

    def _function(self):
        code = self._frame().f_code
        return source.file_name(self._frame()), code.co_firstlineno, code.co_name

    def _show_displays(self):
        for known in self._displays.get(self._function(), []):
            value = self._displayed(known[0])
            if value != known[1]:
                old = '' if known[1] is None else '  [old: %s]' % known[1]
                self._say('display %s: %s%s' % (known[0], value, old))
                known[1] = value

    def _displayed(self, expression):
        try:
            return repr(self._computed(expression))
        except (Closed, Overtime, KeyboardInterrupt):
            raise
        except:
            return '** raised %s **' % errors.error_text(*sys.exc_info()[:2])
