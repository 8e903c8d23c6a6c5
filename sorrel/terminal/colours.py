"""What of the answers is coloured, where a terminal shows colours."""

from __future__ import absolute_import

_ERROR = '*** '
_RED, _NO_RED = '\x1b[31m', '\x1b[39m'
_BOLD, _NOT_BOLD = '\x1b[1m', '\x1b[22m'


class Plain(object):
    """No colours."""

    are_shown = False

    def answer(self, text):
        """Anything that is said."""
        return text

    def mark(self, text):
        """One that leads the eye."""
        return text

    def line(self, line):
        """One of Python, without its line end."""
        return line

    def listed(self, line, number, path):
        """The same of one among others, of the file with this path: it may be part of a string."""
        return line


class Colours(Plain):

    are_shown = True

    def __init__(self, highlighter):
        self._highlighter = highlighter

    def answer(self, text):
        if text.startswith(_ERROR):
            return _RED + _ERROR.rstrip() + _NO_RED + text[len(_ERROR) - 1:]
        return text

    def mark(self, text):
        return _BOLD + text + _NOT_BOLD

    def line(self, line):
        return self._highlighter.line(line)

    def listed(self, line, number, path):
        return self._highlighter.listed(line, number, path)


def are_wanted(environment):
    """Whether a person with this environment wants them where they can be shown."""
    return environment.get('TERM', 'dumb') not in ('', 'dumb') and not environment.get('NO_COLOR')


def of_process(are_shown):
    """Those of a process that has hardly begun. are_shown: whether there are any."""
    if not are_shown:
        return Plain()
    from sorrel.terminal.highlighting import Highlighter
    return Colours(Highlighter())
