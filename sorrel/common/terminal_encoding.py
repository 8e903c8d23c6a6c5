"""What is typed and shown, in a terminal's encoding there and in UTF-8 here."""

from __future__ import absolute_import

import codecs
import re
import sys

_HIGH = re.compile(r'[\x80-\xff]')


class TerminalEncoding(object):

    def __init__(self, stdin, stdout):
        """stdin, stdout: what is typed at and shown on: a terminal, or files and pipes."""
        self._name = _known(getattr(stdout, 'encoding', None) or getattr(stdin, 'encoding', None)
                            or sys.getfilesystemencoding())
        # In pipes, what is already UTF-8 is not taken for anything else.
        self._typed_in = (self._name,) if is_terminal(stdin) else ('utf-8', self._name)
        # Where nobody says what a pipe takes, it gets what there is.
        self._takes_all = self._name == 'ascii' and not is_terminal(stdout)

    def shown(self, text):
        """As bytes. What the terminal does not have is escaped, what is in no encoding replaced."""
        if isinstance(text, unicode):
            return text.encode(self._name, 'backslashreplace')
        if self._takes_all or not _HIGH.search(text):
            return text
        try:
            decoded = text.decode('utf-8')
        except UnicodeDecodeError:
            # Of the program, most likely.
            decoded = text.decode(self._name, 'replace')
        return decoded.encode(self._name, 'backslashreplace')

    def typed(self, data):
        """In UTF-8, or as it is where it is not of the terminal's encoding."""
        if _HIGH.search(data):
            for name in self._typed_in:
                try:
                    return data.decode(name).encode('utf-8')
                except UnicodeDecodeError:
                    pass
        return data


def is_terminal(stream):
    try:
        return stream.isatty()
    except ValueError:
        return False  # The program has closed it.


def _known(name):
    try:
        return codecs.lookup(name or 'ascii').name
    except LookupError:
        return 'ascii'
