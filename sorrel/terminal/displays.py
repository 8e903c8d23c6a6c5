"""Expressions that are shown at each stop where their values have changed."""

from __future__ import absolute_import

import sys

from sorrel.common import errors
from sorrel.inspection import evaluation, source
from sorrel.inspection.time_limit import Overtime
from sorrel.terminal import layout
from sorrel.terminal.console import Closed


class DisplayCommands(object):
    """Commands find here: `_displays`, by where functions are, lists of an expression, all of the
    text of its last value, and what is said of that. Nothing of the program's is kept alive for
    them.
    """

    def do_display(self, argument):
        """display [EXPRESSION]: show it at each stop in this function where it has changed.

        Alone, list what is shown in this function.
        """
        shown = self._displays.get(self._function(), [])
        if not argument:
            for known in shown:
                self._say(known[2])
            if not shown:
                self._say('Nothing is displayed in this function.')
            return
        try:
            evaluation.check_expression(argument)
        except (SyntaxError, TypeError, MemoryError):
            self._say('*** ' + errors.error_text(*sys.exc_info()[:2]))
            return
        text, said = self._displayed(argument)
        self._displays[self._function()] = [
            known for known in shown if known[0] != argument] + [[argument, text, said]]
        self._say(said)

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
                [expression, None, heading(expression) + 'not evaluated yet']
                for expression in [expression.encode('utf-8') for expression in expressions]]

    def _function(self):
        code = self._frame().f_code
        return source.file_name(self._frame()), code.co_firstlineno, code.co_name

    def _show_displays(self):
        for known in self._displays.get(self._function(), []):
            text, said = self._displayed(known[0])
            if text != known[1]:
                self._say(said + _told(known[1], said))
                known[1:] = text, said

    def _displayed(self, expression):
        """(all of its value as text, what is said of it)"""
        head = heading(expression)
        try:
            value = self._computed(expression)
            text = repr(value)
            return text, layout.arranged(head, text, value)
        except (Closed, Overtime, KeyboardInterrupt):
            raise
        except:
            text = '** raised %s **' % errors.error_text(*sys.exc_info()[:2])
            return text, head + text


def heading(expression):
    return 'display %s: ' % expression


def _told(old, said):
    """How the text of the value before is added to what is said of the new one."""
    if old is None:
        return ''
    shown = layout.cut(old)
    return '%s  [old: %s]' % ('\n' if '\n' in said or shown != old else '', shown)
