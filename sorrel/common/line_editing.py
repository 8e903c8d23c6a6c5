"""Lines that a person edits at a terminal, where they are completed and remembered."""

from __future__ import absolute_import

import sys

from sorrel.common.history import History

# What a word that is completed lies between.
_DELIMITERS = ' \t\n`~!@#$%^&*()-=+[{]}\\|;:\'",<>/?'


class LineEditor(object):
    """The program may use the same library: each has its turn there."""

    def __init__(self, readline):
        """readline: the module."""
        self._readline = readline
        self._history = History(readline)

    def edit(self, prompt, complete, stdin, stdout):
        """The next line without its line end; None at the end of input.

        complete: called with a word and the line, and where in this the word begins and ends, for
        a list of what it may become. Without it, the line is an answer to a question.
        """
        # raw_input edits lines only on what sys.stdin and sys.stdout are.
        program_files = sys.stdin, sys.stdout
        program_completer = self._readline.get_completer()
        program_delimiters = self._readline.get_completer_delims()
        sys.stdin, sys.stdout = stdin, stdout
        self._readline.set_completer(complete and self._completer(complete))
        self._readline.set_completer_delims(_DELIMITERS)
        self._readline.parse_and_bind('tab: complete')
        self._history.enter()
        typed = None
        try:
            typed = raw_input(prompt)
        except EOFError:
            pass
        finally:
            # An answer to a question is no line to come back to.
            self._history.leave(typed if complete is not None else None)
            self._readline.set_completer_delims(program_delimiters)
            self._readline.set_completer(program_completer)
            sys.stdin, sys.stdout = program_files
        return typed

    def _completer(self, complete):
        found = []

        def completer(text, state):
            if state == 0:
                found[:] = complete(text, self._readline.get_line_buffer(),
                                    self._readline.get_begidx(), self._readline.get_endidx())
            return found[state] if state < len(found) else None
        return completer
